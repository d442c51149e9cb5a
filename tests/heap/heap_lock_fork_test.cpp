// Fork while another thread owns the heap lock's bias: the fork handler
// revokes it, waiting for the owner to leave if it is inside, and the child
// allocates with the lock free.
#include <gtest/gtest.h>

#include <pthread.h>
#include <sched.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>

#include "heap/the_heap.h"
#include "platform/asymmetric_fence.h"
#include "quendal/heap.h"

namespace {

using Quendal::Heap::TheHeap;

Quendal::Heap::Mutex& HeapMutex() {
  QDHeapInit();
  return TheHeap::getInstance(false)->GetMutex();
}

struct Owner {
  std::atomic<int> stage{0};
  bool biased = false;
  bool biasedAfterFork = true;
  bool stayInside = false;
  int value = 0;
};

// Allocates until it owns the heap's bias; then either waits outside or
// stays inside until the main thread is forking.
void* TakeTheHeapsBias(void* argument) {
  Owner* owner = static_cast<Owner*>(argument);
  Quendal::Heap::Mutex& mutex = HeapMutex();
  for (int round = 0; round < 100000 && !mutex.GetLock().IsBiasedToCaller(); ++round) {
    QDHeapFree(QDHeapAlloc(16));
  }
  owner->biased = mutex.GetLock().IsBiasedToCaller();
  if (owner->stayInside && owner->biased) {
    Quendal::Heap::Mutex::Token token = mutex.Enter();
    owner->value = 1;
    owner->stage.store(1);
    while (owner->stage.load() != 2) {
      sched_yield();
    }
    // The main thread is on its way into fork, whose handler must not take
    // the lock before this leave.
    for (int round = 0; round < 1000; ++round) {
      sched_yield();
    }
    owner->value = 2;
    mutex.Leave(token);
    while (owner->stage.load() != 3) {
      sched_yield();
    }
  } else {
    owner->stage.store(1);
    while (owner->stage.load() != 3) {
      sched_yield();
    }
  }
  owner->biasedAfterFork = mutex.GetLock().IsBiasedToCaller();
  QDHeapFree(QDHeapAlloc(16));
  return nullptr;
}

// Forks; the child allocates, frees and exits 0 when the value read in it
// is expected. Returns the child's exit status.
int ForkAndCheckChild(const Owner& owner, int expected) {
  pid_t child = fork();
  if (child == 0) {
    // A child that hangs on the lock is killed and fails the test.
    alarm(20);
    void* block = QDHeapAlloc(64);
    QDHeapFree(block);
    Quendal::Heap::Mutex::Token token = HeapMutex().Enter();
    int value = owner.value;
    HeapMutex().Leave(token);
    _exit(block != nullptr && value == expected ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return status;
}

TEST(HeapLockForkTest, ForkRevokesABiasHeldByAnotherThread) {
  if (!Quendal::Platform::RegisterHeavyFence()) {
    GTEST_SKIP() << "the heavy fence is not available, so the heap's lock gives no bias";
  }
  static Owner owner;
  pthread_t id;
  ASSERT_EQ(pthread_create(&id, nullptr, TakeTheHeapsBias, &owner), 0);
  while (owner.stage.load() != 1) {
    sched_yield();
  }
  ASSERT_TRUE(owner.biased);
  int status = ForkAndCheckChild(owner, 0);
  owner.stage.store(3);
  pthread_join(id, nullptr);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
  EXPECT_FALSE(owner.biasedAfterFork);
}

TEST(HeapLockForkTest, ForkWaitsForTheBiasedOwnerToLeave) {
  if (!Quendal::Platform::RegisterHeavyFence()) {
    GTEST_SKIP() << "the heavy fence is not available, so the heap's lock gives no bias";
  }
  static Owner owner;
  owner.stayInside = true;
  pthread_t id;
  ASSERT_EQ(pthread_create(&id, nullptr, TakeTheHeapsBias, &owner), 0);
  while (owner.stage.load() != 1) {
    sched_yield();
  }
  ASSERT_TRUE(owner.biased);
  owner.stage.store(2);
  int status = ForkAndCheckChild(owner, 2);
  owner.stage.store(3);
  pthread_join(id, nullptr);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "status " << status;
}

}  // namespace
