// The heap's biased lock alone: exclusion while the bias moves between
// threads all the time, a revoker that waits for an owner inside and never
// for one that has exited, and a waiter that gets the lock from a thread
// that never stops taking it.
#include <gtest/gtest.h>

#include <pthread.h>
#include <sched.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <atomic>
#include <vector>

#include "heap/biased_lock.h"
#include "platform/asymmetric_fence.h"

namespace {

using Quendal::Heap::BiasedLock;

// The emulated 32-bit configurations run ten to thirty times slower, the
// sanitizers a few times: they count fewer rounds.
long Scaled(long rounds) {
  if (getenv("QUENDAL_TEST_EMULATOR") != nullptr) {
    rounds /= 25;
  }
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  rounds /= 4;
#endif
  return rounds;
}

// Whether the heavy fence works here, so that the lock gives its bias.
bool BiasCanBeGiven() {
  return Quendal::Platform::RegisterHeavyFence();
}

struct Shared {
  explicit Shared(uint32_t firstRun, uint32_t maxRun) : lock(firstRun, maxRun) {}
  BiasedLock lock;
  // Read and written with plain accesses under the lock only: a lost
  // increment or a second thread inside shows a hole in the exclusion.
  long counter = 0;
  int inside = 0;
  long overlaps = 0;
  uintptr_t lastHolder = 0;
  long handOvers = 0;
  long biasedEntries = 0;
  long rounds = 0;
  // Who entered last and how many threads still count, for the turns.
  std::atomic<uintptr_t> latest{0};
  std::atomic<int> active{0};
};

struct Worker {
  Shared* shared;
  uintptr_t self;
  unsigned seed;
};

unsigned NextRandom(unsigned& seed) {
  seed = seed * 1103515245u + 12345u;
  return seed >> 16;
}

void PauseFor(unsigned pauses) {
  for (unsigned k = 0; k < pauses; ++k) {
    Quendal::Platform::PauseProcessor();
  }
}

void WaitForAnotherThread(Shared& shared, uintptr_t self) {
  for (unsigned look = 0; shared.latest.load(std::memory_order_relaxed) == self &&
                          shared.active.load(std::memory_order_relaxed) > 1;
       ++look) {
    if (look % 64 == 63) {
      sched_yield();
    } else {
      Quendal::Platform::PauseProcessor();
    }
  }
}

void* CountWhileTheBiasMoves(void* argument) {
  Worker* worker = static_cast<Worker*>(argument);
  Shared& shared = *worker->shared;
  unsigned seed = worker->seed;
  for (long round = 0; round < shared.rounds; ++round) {
    BiasedLock::Token token = shared.lock.Enter();
    if (shared.inside++ != 0) {
      ++shared.overlaps;
    }
    long seen = shared.counter;
    if (shared.lastHolder != worker->self) {
      shared.lastHolder = worker->self;
      ++shared.handOvers;
    }
    if (token > 1) {
      ++shared.biasedEntries;
    }
    unsigned draw = NextRandom(seed);
    // Now and then a pause inside, or a switch-out, so that a revoker
    // finds the owner in its section.
    if (draw % 4096 == 0) {
      sched_yield();
    } else if (draw % 64 == 0) {
      PauseFor(draw % 32);
    }
    shared.counter = seen + 1;
    --shared.inside;
    shared.latest.store(worker->self, std::memory_order_relaxed);
    shared.lock.Leave(token);
    // After a run of 1 to 8 entries the thread waits for another one to
    // enter, so that the hands change all the time even where the threads
    // rarely run side by side; random pauses outside vary the moment.
    draw = NextRandom(seed);
    if (draw % 16 == 0) {
      PauseFor(draw % 64);
    }
    if (draw % 8 == 0) {
      WaitForAnotherThread(shared, worker->self);
    }
  }
  shared.active.fetch_sub(1);
  return nullptr;
}

void CountWithThreads(int threads, long rounds, uint32_t firstRun, uint32_t maxRun) {
  Shared shared(firstRun, maxRun);
  shared.rounds = rounds;
  shared.active.store(threads);
  std::vector<Worker> workers(threads);
  std::vector<pthread_t> ids(threads);
  for (int index = 0; index < threads; ++index) {
    workers[index].shared = &shared;
    workers[index].self = static_cast<uintptr_t>(index + 1);
    workers[index].seed = 7919u * static_cast<unsigned>(index + 1);
    ASSERT_EQ(pthread_create(&ids[index], nullptr, CountWhileTheBiasMoves, &workers[index]), 0);
  }
  for (pthread_t id : ids) {
    pthread_join(id, nullptr);
  }
  EXPECT_EQ(shared.overlaps, 0);
  EXPECT_EQ(shared.counter, threads * rounds);
  if (BiasCanBeGiven()) {
    // The bias did move: entries without any atomic instruction happened.
    EXPECT_GT(shared.biasedEntries, 0);
  }
  EXPECT_GT(shared.handOvers, 0);
  printf("%d threads: %ld entries, %ld changes of hands, %ld biased entries\n", threads,
         shared.counter, shared.handOvers, shared.biasedEntries);
}

// Every change of hands gives the bias to the new holder on its leave, so
// the next other thread revokes it.
TEST(BiasedLockTest, TwoThreadsLoseNoIncrementWhileTheBiasMovesOnEveryChange) {
  CountWithThreads(2, Scaled(600000), 1, 1);
}

TEST(BiasedLockTest, FourThreadsLoseNoIncrementWhileTheBiasMovesOnEveryChange) {
  CountWithThreads(4, Scaled(250000), 1, 1);
}

TEST(BiasedLockTest, EightThreadsLoseNoIncrementWhileTheBiasMovesOnEveryChange) {
  CountWithThreads(8, Scaled(120000), 1, 1);
}

// The heap's own policy: biased in runs, backing off after revocations.
TEST(BiasedLockTest, ThreadsLoseNoIncrementUnderTheHeapsPolicy) {
  CountWithThreads(3, Scaled(300000), 64, 1 << 16);
}

struct Exiting {
  explicit Exiting(uint32_t firstRun) : lock(firstRun, firstRun) {}
  BiasedLock lock;
  bool biased = false;
};

// Takes the lock until it owns the bias, then exits holding it.
void* TakeTheBiasAndExit(void* argument) {
  Exiting* shared = static_cast<Exiting*>(argument);
  for (int round = 0; round < 1000 && !shared->lock.IsBiasedToCaller(); ++round) {
    shared->lock.Leave(shared->lock.Enter());
  }
  shared->biased = shared->lock.IsBiasedToCaller();
  return nullptr;
}

TEST(BiasedLockTest, ThreadsThatExitHoldingTheBiasDoNotBlockTheOthers) {
  if (!BiasCanBeGiven()) {
    GTEST_SKIP() << "the system refuses the heavy fence, so the lock gives no bias";
  }
  static Exiting shared(4);
  // More threads than the lock has records, one after another: the thread
  // pointers of exited threads come back, and those that do not find a
  // record take the lock without a bias.
  for (int thread = 0; thread < 200; ++thread) {
    pthread_t id;
    ASSERT_EQ(pthread_create(&id, nullptr, TakeTheBiasAndExit, &shared), 0);
    pthread_join(id, nullptr);
    ASSERT_TRUE(shared.biased || thread > 0);
    // The exited owner is revoked without waiting for it.
    BiasedLock::Token token = shared.lock.Enter();
    EXPECT_FALSE(shared.lock.IsBiasedToCaller());
    shared.lock.Leave(token);
  }
  // The bias still comes to a thread that takes the lock alone.
  for (int round = 0; round < 100 && !shared.lock.IsBiasedToCaller(); ++round) {
    shared.lock.Leave(shared.lock.Enter());
  }
  EXPECT_TRUE(shared.lock.IsBiasedToCaller());
}

struct Inside {
  BiasedLock lock{1, 1};
  std::atomic<int> stage{0};
  int value = 0;
};

// Owns the bias, enters, and stays inside until told to leave.
void* StayInsideWithTheBias(void* argument) {
  Inside* shared = static_cast<Inside*>(argument);
  while (!shared->lock.IsBiasedToCaller()) {
    shared->lock.Leave(shared->lock.Enter());
  }
  BiasedLock::Token token = shared->lock.Enter();
  shared->value = 1;
  shared->stage.store(1);
  while (shared->stage.load() != 2) {
    sched_yield();
  }
  // The other thread is on its way in; it must not pass before this leave.
  for (int round = 0; round < 1000; ++round) {
    sched_yield();
  }
  shared->value = 2;
  shared->lock.Leave(token);
  return nullptr;
}

TEST(BiasedLockTest, ARevokerWaitsForTheOwnerToLeave) {
  if (!BiasCanBeGiven()) {
    GTEST_SKIP() << "the system refuses the heavy fence, so the lock gives no bias";
  }
  static Inside shared;
  pthread_t id;
  ASSERT_EQ(pthread_create(&id, nullptr, StayInsideWithTheBias, &shared), 0);
  while (shared.stage.load() != 1) {
    sched_yield();
  }
  shared.stage.store(2);
  BiasedLock::Token token = shared.lock.Enter();
  EXPECT_EQ(shared.value, 2);
  shared.lock.Leave(token);
  pthread_join(id, nullptr);
}

struct Hammered {
  BiasedLock lock{64, 1 << 16};
  std::atomic<bool> done{false};
  std::atomic<long> hammerRounds{0};
};

// Takes the lock again at once after each leave, until told to stop.
void* Hammer(void* argument) {
  Hammered* shared = static_cast<Hammered*>(argument);
  while (!shared->done.load(std::memory_order_relaxed)) {
    BiasedLock::Token token = shared->lock.Enter();
    shared->hammerRounds.fetch_add(1, std::memory_order_relaxed);
    PauseFor(64);
    shared->lock.Leave(token);
  }
  return nullptr;
}

// Without hand-over, the hammer takes the lock back before a woken waiter
// runs, round after round.
TEST(BiasedLockTest, AWaiterGetsTheLockFromAThreadThatNeverStopsTakingIt) {
  static Hammered shared;
  pthread_t id;
  ASSERT_EQ(pthread_create(&id, nullptr, Hammer, &shared), 0);
  while (shared.hammerRounds.load() < 1000) {
    sched_yield();
  }
  for (long round = 0; round < Scaled(20000); ++round) {
    BiasedLock::Token token = shared.lock.Enter();
    shared.lock.Leave(token);
  }
  long hammered = shared.hammerRounds.load();
  shared.done.store(true);
  pthread_join(id, nullptr);
  // The hammer went on while this thread got its rounds.
  EXPECT_GT(shared.hammerRounds.load(), hammered - 1);
}

}  // namespace
