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
#include "heap/biased_lock_counting.h"

namespace {

using Quendal::Heap::BiasedLock;
using QuendalLockTest::BiasCanBeGiven;
using QuendalLockTest::CountWithThreads;
using QuendalLockTest::PauseFor;
using QuendalLockTest::Scaled;

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
