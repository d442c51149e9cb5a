// Pool cases that the main pool tests leave open: a whole chunk emptied in
// scattered order, the exact copy length of a growing reallocation, and a
// release that follows a reallocation to zero while the chunk is still
// assigned.
#include <gtest/gtest.h>

#include <string.h>

#include <vector>

#include "heap/pool_fixture.h"

namespace {

using namespace QuendalTest;

TEST_F(PoolTest, ReleasingEveryBlockOfAFullChunkPutsItFirstForAnyClass) {
  Build(4);
  std::vector<void*> firstChunk;
  for (size_t k = 0; k < kEightByteBlocks; ++k) {
    firstChunk.push_back(pool.Alloc(8));
    ASSERT_EQ(pool.ChunkOf(firstChunk.back()), ChunkNumber(0)) << k;
  }
  void* inSecondChunk = pool.Alloc(8);
  ASSERT_EQ(pool.ChunkOf(inSecondChunk), ChunkNumber(1));

  // Odd positions first, then even ones: the order of release does not
  // matter, only that the last block of the chunk comes back.
  for (size_t k = 1; k < firstChunk.size(); k += 2) {
    pool.Free(firstChunk[k]);
    ASSERT_EQ(pool.ClassChunk(0), ChunkNumber(0));
  }
  for (size_t k = 0; k < firstChunk.size(); k += 2) {
    pool.Free(firstChunk[k]);
  }

  EXPECT_EQ(pool.FreeChunks(), ChunkNumber(0));
  EXPECT_EQ(ChunkNumber(0)->blockSize, 0u);
  EXPECT_EQ(pool.ClassChunk(0), ChunkNumber(1));
  EXPECT_EQ(ChunkNumber(1)->prevChunk, nullptr);
  EXPECT_EQ(FreeList().size(), 3u);
  EXPECT_EQ(pool.FreeChunkCount(), 3u);
  EXPECT_TRUE(PoolIsConsistent(pool));

  void* otherClass = pool.Alloc(512);
  EXPECT_EQ(pool.ChunkOf(otherClass), ChunkNumber(0));
  EXPECT_EQ(ChunkNumber(0)->blockSize, 512u);
  EXPECT_EQ(pool.ChunkOf(pool.Alloc(8)), ChunkNumber(1));
}

// The new 24-byte block is one whose last 8 bytes hold a marker, and the
// old 16-byte block is followed by a neighbour with other bytes: copying
// more than 16 bytes would bring the neighbour's bytes over the marker.
TEST_F(PoolTest, GrowingA16ByteBlockTo24CopiesNoMoreThanSixteenBytes) {
  Build(4);
  void* target = pool.Alloc(24);
  void* keepsTheChunkAssigned = pool.Alloc(24);
  memset(target, 0xEE, 24);
  unsigned char* old = static_cast<unsigned char*>(pool.Alloc(16));
  unsigned char* neighbour = static_cast<unsigned char*>(pool.Alloc(16));
  ASSERT_EQ(neighbour - old, 16);
  for (int k = 0; k < 16; ++k) {
    old[k] = static_cast<unsigned char>(k + 1);
  }
  memset(neighbour, 0x77, 16);
  pool.Free(target);

  unsigned char* grown = static_cast<unsigned char*>(pool.ReAlloc(old, 24));
  ASSERT_EQ(grown, target);
  EXPECT_EQ(pool.ChunkOf(grown)->blockSize, 24u);
  for (int k = 0; k < 16; ++k) {
    EXPECT_EQ(grown[k], k + 1) << k;
  }
  for (int k = 16; k < 24; ++k) {
    EXPECT_EQ(grown[k], 0xEE) << k;
  }
  (void)keepsTheChunkAssigned;
  EXPECT_TRUE(PoolIsConsistent(pool));
}

// Reallocation to zero releases the block; while another block of its chunk
// is out the chunk stays assigned, so a second release is taken as it stands
// and brings the count to zero early: the chunk leaves its class.
TEST_F(PoolTest, ReleaseAfterReAllocToZeroIsNotIgnoredWhileTheChunkIsAssigned) {
  Build(4);
  void* released = pool.Alloc(8);
  void* stillOut = pool.Alloc(8);
  EXPECT_EQ(pool.ReAlloc(released, 0), nullptr);
  EXPECT_EQ(ChunkNumber(0)->usedBlocks, 1u);
  EXPECT_EQ(pool.ClassChunk(0), ChunkNumber(0));

  pool.Free(released);
  EXPECT_EQ(ChunkNumber(0)->usedBlocks, 0u);
  EXPECT_EQ(pool.FreeChunks(), ChunkNumber(0));
  EXPECT_EQ(pool.ClassChunk(0), nullptr);
  EXPECT_TRUE(RecordingOverflowHeap::calls.empty());
  (void)stillOut;
}

}  // namespace
