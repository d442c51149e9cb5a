// The sizing line of a pool that ran out of chunks: the CHUNKS it gives adds
// what the overflow heap held of pooled sizes at the peak, so that a pool of
// that many chunks carries the same run without running out; and where the
// pool could not follow every such block, the line gives a lower bound and a
// value to try that holds.
#include <gtest/gtest.h>

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "heap/overflow_tally.h"
#include "heap/pool_fixture.h"
#include "heap/pool_stats_reading.h"

namespace {

using namespace QuendalTest;
using Quendal::Heap::ChunksForPeak;
using Quendal::Heap::ChunksNeeded;
using Quendal::Heap::ChunksToTry;
using Quendal::Heap::OverflowTally;

std::string LastLineOf(const TestPool& pool) {
  std::string text = StatsTextOf(pool);
  size_t start = text.rfind('\n', text.size() - 2);
  return text.substr(start + 1, text.size() - start - 2);
}

// A run that grows, then shrinks: allocations, releases and moves of sizes
// from 1 to 1100 bytes, the same whatever the pool serves. Releases
// everything it still holds at the end.
void MixedRun(TestPool& pool) {
  std::vector<void*> live;
  uint32_t state = 12345;
  for (int step = 0; step < 6000; ++step) {
    state = state * 1103515245u + 12345u;
    uint32_t draw = state >> 8;
    uint32_t allocShare = step < 3000 ? 7 : 3;
    if (live.empty() || draw % 10 < allocShare) {
      live.push_back(pool.Alloc(1 + (draw >> 4) % 1100));
    } else if (draw % 10 == 9) {
      size_t k = (draw >> 4) % live.size();
      live[k] = pool.ReAlloc(live[k], 1 + (draw >> 12) % 700);
    } else {
      size_t k = (draw >> 4) % live.size();
      pool.Free(live[k]);
      live[k] = live.back();
      live.pop_back();
    }
  }
  for (void* block : live) {
    pool.Free(block);
  }
}

class PoolSizingLineTest : public PoolTest {
 protected:
  void TearDown() override {
    free(rerun.ClassTable());
    PoolTest::TearDown();
  }

  // The second pool, of chunks chunks on an aligned segment.
  void BuildRerun(uint32_t chunks, uint32_t chunkSize = kChunk, uint32_t largest = 1024) {
    rerun.Configure(chunks, chunkSize, largest);
    ScriptedSegmentHeap::QueueOffset(size_t(1) << 20, 0);
    rerun.Initialize();
  }

  // count blocks of size bytes from p.
  static std::vector<void*> Take(TestPool& p, size_t count, size_t size) {
    std::vector<void*> blocks;
    for (size_t k = 0; k < count; ++k) {
      blocks.push_back(p.Alloc(size));
    }
    return blocks;
  }
  static void Release(TestPool& p, const std::vector<void*>& blocks) {
    for (void* block : blocks) {
      p.Free(block);
    }
  }

