// Counting under the heap's biased lock while its hands change: the
// stress tests' threads and what they check after.
#ifndef QUENDAL_TESTS_HEAP_BIASED_LOCK_COUNTING_H
#define QUENDAL_TESTS_HEAP_BIASED_LOCK_COUNTING_H

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

namespace QuendalLockTest {

using Quendal::Heap::BiasedLock;

// The emulated 32-bit configurations run ten to thirty times slower, the
// sanitizers a few times: they count fewer rounds.
inline long Scaled(long rounds) {
  if (getenv("QUENDAL_TEST_EMULATOR") != nullptr) {
    rounds /= 25;
  }
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  rounds /= 4;
#endif
  return rounds;
}

// Whether the heavy fence works here, so that the lock gives its bias.
inline bool BiasCanBeGiven() {
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
  // Whether a thread waits for another one to enter after every leave.
  bool strictTurns = false;
  // Who entered last and how many threads still count, for the turns.
  std::atomic<uintptr_t> latest{0};
  std::atomic<int> active{0};
};

struct Worker {
  Shared* shared;
  uintptr_t self;
  unsigned seed;
};

inline unsigned NextRandom(unsigned& seed) {
  seed = seed * 1103515245u + 12345u;
  return seed >> 16;
}

inline void PauseFor(unsigned pauses) {
  for (unsigned k = 0; k < pauses; ++k) {
    Quendal::Platform::PauseProcessor();
  }
}

inline void WaitForAnotherThread(Shared& shared, uintptr_t self) {
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

inline void* CountWhileTheBiasMoves(void* argument) {
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
    if (shared.strictTurns || draw % 8 == 0) {
      WaitForAnotherThread(shared, worker->self);
    }
  }
  shared.active.fetch_sub(1);
  return nullptr;
}

inline long CountWithThreads(int threads, long rounds, uint32_t firstRun, uint32_t maxRun,
                             bool strictTurns = false) {
  Shared shared(firstRun, maxRun);
  shared.rounds = rounds;
  shared.strictTurns = strictTurns;
  shared.active.store(threads);
  std::vector<Worker> workers(threads);
  std::vector<pthread_t> ids(threads);
  for (int index = 0; index < threads; ++index) {
    workers[index].shared = &shared;
    workers[index].self = static_cast<uintptr_t>(index + 1);
    workers[index].seed = 7919u * static_cast<unsigned>(index + 1);
    EXPECT_EQ(pthread_create(&ids[index], nullptr, CountWhileTheBiasMoves, &workers[index]), 0);
  }
  for (pthread_t id : ids) {
    pthread_join(id, nullptr);
  }
  EXPECT_EQ(shared.overlaps, 0);
  EXPECT_EQ(shared.counter, threads * rounds);
  if (BiasCanBeGiven() && !strictTurns) {
    // The bias did move: entries without any atomic instruction happened.
    EXPECT_GT(shared.biasedEntries, 0);
  }
  EXPECT_GT(shared.handOvers, 0);
  printf("%d threads: %ld entries, %ld changes of hands, %ld biased entries\n", threads,
         shared.counter, shared.handOvers, shared.biasedEntries);
  return shared.handOvers;
}

}  // namespace QuendalLockTest

#endif
