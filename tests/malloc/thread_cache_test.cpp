// The drop-in's per-thread caches as a program sees them through the
// statistics: their bounds, a thread's blocks going back to the pool when it
// ends, a block freed by another thread, and fork beside a thread holding
// cached blocks.
#include <gtest/gtest.h>

#include <pthread.h>
#include <sched.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "quendal/heap.h"
#include "quendal/heap_owns.h"
#include "quendal/heap_stats.h"

namespace {

// The documented bounds: per thread 32 KiB, per class 32 blocks and 4 KiB.
const uint32_t kThreadBytes = 32768;
const uint32_t kBinBlocks = 32;

struct Counts {
  uint64_t used = 0;
  uint32_t cached = 0;
  uint32_t cachedBytes = 0;
};

Counts Read() {
  QDHeapStats stats;
  stats.size = sizeof(stats);
  EXPECT_EQ(QDHeapGetStats(&stats), QD_HEAP_STATS_OK);
  Counts counts;
  for (uint32_t i = 0; i < stats.classCount; ++i) {
    counts.used += stats.classes[i].usedBlocks;
  }
  counts.cached = stats.threadCachedBlocks;
  counts.cachedBytes = stats.threadCachedBytes;
  return counts;
}

// A block of malloc's, written so that it is the program's.
void* Block(size_t size) {
  void* block = malloc(size);
  if (block != nullptr) {
    memset(block, 0x5a, size);
  }
  return block;
}

// Runs body on a thread of its own, which ends before this returns.
template <class Body>
void OnAThread(Body body) {
  std::thread thread(body);
  thread.join();
}

// The C library keeps what it allocated for the first thread it ran (its
// stack, its thread-local storage) for the next: after this, starting and
// ending a thread changes the counts of no other thread.
void SettleThreads() {
  OnAThread([] { free(Block(16)); });
  OnAThread([] { free(Block(16)); });
}

// Holds count blocks of size at once, then frees them. The pointers live on
// the stack: a growing vector would fill caches of its own classes.
void AllocateAndFree(size_t size, int count) {
  void* blocks[1000];
  ASSERT_LE(count, 1000);
  for (int i = 0; i < count; ++i) {
    blocks[i] = Block(size);
    ASSERT_TRUE(QDHeapOwns(blocks[i]));
  }
  for (int i = 0; i < count; ++i) {
    free(blocks[i]);
  }
}

TEST(ThreadCache, AClassKeepsAtMostItsBoundOfFreedBlocks) {
  OnAThread([] {
    free(Block(16));
    const Counts before = Read();
    AllocateAndFree(64, 500);
    const Counts after = Read();
    EXPECT_GT(after.cached, before.cached);
    EXPECT_LE(after.cached - before.cached, kBinBlocks);
    EXPECT_LE(after.cachedBytes - before.cachedBytes, kBinBlocks * 64);
  });
}

// A program that frees a block twice: the cache keeps it once, so two
// mallocs do not both get it. The 32-byte class has room for the cache's
// mark on every target.
TEST(ThreadCache, ASecondFreeOfACachedBlockLeavesItCachedOnce) {
  void* volatile twice = Block(32);
  void* block = twice;
  ASSERT_NE(block, nullptr);
  Counts before = Read();
  free(twice);
  free(twice);
  EXPECT_EQ(Read().cached, before.cached + 1);
  void* first = malloc(32);
  void* second = malloc(32);
  EXPECT_EQ(first, block);
  EXPECT_NE(second, block);
  free(first);
  free(second);
}

TEST(ThreadCache, AThreadKeepsAtMostItsBoundOfBytes) {
  OnAThread([] {
    free(Block(16));
    // Reserved first: a block of its size is not cached.
    std::vector<void*> blocks;
    blocks.reserve(64 * 40);
    const Counts before = Read();
    // 64 classes of up to 32 blocks would be far above the thread's bound.
    for (size_t size = 16; size <= 1024; size += 16) {
      for (int i = 0; i < 40; ++i) {
        blocks.push_back(Block(size));
      }
    }
    for (void* block : blocks) {
      free(block);
    }
    const Counts after = Read();
    EXPECT_GT(after.cachedBytes, before.cachedBytes);
    EXPECT_LE(after.cachedBytes - before.cachedBytes, kThreadBytes);
  });
}

// Starting the thread takes a block from this thread's cache that the
// thread frees: the program's blocks, not the cached ones, stay the same.
TEST(ThreadCache, AThreadsBlocksGoBackToThePoolWhenItEnds) {
  SettleThreads();
  const Counts before = Read();
  uint32_t cachedOnTheThread = 0;
  OnAThread([&] {
    AllocateAndFree(48, 100);
    AllocateAndFree(160, 10);
    cachedOnTheThread = Read().cached;
  });
  EXPECT_GT(cachedOnTheThread, before.cached + 10);
  const Counts after = Read();
  EXPECT_LE(after.cached, before.cached);
  EXPECT_LE(after.cachedBytes, before.cachedBytes);
  EXPECT_EQ(after.used - after.cached, before.used - before.cached);
}

pthread_key_t lateKey;

// Runs after the caches' own key destructor (keys run in the order they
// were made): the thread's cache is gone, its blocks go to the pool.
void LateDestructor(void* value) {
  free(value);
  free(Block(64));
}

TEST(ThreadCache, DestructorsAfterTheCachesEndUseThePool) {
  SettleThreads();
  ASSERT_EQ(pthread_key_create(&lateKey, &LateDestructor), 0);
  const Counts before = Read();
  OnAThread([] {
    AllocateAndFree(64, 40);
    ASSERT_EQ(pthread_setspecific(lateKey, Block(64)), 0);
  });
  const Counts after = Read();
  EXPECT_LE(after.cached, before.cached);
  EXPECT_EQ(after.used - after.cached, before.used - before.cached);
  pthread_key_delete(lateKey);
}

// For the pool a cached block stays in use; for the program it is free.
TEST(ThreadCache, TheStatisticsCountTheBlocksACacheHolds) {
  OnAThread([] {
    std::vector<void*> blocks;
    for (int i = 0; i < 10; ++i) {
      blocks.push_back(Block(96));
    }
    const Counts held = Read();
    for (int i = 0; i < 5; ++i) {
      free(blocks[i]);
    }
    const Counts freed = Read();
    EXPECT_EQ(freed.used, held.used);
    EXPECT_EQ(freed.cached, held.cached + 5);
    EXPECT_EQ(freed.cachedBytes, held.cachedBytes + 5 * 96);
    char* text = nullptr;
    size_t length = 0;
    FILE* stream = open_memstream(&text, &length);
    ASSERT_NE(stream, nullptr);
    QDHeapWriteStats(stream);
    fclose(stream);
    EXPECT_NE(strstr(text, "\nthread caches:    "), nullptr) << text;
    free(text);
    for (int i = 5; i < 10; ++i) {
      free(blocks[i]);
    }
  });
}

// A block another thread frees goes to that thread's cache: its next
// request of the class gets it, the allocating thread's does not (the pool
// alone would hand it to whichever asks first).
TEST(ThreadCache, ABlockFreedByAnotherThreadServesThatThread) {
  void* block = Block(64);
  ASSERT_TRUE(QDHeapOwns(block));
  std::atomic<int> stage(0);
  void* again = nullptr;
  std::thread other([&] {
    free(Block(16));
    free(block);
    stage.store(1);
    while (stage.load() != 2) {
      sched_yield();
    }
    again = Block(64);
    free(again);
  });
  while (stage.load() != 1) {
    sched_yield();
  }
  void* mine = Block(64);
  stage.store(2);
  other.join();
  EXPECT_NE(mine, block);
  EXPECT_EQ(again, block);
  EXPECT_TRUE(QDHeapOwns(mine));
  free(mine);
}

// QDHeapFree takes malloc's blocks and free takes QDHeapAlloc's, cached or
// not, from any thread: one heap.
TEST(ThreadCache, BothInterfacesShareTheCachedHeap) {
  SettleThreads();
  // Reserved first: the vectors are the program's blocks too.
  std::vector<void*> fromMalloc;
  std::vector<void*> fromHeap;
  fromMalloc.reserve(200);
  fromHeap.reserve(200);
  const Counts before = Read();
  for (int i = 0; i < 200; ++i) {
    fromMalloc.push_back(Block(static_cast<size_t>(8 + i % 120)));
    fromHeap.push_back(QDHeapAlloc(static_cast<size_t>(8 + i % 120)));
  }
  OnAThread([&] {
    for (int i = 0; i < 200; ++i) {
      QDHeapFree(fromMalloc[i]);
      free(fromHeap[i]);
    }
  });
  const Counts after = Read();
  EXPECT_EQ(after.used - after.cached, before.used - before.cached);
}

// The child of a fork made while another thread holds cached blocks has a
// working heap: those blocks are out of its reach, its own thread's cache
// works.
TEST(ThreadCache, AChildForkedBesideAThreadHoldingCachedBlocksAllocates) {
  std::atomic<int> stage(0);
  std::thread holder([&] {
    AllocateAndFree(32, 100);
    stage.store(1);
    while (stage.load() != 2) {
      sched_yield();
    }
  });
  while (stage.load() != 1) {
    sched_yield();
  }
  AllocateAndFree(32, 100);
  const Counts parent = Read();
  pid_t child = fork();
  if (child == 0) {
    bool ok = Read().cached == parent.cached;
    for (int round = 0; round < 20; ++round) {
      std::vector<void*> blocks;
      for (int i = 0; i < 200; ++i) {
        blocks.push_back(Block(static_cast<size_t>(16 + (i * 8) % 500)));
        ok = ok && QDHeapOwns(blocks.back());
      }
      for (void* block : blocks) {
        free(block);
      }
    }
    _exit(ok ? 0 : 1);
  }
  ASSERT_GT(child, 0);
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  stage.store(2);
  holder.join();
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
}

}  // namespace
