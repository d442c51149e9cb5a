// The exported heap entries and the heap's lifecycle in a real process: lazy
// initialisation by whichever entry comes first, the early returns that take
// no lock, reallocation results, de-initialisation and re-initialisation.
#include <gtest/gtest.h>

#include <pthread.h>
#include <string.h>
#include <time.h>

#include <atomic>

#include "heap/the_heap.h"
#include "heap/the_pool.h"
#include "quendal/extra_heap.h"
#include "quendal/heap.h"
#include "support/allocated_bytes.h"

namespace {

using Quendal::Heap::InitNeeded;
using Quendal::Heap::Pool;
using Quendal::Heap::TheHeap;

using QuendalTest::ThePool;

void ExpectInitialised() {
  EXPECT_EQ(InitNeeded(), 0);
  EXPECT_NE(ExtraHeap::GetInstance(), nullptr);
  EXPECT_EQ(TheHeap::IsInitialized(), 1);
  EXPECT_NE(ThePool().Segment(), nullptr);
  EXPECT_EQ(ThePool().ChunkSize(), 2048u);
  EXPECT_EQ(ThePool().MaxBlockSize(), 1024u);
}

TEST(HeapLifecycleTest, NothingIsInitialisedBeforeTheFirstCall) {
  EXPECT_EQ(InitNeeded(), 1);
  EXPECT_EQ(ExtraHeap::GetInstance(), nullptr);
  EXPECT_EQ(TheHeap::IsInitialized(), 0);
}

TEST(HeapLifecycleTest, FirstAllocInitialisesTheHeap) {
  void* block = QDHeapAlloc(40);
  ExpectInitialised();
  EXPECT_TRUE(ThePool().Owns(block));
  QDHeapFree(block);
}

TEST(HeapLifecycleTest, FirstAllocOfZeroBytesInitialisesAndReturnsNull) {
  EXPECT_EQ(QDHeapAlloc(0), nullptr);
  ExpectInitialised();
}

TEST(HeapLifecycleTest, FirstFreeOfNullInitialises) {
  QDHeapFree(nullptr);
  ExpectInitialised();
}

TEST(HeapLifecycleTest, FirstReAllocInitialises) {
  void* block = QDHeapReAlloc(nullptr, 16);
  ExpectInitialised();
  QDHeapFree(block);
}

TEST(HeapLifecycleTest, FirstExtraHeapAllocInitialises) {
  EXPECT_EQ(QDExtraHeapAlloc(0), nullptr);
  ExpectInitialised();
}

TEST(HeapLifecycleTest, FirstExtraHeapReAllocInitialises) {
  void* block = QDExtraHeapReAlloc(nullptr, 16);
  ExpectInitialised();
  QDExtraHeapFree(block);
}

TEST(HeapLifecycleTest, FirstExtraHeapFreeOfNullInitialises) {
  QDExtraHeapFree(nullptr);
  ExpectInitialised();
}

TEST(HeapLifecycleTest, DefaultPoolHas650ChunksAnd128Classes) {
  QDHeapInit();
  EXPECT_EQ(ThePool().ChunkCount(), 650u);
  EXPECT_EQ(ThePool().ClassCount(), 128u);
  uintptr_t segment = reinterpret_cast<uintptr_t>(ThePool().Segment());
  // 1,331,200 bytes asked for; one chunk given up when misaligned.
  uint32_t expected = segment % 2048 == 0 ? 650u * 2048 : 649u * 2048;
  EXPECT_EQ(ThePool().SegmentBytes(), expected);
  EXPECT_EQ(ThePool().FreeChunkCount(), 650u);
}

TEST(HeapLifecycleTest, InitTwiceReturnsOneAndKeepsThePool) {
  EXPECT_EQ(QDHeapInit(), 1);
  void* segment = ThePool().Segment();
  EXPECT_EQ(QDHeapInit(), 1);
  EXPECT_EQ(ThePool().Segment(), segment);
  EXPECT_EQ(ThePool().ChunkCount(), 650u);
  EXPECT_EQ(ThePool().ClassCount(), 128u);
}

TEST(HeapLifecycleTest, DeInitReleasesOnlyTheExtraHeap) {
  void* pooled = QDHeapAlloc(24);
  void* large = QDHeapAlloc(4000);
  EXPECT_EQ(QDHeapDeInit(), 1);
  EXPECT_EQ(ExtraHeap::GetInstance(), nullptr);
  EXPECT_EQ(InitNeeded(), 0);
  // The pool and the blocks handed out stay usable.
  memset(pooled, 1, 24);
  memset(large, 2, 4000);
  void* another = QDHeapAlloc(24);
  EXPECT_TRUE(ThePool().Owns(another));
  void* larger = QDHeapAlloc(5000);
  EXPECT_FALSE(ThePool().Owns(larger));
  QDHeapFree(larger);
  QDHeapFree(another);
  QDHeapFree(large);
  QDHeapFree(pooled);
}

TEST(HeapLifecycleTest, AfterUnloadTheNextAllocInitialisesAgainAndKeepsTheSegment) {
  void* before = QDHeapAlloc(8);
  void* segment = ThePool().Segment();
  my_unload();
  EXPECT_EQ(InitNeeded(), 1);
  EXPECT_EQ(ExtraHeap::GetInstance(), nullptr);
  void* after = QDHeapAlloc(8);
  EXPECT_EQ(InitNeeded(), 0);
  EXPECT_NE(ExtraHeap::GetInstance(), nullptr);
  EXPECT_EQ(ThePool().Segment(), segment);
  EXPECT_TRUE(ThePool().Owns(after));
  EXPECT_EQ(static_cast<char*>(after) - static_cast<char*>(before), 8);
  QDHeapFree(after);
  QDHeapFree(before);
}

TEST(HeapLifecycleTest, TotalSizeIsZeroBeforeAndAfterAllocations) {
  EXPECT_EQ(QDHeapTotalSize(), 0u);
  void* block = QDHeapAlloc(100);
  EXPECT_EQ(QDHeapTotalSize(), 0u);
  QDHeapFree(block);
  EXPECT_EQ(QDHeapTotalSize(), 0u);
}

// Runs call on a thread while another thread holds the heap lock; true when
// call returned without waiting for the lock.
bool ReturnsWhileTheLockIsHeld(void (*call)()) {
  QDHeapInit();
  Quendal::Heap::Mutex& mutex = TheHeap::getInstance(false)->GetMutex();
  std::atomic<bool> locked(false);
  std::atomic<bool> release(false);
  struct Holder {
    Quendal::Heap::Mutex* mutex;
    std::atomic<bool>* locked;
    std::atomic<bool>* release;
  } holder = {&mutex, &locked, &release};
  pthread_t holderThread;
  pthread_create(
      &holderThread, nullptr,
      [](void* argument) -> void* {
        Holder* self = static_cast<Holder*>(argument);
        Quendal::Heap::Mutex::Token token = self->mutex->Enter();
        self->locked->store(true);
        while (!self->release->load()) {
        }
        self->mutex->Leave(token);
        return nullptr;
      },
      &holder);
  while (!locked.load()) {
  }
  pthread_t callThread;
  pthread_create(
      &callThread, nullptr,
      [](void* argument) -> void* {
        reinterpret_cast<void (*)()>(argument)();
        return nullptr;
      },
      reinterpret_cast<void*>(call));
  // A call that waits for the lock never finishes while it is held.
  timespec deadline;
  clock_gettime(CLOCK_REALTIME, &deadline);
  deadline.tv_sec += 20;
  bool returned = pthread_timedjoin_np(callThread, nullptr, &deadline) == 0;
  release.store(true);
  pthread_join(holderThread, nullptr);
  if (!returned) {
    pthread_join(callThread, nullptr);
  }
  return returned;
}

TEST(HeapEntriesTest, AllocOfZeroBytesReturnsNullWithoutTakingTheLock) {
  EXPECT_TRUE(ReturnsWhileTheLockIsHeld([] { EXPECT_EQ(QDHeapAlloc(0), nullptr); }));
}

TEST(HeapEntriesTest, FreeOfNullReturnsWithoutTakingTheLock) {
  EXPECT_TRUE(ReturnsWhileTheLockIsHeld([] { QDHeapFree(nullptr); }));
}

TEST(HeapEntriesTest, ExtraHeapEntriesDoNotTakeTheHeapLock) {
  EXPECT_TRUE(ReturnsWhileTheLockIsHeld([] {
    void* block = QDExtraHeapAlloc(64);
    block = QDExtraHeapReAlloc(block, 128);
    QDExtraHeapFree(block);
  }));
}

TEST(HeapEntriesTest, ReAllocToZeroReturnsNullForEveryPointer) {
  {
    // The C library may hand out a block for realloc(null, 0); the entry
    // drops it by design.
    QuendalTest::LeaksIgnored dropped;
    EXPECT_EQ(QDHeapReAlloc(nullptr, 0), nullptr);
  }
  void* pooled = QDHeapAlloc(8);
  ASSERT_TRUE(ThePool().Owns(pooled));
  EXPECT_EQ(QDHeapReAlloc(pooled, 0), nullptr);
  // The pooled block was released: it is the next one handed out.
  EXPECT_EQ(QDHeapAlloc(8), pooled);
  void* large = QDHeapAlloc(3000);
  EXPECT_EQ(QDHeapReAlloc(large, 0), nullptr);
  QDHeapFree(pooled);
}

TEST(HeapEntriesTest, ReAllocOfNullIsServedByTheExtraHeap) {
  void* block = QDHeapReAlloc(nullptr, 16);
  ASSERT_NE(block, nullptr);
  EXPECT_FALSE(ThePool().Owns(block));
  memset(block, 3, 16);
  QDHeapFree(block);
}

TEST(HeapEntriesTest, PooledBlockAlwaysMovesOnReAlloc) {
  unsigned char* block = static_cast<unsigned char*>(QDHeapAlloc(8));
  for (int k = 0; k < 8; ++k) {
    block[k] = static_cast<unsigned char>(k + 1);
  }
  unsigned char* moved = static_cast<unsigned char*>(QDHeapReAlloc(block, 8));
  EXPECT_NE(moved, block);
  for (int k = 0; k < 8; ++k) {
    EXPECT_EQ(moved[k], k + 1);
  }
  QDHeapFree(moved);
}

TEST(HeapEntriesTest, SizesAboveTheLargestPooledGoToTheExtraHeap) {
  void* pooled = QDHeapAlloc(1024);
  void* large = QDHeapAlloc(1025);
  EXPECT_TRUE(ThePool().Owns(pooled));
  EXPECT_FALSE(ThePool().Owns(large));
  QDHeapFree(large);
  QDHeapFree(pooled);
}

TEST(HeapEntriesTest, ExhaustedPoolServesFromTheExtraHeap) {
  QDHeapInit();
  size_t chunks = ThePool().SegmentBytes() / ThePool().ChunkSize();
  std::vector<void*> blocks;
  for (size_t k = 0; k < chunks; ++k) {
    blocks.push_back(QDHeapAlloc(1024));
    ASSERT_TRUE(ThePool().Owns(blocks.back()));
  }
  void* overflow = QDHeapAlloc(8);
  EXPECT_FALSE(ThePool().Owns(overflow));
  QDHeapFree(overflow);
  for (void* block : blocks) {
    QDHeapFree(block);
  }
  EXPECT_EQ(ThePool().FreeChunkCount(), 650u);
}

}  // namespace
