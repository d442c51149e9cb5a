// The heap's lock under several threads: exclusion, sleepers woken, and a
// lock that stays usable after long contention.
#include <gtest/gtest.h>

#include <pthread.h>
#include <sched.h>
#include <stdio.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <vector>

#include "platform/fast_lock.h"

namespace {

using Quendal::Platform::FastLock;

struct Counting {
  FastLock lock;
  // Incremented with plain reads and writes: only the lock keeps threads
  // from losing each other's increments.
  long counter = 0;
  int rounds = 0;
};

void* CountUnderTheLock(void* argument) {
  Counting* shared = static_cast<Counting*>(argument);
  for (int round = 0; round < shared->rounds; ++round) {
    shared->lock.Lock();
    long seen = shared->counter;
    // Gives another thread the chance to run inside the section if the
    // lock let it in.
    if (round % 64 == 0) {
      sched_yield();
    }
    shared->counter = seen + 1;
    shared->lock.Unlock();
  }
  return nullptr;
}

long CountWithThreads(Counting& shared, int threads) {
  std::vector<pthread_t> ids(threads);
  for (pthread_t& id : ids) {
    EXPECT_EQ(pthread_create(&id, nullptr, CountUnderTheLock, &shared), 0);
  }
  for (pthread_t id : ids) {
    pthread_join(id, nullptr);
  }
  return shared.counter;
}

TEST(PlatformFastLock, ExcludesThreadsCountingWithPlainIncrements) {
  static Counting shared;
  shared.rounds = 20000;
  EXPECT_EQ(CountWithThreads(shared, 4), 4L * 20000);
}

// Runs body on a thread; false when it has not returned after a generous
// while. A hang detector, not a measurement.
bool FinishesOnAThread(void* (*body)(void*), void* argument) {
  pthread_t thread;
  if (pthread_create(&thread, nullptr, body, argument) != 0) {
    return false;
  }
  timespec deadline;
  clock_gettime(CLOCK_REALTIME, &deadline);
  deadline.tv_sec += 20;
  if (pthread_timedjoin_np(thread, nullptr, &deadline) == 0) {
    return true;
  }
  pthread_detach(thread);
  return false;
}

void* LockAndUnlock(void* argument) {
  FastLock* lock = static_cast<FastLock*>(argument);
  lock->Lock();
  lock->Unlock();
  return nullptr;
}

TEST(PlatformFastLock, StaysUsableAfterManyContendedRounds) {
  static Counting shared;
  shared.rounds = 50000;
  ASSERT_EQ(CountWithThreads(shared, 4), 4L * 50000);
  // Free again: taken here and, after that, by a thread of its own.
  shared.lock.Lock();
  shared.lock.Unlock();
  EXPECT_TRUE(FinishesOnAThread(LockAndUnlock, &shared.lock));
  EXPECT_TRUE(FinishesOnAThread(LockAndUnlock, &shared.lock));
}

struct Sleepers {
  FastLock lock;
  std::atomic<int> started{0};
  std::atomic<long> threadIds[3];
  int done = 0;
};

void* WaitForTheLock(void* argument) {
  Sleepers* shared = static_cast<Sleepers*>(argument);
  int index = shared->started.fetch_add(1);
  shared->threadIds[index].store(syscall(SYS_gettid));
  shared->lock.Lock();
  ++shared->done;
  shared->lock.Unlock();
  return nullptr;
}

// The scheduler state of one thread of this process: 'S' while it sleeps.
char StateOf(long threadId) {
  std::string path = "/proc/self/task/" + std::to_string(threadId) + "/stat";
  FILE* file = fopen(path.c_str(), "r");
  if (file == nullptr) {
    return '?';
  }
  char line[512] = {0};
  size_t length = fread(line, 1, sizeof line - 1, file);
  fclose(file);
  std::string text(line, length);
  // The state follows the command name, which is in parentheses.
  size_t close = text.rfind(')');
  return close == std::string::npos || close + 2 >= text.size() ? '?' : text[close + 2];
}

void* WakeSleepers(void* argument) {
  Sleepers* shared = static_cast<Sleepers*>(argument);
  std::vector<pthread_t> ids(3);
  for (pthread_t& id : ids) {
    pthread_create(&id, nullptr, WaitForTheLock, shared);
  }
  while (shared->started.load() < 3) {
    sched_yield();
  }
  // Once their spinning is over the waiters sleep in the kernel; with no
  // state to read, they are released whenever they are.
  for (int index = 0; index < 3; ++index) {
    long threadId;
    while ((threadId = shared->threadIds[index].load()) == 0) {
      sched_yield();
    }
    while (StateOf(threadId) == 'R') {
      sched_yield();
    }
  }
  shared->lock.Unlock();
  for (pthread_t id : ids) {
    pthread_join(id, nullptr);
  }
  return nullptr;
}

TEST(PlatformFastLock, SleepingWaitersAreWokenOneAfterAnother) {
  static Sleepers shared;
  for (std::atomic<long>& id : shared.threadIds) {
    id.store(0);
  }
  shared.lock.Lock();
  EXPECT_TRUE(FinishesOnAThread(WakeSleepers, &shared));
  shared.lock.Lock();
  EXPECT_EQ(shared.done, 3);
  shared.lock.Unlock();
}

}  // namespace
