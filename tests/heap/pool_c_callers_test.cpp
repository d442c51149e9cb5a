// The pool's operations for the drop-in allocator's C callers: Resize (in
// place within a class, the old block kept when no new one can be had) and
// AllocCleared (zeroed blocks; sizes the classes never serve go to the
// overflow heap's zeroing allocation). Run over the library's pool and over
// the plain algorithm alike.
#include <string.h>

#include "heap/pool_fixture.h"

namespace QuendalTest {
namespace {

TEST_F(PoolTest, ResizeWithinItsClassKeepsTheBlock) {
  Build(4);
  void* block = pool.Alloc(17);
  Fill(block, 17, 3);
  EXPECT_EQ(Resize(block, 24), block);
  EXPECT_EQ(Resize(block, 18), block);
  EXPECT_TRUE(RecordingOverflowHeap::calls.empty());
  EXPECT_TRUE(PoolIsConsistent(pool));
}

TEST_F(PoolTest, ResizeToAnotherClassMovesTheContentsAndReleasesTheOldBlock) {
  Build(4);
  void* old = pool.Alloc(24);
  Fill(old, 24, 5);
  unsigned char expected[24];
  memcpy(expected, old, 24);
  void* moved = Resize(old, 200);
  ASSERT_NE(moved, nullptr);
  EXPECT_NE(moved, old);
  EXPECT_EQ(memcmp(moved, expected, 24), 0);
  EXPECT_EQ(pool.Alloc(24), old);
  void* shrunk = Resize(moved, 8);
  EXPECT_EQ(memcmp(shrunk, expected, 8), 0);
  EXPECT_TRUE(PoolIsConsistent(pool));
}

TEST_F(PoolTest, ResizePastThePooledSizesMovesToTheOverflowHeap) {
  Build(4);
  void* old = pool.Alloc(64);
  Fill(old, 64, 7);
  void* moved = Resize(old, 5000);
  ASSERT_NE(moved, nullptr);
  EXPECT_EQ(RecordingOverflowHeap::Count(OverflowCall::kAlloc), 1u);
  EXPECT_EQ(static_cast<unsigned char*>(moved)[63], static_cast<unsigned char*>(old)[63]);
  EXPECT_EQ(pool.Alloc(64), old);
  RecordingOverflowHeap::Free(moved);
  EXPECT_TRUE(PoolIsConsistent(pool));
}

TEST_F(PoolTest, ResizeThatGetsNoNewBlockKeepsTheOldOne) {
  Build(4);
  void* old = pool.Alloc(40);
  Fill(old, 40, 9);
  unsigned char expected[40];
  memcpy(expected, old, 40);
  RecordingOverflowHeap::refuseAlloc = true;
  EXPECT_EQ(Resize(old, 5000), nullptr);
  RecordingOverflowHeap::refuseAlloc = false;
  EXPECT_EQ(memcmp(old, expected, 40), 0);
  // Still the caller's: the pool hands out another block for 40 bytes.
  void* other = pool.Alloc(40);
  EXPECT_NE(other, old);
  EXPECT_TRUE(PoolIsConsistent(pool));
}

TEST_F(PoolTest, AllocClearedZeroesARecycledBlock) {
  Build(4);
  void* dirty = pool.Alloc(48);
  Fill(dirty, 48, 0xFF);
  pool.Free(dirty);
  unsigned char* cleared = static_cast<unsigned char*>(AllocCleared(48));
  ASSERT_EQ(static_cast<void*>(cleared), dirty);
  for (size_t i = 0; i < 48; ++i) {
    EXPECT_EQ(cleared[i], 0) << i;
  }
  EXPECT_TRUE(RecordingOverflowHeap::calls.empty());
  EXPECT_TRUE(PoolIsConsistent(pool));
}

TEST_F(PoolTest, AllocClearedAboveThePooledSizesUsesTheOverflowHeapsZeroing) {
  Build(4);
  void* block = AllocCleared(5000);
  ASSERT_NE(block, nullptr);
  ASSERT_EQ(RecordingOverflowHeap::calls.size(), 1u);
  EXPECT_EQ(RecordingOverflowHeap::calls[0].kind, OverflowCall::kAllocCleared);
  EXPECT_EQ(RecordingOverflowHeap::calls[0].size, 5000u);
  RecordingOverflowHeap::Free(block);
}

TEST_F(PoolTest, AllocClearedOfAnExhaustedPoolClearsTheOverflowBlock) {
  Build(1);
  std::vector<void*> blocks;
  while (RecordingOverflowHeap::calls.empty()) {
    blocks.push_back(pool.Alloc(1024));
  }
  RecordingOverflowHeap::Free(blocks.back());
  blocks.pop_back();
  RecordingOverflowHeap::calls.clear();
  unsigned char* cleared = static_cast<unsigned char*>(AllocCleared(1000));
  ASSERT_NE(cleared, nullptr);
  EXPECT_EQ(RecordingOverflowHeap::Count(OverflowCall::kAlloc), 1u);
  for (size_t i = 0; i < 1000; ++i) {
    ASSERT_EQ(cleared[i], 0) << i;
  }
  RecordingOverflowHeap::Free(cleared);
}

}  // namespace
}  // namespace QuendalTest