  TestPool rerun;
};

TEST_F(PoolSizingLineTest, AnExhaustedRunGetsTheChunksThatHoldItsPeak) {
  Build(40);
  MixedRun(pool);
  QDHeapStats stats = StatsOf(pool);
  ASSERT_GT(stats.exhaustedRequests, 0u);
  EXPECT_EQ(stats.unfollowedBlocks, 0u);
  EXPECT_EQ(stats.extraHeapBlocks, 0u);
  uint32_t chunks = ChunksNeeded(stats);
  // The pool's own peak is every chunk it has: too few for this run.
  EXPECT_EQ(ChunksForPeak(stats), 40u);
  EXPECT_GT(chunks, 40u);
  EXPECT_EQ(ChunksToTry(stats), chunks);
  EXPECT_EQ(LastLineOf(pool), "CHUNKS " + std::to_string(chunks) +
                                  " would have held the peak of this run, by estimate: the pool "
                                  "ran out of chunks");

  BuildRerun(chunks);
  MixedRun(rerun);
  QDHeapStats again = StatsOf(rerun);
  EXPECT_EQ(again.exhaustedRequests, 0u);
  EXPECT_LE(ChunksForPeak(again), chunks);
  EXPECT_EQ(LastLineOf(rerun), "CHUNKS " + std::to_string(ChunksForPeak(again)) +
                                   " would have held the peak of this run");
}

// The chunks an overflow of count chunks' worth is estimated to take.
uint32_t Spread(uint32_t chunks) {
  return chunks + chunks / 8;
}

// Each class's blocks in the overflow heap fill chunks of their own: 300
// blocks of 8 bytes fill two chunks, two of 1024 bytes two chunks.
TEST_F(PoolSizingLineTest, TheEstimateCountsTheChunksEachClassWouldHaveFilled) {
  ASSERT_LT(kEightByteBlocks, 300u);
  Build(3);
  std::vector<void*> pooled = Take(pool, 3, 1024);
  std::vector<void*> eights = Take(pool, 300, 8);
  std::vector<void*> largest = Take(pool, 2, 1024);
  QDHeapStats stats = StatsOf(pool);
  EXPECT_EQ(stats.exhaustedRequests, 302u);
  EXPECT_EQ(stats.extraHeapBlocks, 302u);
  EXPECT_EQ(stats.peakChunksNeeded, 3u + 2u + 2u);
  EXPECT_EQ(ChunksNeeded(stats), 7u);

  // Released blocks leave the count; the peak stays.
  Release(pool, eights);
  stats = StatsOf(pool);
  EXPECT_EQ(stats.extraHeapBlocks, 2u);
  EXPECT_EQ(stats.peakChunksNeeded, 7u);
  // Fewer at once than before: no new peak.
  std::vector<void*> again = Take(pool, kEightByteBlocks, 8);
  EXPECT_EQ(StatsOf(pool).peakChunksNeeded, 7u);
  again.push_back(pool.Alloc(8));
  EXPECT_EQ(StatsOf(pool).peakChunksNeeded, 7u);
  Release(pool, again);
  Release(pool, largest);
  Release(pool, pooled);
  EXPECT_EQ(StatsOf(pool).extraHeapBlocks, 0u);

  BuildRerun(7);
  pooled = Take(rerun, 3, 1024);
  eights = Take(rerun, 300, 8);
  largest = Take(rerun, 2, 1024);
  EXPECT_EQ(StatsOf(rerun).exhaustedRequests, 0u);
  EXPECT_EQ(StatsOf(rerun).freeChunks, 0u);
  Release(rerun, eights);
  Release(rerun, largest);
  Release(rerun, pooled);
}

// Aligning the segment cost a chunk: the line adds it, as for a run that did
// not run out.
TEST_F(PoolSizingLineTest, AMisalignedSegmentAddsItsLostChunk) {
  Build(4, 16);
  std::vector<void*> pooled = Take(pool, 3, 1024);
  void* overflow = pool.Alloc(1024);
  ASSERT_FALSE(pool.Owns(overflow));
  QDHeapStats stats = StatsOf(pool);
  EXPECT_EQ(stats.lostChunks, 1u);
  EXPECT_EQ(stats.peakChunksNeeded, 4u);
  EXPECT_EQ(
      LastLineOf(pool),
      "CHUNKS 5 would have held the peak of this run, by estimate: the pool ran out of chunks");
  pool.Free(overflow);
  Release(pool, pooled);
}

// A block that moves inside the overflow heap is counted at its new size
// while that is pooled; one that grows past the pooled sizes is not.
TEST_F(PoolSizingLineTest, AnOverflowBlockIsFollowedThroughItsReallocations) {
  Build(1);
  void* pooled = pool.Alloc(1024);
  std::vector<void*> eights = Take(pool, kEightByteBlocks, 8);
  EXPECT_EQ(StatsOf(pool).peakChunksNeeded, 2u);
  // Into the 16-byte class: a chunk of its own.
  eights[0] = pool.ReAlloc(eights[0], 16);
  QDHeapStats stats = StatsOf(pool);
  EXPECT_EQ(stats.extraHeapBlocks, kEightByteBlocks);
  EXPECT_EQ(stats.peakChunksNeeded, 3u);
  eights[1] = pool.ReAlloc(eights[1], 5000);
  EXPECT_EQ(StatsOf(pool).extraHeapBlocks, kEightByteBlocks - 1);
  EXPECT_EQ(pool.ReAlloc(eights[2], 0), nullptr);
  EXPECT_EQ(StatsOf(pool).extraHeapBlocks, kEightByteBlocks - 2);
  eights.erase(eights.begin() + 2);
  // A request the overflow heap refuses leaves nothing to count.
  RecordingOverflowHeap::refuseAlloc = true;
  void* refused = pool.Alloc(8);
  RecordingOverflowHeap::refuseAlloc = false;
  EXPECT_EQ(refused, nullptr);
  EXPECT_EQ(StatsOf(pool).extraHeapBlocks, kEightByteBlocks - 2);
  Release(pool, eights);
  pool.Free(pooled);
  EXPECT_EQ(StatsOf(pool).extraHeapBlocks, 0u);
  EXPECT_EQ(StatsOf(pool).peakChunksNeeded, 3u);
}

// The drop-in releases and moves blocks of the C library itself and tells
// the pool.
TEST_F(PoolSizingLineTest, TheDropInStopsAndResumesFollowingABlock) {
  typedef Quendal::Heap::PoolForCCallers<TestPool> ForC;
  Build(1);
  void* pooled = pool.Alloc(1024);
  void* overflow = pool.Alloc(20);
  ASSERT_FALSE(pool.Owns(overflow));
  EXPECT_EQ(ForC::StopFollowing(pool, pooled), 0u);
  size_t token = ForC::StopFollowing(pool, overflow);
  EXPECT_NE(token, 0u);
  EXPECT_EQ(StatsOf(pool).extraHeapBlocks, 0u);
  EXPECT_EQ(ForC::StopFollowing(pool, overflow), 0u);
  // The C library could not move it: counted again where it stayed.
  ForC::FollowMoved(pool, overflow, nullptr, 2000, token);
  EXPECT_EQ(StatsOf(pool).extraHeapBlocks, 1u);
  // Moved past the pooled sizes: no longer counted.
  token = ForC::StopFollowing(pool, overflow);
  ForC::FollowMoved(pool, overflow, overflow, 2000, token);
  EXPECT_EQ(StatsOf(pool).extraHeapBlocks, 0u);
  // A block the pool did not follow stays unfollowed; one it did follows.
  ForC::FollowMoved(pool, overflow, overflow, 24, 0);
  EXPECT_EQ(StatsOf(pool).extraHeapBlocks, 0u);
  ForC::FollowMoved(pool, overflow, overflow, 24, token);
  EXPECT_EQ(StatsOf(pool).extraHeapBlocks, 1u);
  pool.Free(overflow);
  pool.Free(pooled);
  EXPECT_EQ(StatsOf(pool).extraHeapBlocks, 0u);
}

// Past the blocks the pool follows at once, the rest count as never
// released: the line gives the followed peak as a lower bound and the
// upper one to try, which holds the run.
TEST_F(PoolSizingLineTest, BlocksBeyondWhatThePoolFollowsGiveALowerBound) {
  const uint32_t most = OverflowTally::kMostFollowed;
  const size_t count = most + 300;
  Build(1);
  void* pooled = pool.Alloc(1024);
  std::vector<void*> eights = Take(pool, count, 8);
  QDHeapStats stats = StatsOf(pool);
  EXPECT_EQ(stats.extraHeapBlocks, most);
  EXPECT_EQ(stats.unfollowedBlocks, 300u);
  uint32_t followedChunks = Spread((most + kEightByteBlocks - 1) / kEightByteBlocks);
  uint32_t allChunks =
      Spread(static_cast<uint32_t>((count + kEightByteBlocks - 1) / kEightByteBlocks));
  ASSERT_GT(allChunks, followedChunks);
  EXPECT_EQ(ChunksNeeded(stats), 1 + followedChunks);
  EXPECT_EQ(ChunksToTry(stats), 1 + allChunks);
  EXPECT_EQ(LastLineOf(pool), "CHUNKS " + std::to_string(1 + allChunks) +
                                  " to try: the pool ran out of chunks and this run needed at "
                                  "least " +
                                  std::to_string(1 + followedChunks));
  Release(pool, eights);
  pool.Free(pooled);
  EXPECT_EQ(StatsOf(pool).extraHeapBlocks, 0u);

  BuildRerun(1 + allChunks);
  pooled = rerun.Alloc(1024);
  eights = Take(rerun, count, 8);
  EXPECT_EQ(StatsOf(rerun).exhaustedRequests, 0u);
  Release(rerun, eights);
  rerun.Free(pooled);
}

// Classes past the 128 the statistics count have no count of their own: each
// such block counts as a chunk of its own in the value to try.
TEST_F(PoolSizingLineTest, ABlockOfAnUncountedClassGivesALowerBound) {
  const uint32_t chunkSize = 8192;
  const size_t perChunk = (chunkSize - kChunkHeaderSize) / 1504;
  Build(2, 0, chunkSize, 2048);
  std::vector<void*> blocks = Take(pool, 2 * perChunk + 1, 1500);
  ASSERT_FALSE(pool.Owns(blocks.back()));
  QDHeapStats stats = StatsOf(pool);
  EXPECT_EQ(stats.unfollowedBlocks, 1u);
  EXPECT_EQ(stats.extraHeapBlocks, 0u);
  EXPECT_EQ(LastLineOf(pool),
            "CHUNKS 3 to try: the pool ran out of chunks and this run needed at least 2");
  Release(pool, blocks);

  BuildRerun(3, chunkSize, 2048);
  blocks = Take(rerun, 2 * perChunk + 1, 1500);
  EXPECT_EQ(StatsOf(rerun).exhaustedRequests, 0u);
  Release(rerun, blocks);
}

}  // namespace
