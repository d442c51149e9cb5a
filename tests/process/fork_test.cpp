// A process of the framework that forks while other threads allocate and
// look up module names: every child must be able to allocate, free and look
// up a name, whatever the other threads held at the moment of the fork.
#include <gtest/gtest.h>

#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

#include "quendal/classification.h"
#include "quendal/heap.h"

namespace {

std::atomic<bool> stop(false);

void* AllocateAndFree(void*) {
  unsigned size = 1;
  while (!stop.load(std::memory_order_relaxed)) {
    void* block = QDHeapAlloc(size);
    QDHeapFree(block);
    // Both heaps: pooled sizes and the C library's beyond 1024 bytes.
    size = size % 1500 + 7;
  }
  return nullptr;
}

void* LookUpFreshNames(void*) {
  unsigned serial = 0;
  while (!stop.load(std::memory_order_relaxed)) {
    char name[32];
    snprintf(name, sizeof name, "fork-test-%u", serial++);
    Quendal::Classification::LookUpModuleId(name);
  }
  return nullptr;
}

// What a child does before it leaves: exit code 0 only when all of it
// worked.
void RunChild() {
  void* block = QDHeapAlloc(64);
  if (block == nullptr) {
    _exit(2);
  }
  QDHeapFree(block);
  void* large = QDHeapAlloc(4096);
  QDHeapFree(large);
  unsigned short id = Quendal::Classification::LookUpModuleId("child module");
  const char* name = Quendal::Classification::LookUpModuleName(id);
  if (id == 0 || name == nullptr) {
    _exit(3);
  }
  _exit(0);
}

// Waits for child, killing it when it has not ended after a generous while:
// a hang detector, not a measurement. Returns its wait status, or -1 when
// it hung.
int WaitOrKill(pid_t child) {
  for (int poll = 0; poll < 20000; ++poll) {
    int status = 0;
    pid_t ended = waitpid(child, &status, WNOHANG);
    if (ended == child) {
      return status;
    }
    if (ended < 0) {
      return -2;
    }
    timespec pause = {0, 1000 * 1000};
    nanosleep(&pause, nullptr);
  }
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  return -1;
}

TEST(ForkTest, ChildrenAllocateAndLookUpNamesWhileThreadsRunInTheParent) {
  // The heap and the registry exist before the threads start.
  QDHeapFree(QDHeapAlloc(16));
  Quendal::Classification::LookUpModuleId("parent module");
  pthread_t allocator;
  pthread_t namer;
  ASSERT_EQ(pthread_create(&allocator, nullptr, AllocateAndFree, nullptr), 0);
  ASSERT_EQ(pthread_create(&namer, nullptr, LookUpFreshNames, nullptr), 0);

  // Stops at the first child that hangs or fails.
  int round = 0;
  int status = 0;
  for (; round < 200; ++round) {
    pid_t child = fork();
    if (child == 0) {
      RunChild();
    }
    ASSERT_GT(child, 0);
    status = WaitOrKill(child);
    if (status == -1 || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      break;
    }
  }
  stop.store(true);
  pthread_join(allocator, nullptr);
  pthread_join(namer, nullptr);
  EXPECT_NE(status, -1) << "child " << round << " hung";
  EXPECT_EQ(round, 200) << "child " << round << " ended with status " << status;
}

}  // namespace
