// Reallocation in the pool: every pooled block moves, foreign blocks stay
// with the overflow heap, and the old block goes even when the new one fails.
#include <gtest/gtest.h>

#include <string.h>

#include "heap/pool_fixture.h"

namespace {

using namespace QuendalTest;

TEST_F(PoolTest, ReAllocInTheSameClassMovesAndCopies) {
  Build(4);
  void* old = pool.Alloc(8);
  Fill(old, 8, 1);
  unsigned char expected[8];
  memcpy(expected, old, 8);
  void* moved = pool.ReAlloc(old, 8);
  ASSERT_NE(moved, nullptr);
  EXPECT_NE(moved, old);
  EXPECT_EQ(memcmp(moved, expected, 8), 0);
  // The old block is free again, and first in line.
  EXPECT_EQ(pool.Alloc(8), old);
  EXPECT_TRUE(PoolIsConsistent(pool));
}

TEST_F(PoolTest, GrowingA16ByteBlockTo24CopiesItsSixteenBytes) {
  Build(4);
  void* old = pool.Alloc(16);
  Fill(old, 16, 10);
  unsigned char expected[16];
  memcpy(expected, old, 16);
  void* grown = pool.ReAlloc(old, 24);
  EXPECT_EQ(pool.ChunkOf(grown)->blockSize, 24u);
  EXPECT_EQ(memcmp(grown, expected, 16), 0);
  EXPECT_TRUE(PoolIsConsistent(pool));
}

TEST_F(PoolTest, ShrinkingA24ByteBlockTo10CopiesTenBytesIntoA16ByteBlock) {
  Build(4);
  // A 16-byte block filled with a marker and released: the shrink reuses it.
  void* target = pool.Alloc(16);
  memset(target, 0xEE, 16);
  void* old = pool.Alloc(24);
  Fill(old, 24, 30);
  pool.Free(target);
  void* shrunk = pool.ReAlloc(old, 10);
  ASSERT_EQ(shrunk, target);
  EXPECT_EQ(pool.ChunkOf(shrunk)->blockSize, 16u);
  unsigned char expected[16];
  Fill(expected, 10, 30);
  memset(expected + 10, 0xEE, 6);
  EXPECT_EQ(memcmp(shrunk, expected, 16), 0);
}

TEST_F(PoolTest, GrowingPastTheLargestPooledSizeMovesTheWholeClassToOverflow) {
  Build(4);
  void* old = pool.Alloc(10);
  Fill(old, 16, 50);
  unsigned char expected[16];
  memcpy(expected, old, 16);
  void* grown = pool.ReAlloc(old, 2000);
  EXPECT_FALSE(pool.Owns(grown));
  ASSERT_EQ(RecordingOverflowHeap::calls.size(), 1u);
  EXPECT_EQ(RecordingOverflowHeap::calls[0].kind, OverflowCall::kAlloc);
  EXPECT_EQ(RecordingOverflowHeap::calls[0].size, 2000u);
  // Up to 7 bytes more than first asked: the old block's class size.
  EXPECT_EQ(memcmp(grown, expected, 16), 0);
  EXPECT_EQ(pool.FreeChunks(), ChunkNumber(0));
  free(grown);
}

TEST_F(PoolTest, ForeignBlockReallocatedToEightBytesStaysWithOverflow) {
  Build(4);
  void* foreign = pool.Alloc(2000);
  RecordingOverflowHeap::calls.clear();
  void* resized = pool.ReAlloc(foreign, 8);
  EXPECT_FALSE(pool.Owns(resized));
  ASSERT_EQ(RecordingOverflowHeap::calls.size(), 1u);
  EXPECT_EQ(RecordingOverflowHeap::calls[0].kind, OverflowCall::kReAlloc);
  EXPECT_EQ(RecordingOverflowHeap::calls[0].pointer, foreign);
  EXPECT_EQ(RecordingOverflowHeap::calls[0].size, 8u);
  pool.Free(resized);
}

TEST_F(PoolTest, ReAllocOfNullIsServedByOverflowAndReleasedThere) {
  Build(4);
  void* block = pool.ReAlloc(nullptr, 16);
  ASSERT_NE(block, nullptr);
  EXPECT_FALSE(pool.Owns(block));
  ASSERT_EQ(RecordingOverflowHeap::calls.size(), 1u);
  EXPECT_EQ(RecordingOverflowHeap::calls[0].kind, OverflowCall::kReAlloc);
  EXPECT_EQ(RecordingOverflowHeap::calls[0].pointer, nullptr);
  pool.Free(block);
  EXPECT_EQ(RecordingOverflowHeap::calls.back().kind, OverflowCall::kFree);
  EXPECT_EQ(RecordingOverflowHeap::calls.back().pointer, block);
}

TEST_F(PoolTest, ForeignBlockReallocatedToZeroGoesToOverflowReAlloc) {
  Build(4);
  void* foreign = malloc(40);
  pool.ReAlloc(foreign, 0);
  ASSERT_EQ(RecordingOverflowHeap::calls.size(), 1u);
  EXPECT_EQ(RecordingOverflowHeap::calls[0].kind, OverflowCall::kReAlloc);
  EXPECT_EQ(RecordingOverflowHeap::calls[0].size, 0u);
  free(RecordingOverflowHeap::calls[0].result);
}

TEST_F(PoolTest, ReAllocToZeroReleasesThePoolBlock) {
  Build(4);
  void* block = pool.Alloc(8);
  EXPECT_EQ(pool.ReAlloc(block, 0), nullptr);
  EXPECT_EQ(pool.FreeChunks(), ChunkNumber(0));
  EXPECT_TRUE(RecordingOverflowHeap::calls.empty());
  // Its chunk is free again, so a second release is absorbed.
  pool.Free(block);
  EXPECT_EQ(FreeList().size(), 4u);
  EXPECT_TRUE(PoolIsConsistent(pool));
}

TEST_F(PoolTest, RefusedNewBlockReleasesTheOldOneAndReturnsNull) {
  Build(1);
  void* old = pool.Alloc(1024);
  ASSERT_TRUE(pool.Owns(old));
  RecordingOverflowHeap::refuseAlloc = true;
  EXPECT_EQ(pool.ReAlloc(old, 1024), nullptr);
  EXPECT_EQ(RecordingOverflowHeap::Count(OverflowCall::kAlloc), 1u);
  EXPECT_EQ(pool.FreeChunks(), ChunkNumber(0));
  EXPECT_TRUE(PoolIsConsistent(pool));
}

TEST_F(PoolTest, ReAllocIntoAnExhaustedPoolMovesToOverflow) {
  Build(1);
  void* old = pool.Alloc(64);
  Fill(old, 64, 7);
  unsigned char expected[64];
  memcpy(expected, old, 64);
  // The only chunk belongs to the 64-byte class; 100 bytes need another.
  void* moved = pool.ReAlloc(old, 100);
  EXPECT_FALSE(pool.Owns(moved));
  EXPECT_EQ(memcmp(moved, expected, 64), 0);
  EXPECT_EQ(pool.FreeChunks(), ChunkNumber(0));
  free(moved);
}

}  // namespace
