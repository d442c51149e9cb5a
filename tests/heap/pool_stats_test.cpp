// The pool's statistics snapshot and its text, over scripted backing heaps:
// what a class holds after known sequences, the low-water mark of free
// chunks, the requests routed to the overflow heap and the CHUNKS sizing
// line for aligned and misaligned segments.
#include <gtest/gtest.h>

#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <ostream>
#include <string>
#include <vector>

#include "heap/heap_stats_text.h"
#include "heap/pool_fixture.h"
#include "heap/pool_stats_reading.h"

namespace {

using namespace QuendalTest;
using Quendal::Heap::ChunksForPeak;

class PoolStatsTest : public PoolTest {
 protected:
  QDHeapStats Stats() { return StatsOf(pool); }

  std::string Text() { return StatsTextOf(pool); }

  static std::string LastLine(const std::string& text) {
    size_t end = text.size() - 1;
    size_t start = text.rfind('\n', end - 1);
    return text.substr(start + 1, end - start - 1);
  }

  // Takes count chunks with one 1024-byte block each.
  std::vector<void*> TakeChunks(size_t count) {
    std::vector<void*> blocks;
    for (size_t k = 0; k < count; ++k) {
      blocks.push_back(pool.Alloc(1024));
    }
    return blocks;
  }
};

TEST_F(PoolStatsTest, AFreshPoolHasEveryChunkFreeAndNoClassChunks) {
  Build(8);
  QDHeapStats stats = Stats();
  EXPECT_EQ(stats.size, sizeof(QDHeapStats));
  EXPECT_EQ(stats.chunkCount, 8u);
  EXPECT_EQ(stats.chunkSize, kChunk);
  EXPECT_EQ(stats.lostChunks, 0u);
  EXPECT_EQ(stats.freeChunks, 8u);
  EXPECT_EQ(stats.lowestFreeChunks, 8u);
  EXPECT_EQ(stats.exhaustedRequests, 0u);
  EXPECT_EQ(stats.largeRequests, 0u);
  ASSERT_EQ(stats.classCount, 128u);
  for (uint32_t index = 0; index < stats.classCount; ++index) {
    EXPECT_EQ(stats.classes[index].blockSize, (index + 1) * 8);
    EXPECT_EQ(stats.classes[index].chunks, 0u);
    EXPECT_EQ(stats.classes[index].usedBlocks, 0u);
    EXPECT_EQ(stats.classes[index].blockCapacity, 0u);
  }
}

TEST_F(PoolStatsTest, FillingAClassCountsItsChunksBlocksAndCapacity) {
  Build(8);
  std::vector<void*> blocks;
  for (size_t k = 0; k < kEightByteBlocks; ++k) {
    blocks.push_back(pool.Alloc(8));
  }
  QDHeapStats stats = Stats();
  EXPECT_EQ(stats.classes[0].chunks, 1u);
  EXPECT_EQ(stats.classes[0].usedBlocks, kEightByteBlocks);
  EXPECT_EQ(stats.classes[0].blockCapacity, kEightByteBlocks);
  EXPECT_EQ(stats.freeChunks, 7u);

  blocks.push_back(pool.Alloc(5));
  void* sixteen = pool.Alloc(16);
  stats = Stats();
  EXPECT_EQ(stats.classes[0].chunks, 2u);
  EXPECT_EQ(stats.classes[0].usedBlocks, kEightByteBlocks + 1);
  EXPECT_EQ(stats.classes[0].blockCapacity, 2 * kEightByteBlocks);
  EXPECT_EQ(stats.classes[1].chunks, 1u);
  EXPECT_EQ(stats.classes[1].usedBlocks, 1u);
  EXPECT_EQ(stats.classes[1].blockCapacity, (kChunk - kChunkHeaderSize) / 16);
  EXPECT_EQ(stats.freeChunks, 5u);
  EXPECT_EQ(stats.lowestFreeChunks, 5u);
  EXPECT_EQ(stats.exhaustedRequests, 0u);

  pool.Free(blocks[3]);
  EXPECT_EQ(Stats().classes[0].usedBlocks, kEightByteBlocks);
  pool.Free(sixteen);
  for (size_t k = 0; k < blocks.size(); ++k) {
    if (k != 3) {
      pool.Free(blocks[k]);
    }
  }
  EXPECT_TRUE(PoolIsConsistent(pool));
}

// The chunk emptied last may still sit on its class list with its return
// deferred: it is free, and its class holds no chunk.
TEST_F(PoolStatsTest, AnEmptiedChunkIsFreeAtOnce) {
  Build(4);
  void* block = pool.Alloc(8);
  pool.Free(block);
  QDHeapStats stats = Stats();
  EXPECT_EQ(stats.classes[0].chunks, 0u);
  EXPECT_EQ(stats.classes[0].usedBlocks, 0u);
  EXPECT_EQ(stats.classes[0].blockCapacity, 0u);
  EXPECT_EQ(stats.freeChunks, 4u);
  EXPECT_EQ(stats.lowestFreeChunks, 3u);

  // Taken back by its class: not a new low.
  block = pool.Alloc(8);
  stats = Stats();
  EXPECT_EQ(stats.classes[0].chunks, 1u);
  EXPECT_EQ(stats.freeChunks, 3u);
  EXPECT_EQ(stats.lowestFreeChunks, 3u);
  pool.Free(block);
}

TEST_F(PoolStatsTest, TheLowWaterMarkKeepsTheFewestFreeChunks) {
  Build(10);
  std::vector<void*> blocks = TakeChunks(4);
  for (void* block : blocks) {
    pool.Free(block);
  }
  QDHeapStats stats = Stats();
  EXPECT_EQ(stats.freeChunks, 10u);
  EXPECT_EQ(stats.lowestFreeChunks, 6u);

  blocks = TakeChunks(2);
  stats = Stats();
  EXPECT_EQ(stats.freeChunks, 8u);
  EXPECT_EQ(stats.lowestFreeChunks, 6u);
  blocks.push_back(pool.Alloc(1000));
  for (void* block : TakeChunks(3)) {
    blocks.push_back(block);
  }
  EXPECT_EQ(Stats().lowestFreeChunks, 4u);
  for (void* block : blocks) {
    pool.Free(block);
  }
  EXPECT_EQ(Stats().freeChunks, 10u);
  EXPECT_EQ(Stats().lowestFreeChunks, 4u);
}

TEST_F(PoolStatsTest, AnExhaustedPoolCountsRequestsOfPooledSizeWithNoChunkLeft) {
  Build(3);
  std::vector<void*> blocks = TakeChunks(3);
  void* eight = pool.Alloc(8);
  EXPECT_FALSE(pool.Owns(eight));
  void* largest = pool.Alloc(1024);
  EXPECT_FALSE(pool.Owns(largest));
  QDHeapStats stats = Stats();
  EXPECT_EQ(stats.freeChunks, 0u);
  EXPECT_EQ(stats.lowestFreeChunks, 0u);
  EXPECT_EQ(stats.exhaustedRequests, 2u);
  EXPECT_EQ(stats.largeRequests, 0u);
  EXPECT_EQ(stats.classes[127].chunks, 3u);
  EXPECT_EQ(stats.classes[127].usedBlocks, 3u);
  EXPECT_EQ(stats.classes[127].blockCapacity, 3u);

  // A pooled block moved by a reallocation that finds no chunk either.
  void* moved = pool.ReAlloc(blocks[0], 600);
  EXPECT_FALSE(pool.Owns(moved));
  EXPECT_EQ(Stats().exhaustedRequests, 3u);
  pool.Free(moved);
  pool.Free(blocks[1]);
  pool.Free(blocks[2]);
  pool.Free(eight);
  pool.Free(largest);
  EXPECT_EQ(Stats().freeChunks, 3u);
  EXPECT_EQ(Stats().lowestFreeChunks, 0u);
}

TEST_F(PoolStatsTest, RequestsAboveThePooledSizeCountAsLarge) {
  Build(4);
  void* large = pool.Alloc(1025);
  void* pooled = pool.Alloc(24);
  void* moved = pool.ReAlloc(pooled, 5000);
  // A block of the overflow heap stays there: not counted again.
  void* grown = pool.ReAlloc(moved, 6000);
  QDHeapStats stats = Stats();
  EXPECT_EQ(stats.largeRequests, 2u);
  EXPECT_EQ(stats.exhaustedRequests, 0u);
  EXPECT_EQ(stats.classes[2].chunks, 0u);
  EXPECT_EQ(stats.lowestFreeChunks, 3u);
  pool.Free(large);
  pool.Free(grown);
}

// A pool whose segment request failed serves everything from the overflow
// heap: pooled sizes count as finding no chunk.
TEST_F(PoolStatsTest, WithoutASegmentPooledSizesFindNoChunk) {
  pool.Configure(4, kChunk, 1024);
  // Each allocation retries the segment request.
  for (int attempt = 0; attempt < 4; ++attempt) {
    ScriptedSegmentHeap::QueueFailure();
  }
  pool.Initialize();
  void* small = pool.Alloc(8);
  void* largest = pool.Alloc(1024);
  void* large = pool.Alloc(1025);
  QDHeapStats stats = Stats();
  EXPECT_EQ(stats.exhaustedRequests, 2u);
  EXPECT_EQ(stats.largeRequests, 1u);
  EXPECT_EQ(stats.classCount, 0u);
  EXPECT_EQ(pool.Segment(), nullptr);
  // No chunk exists: every one is lost, none free, none was ever used.
  EXPECT_EQ(stats.lostChunks, 4u);
  EXPECT_EQ(stats.freeChunks, 0u);
  EXPECT_EQ(stats.lowestFreeChunks, 0u);
  std::string text = Text();
  EXPECT_NE(text.find("chunks:           4 of 2048 bytes, 4 of them lost: the pool has no segment\n"
                      "free chunks:      0 now, 0 at the fewest\n"
                      "peak chunks used: 0\n"),
            std::string::npos)
      << text;
  EXPECT_EQ(
      LastLine(text),
      "CHUNKS 3 would have held the peak of this run, by estimate: the pool ran out of chunks");
  free(small);
  free(largest);
  free(large);

  // The next request gets an aligned segment: its chunks count from then on.
  void* pooled = pool.Alloc(8);
  ASSERT_TRUE(pool.Owns(pooled));
  stats = Stats();
  EXPECT_EQ(stats.lostChunks, 0u);
  EXPECT_EQ(stats.freeChunks, 3u);
  EXPECT_EQ(stats.lowestFreeChunks, 3u);
  EXPECT_EQ(
      LastLine(Text()),
      "CHUNKS 2 would have held the peak of this run, by estimate: the pool ran out of chunks");
  pool.Free(pooled);
}

// CHUNKS whose segment size wraps 32 bits, or reaches 2 GiB: the pool lays
// out only the chunks that fit, and those alone are free. A segment of 2 GiB
// or more is address space reserved for it, of which the pool may touch only
// its first chunks; where there is no room for it (32-bit targets) the pool
// has no segment and every chunk is lost.
struct WrappedSegmentCase {
  uint32_t chunks;
  size_t offset;
  uint32_t chunksLaidOut;
};

void PrintTo(const WrappedSegmentCase& param, std::ostream* out) {
  *out << param.chunks << " chunks, segment " << param.offset << " bytes past a multiple";
}

std::string NameOf(const ::testing::TestParamInfo<WrappedSegmentCase>& info) {
  return "Of" + std::to_string(info.param.chunks) + (info.param.offset != 0 ? "Misaligned" : "");
}

class PoolStatsOfWrappedSegmentsTest : public PoolStatsTest,
                                       public ::testing::WithParamInterface<WrappedSegmentCase> {};

TEST_P(PoolStatsOfWrappedSegmentsTest, OnlyTheChunksLaidOutAreFreeAndTheRestAreLost) {
  const WrappedSegmentCase& param = GetParam();
  const uint32_t request = param.chunks * kChunk;
  pool.Configure(param.chunks, kChunk, 1024);
  if (request >= 0x80000000u) {
    ScriptedSegmentHeap::QueueReserve(size_t(1) << 20, param.offset, 4 * size_t(kChunk));
  } else {
    ScriptedSegmentHeap::QueueOffset(size_t(1) << 20, param.offset);
  }
  pool.Initialize();
  ASSERT_EQ(ScriptedSegmentHeap::requests.at(0), request);
  const bool segment = pool.Segment() != nullptr;
  const uint32_t laidOut = segment ? param.chunksLaidOut : 0;
  const uint32_t lost = param.chunks - laidOut;

  QDHeapStats stats = Stats();
  EXPECT_EQ(stats.chunkCount, param.chunks);
  EXPECT_EQ(stats.lostChunks, lost);
  EXPECT_EQ(stats.freeChunks, laidOut);
  EXPECT_EQ(stats.lowestFreeChunks, laidOut);

  std::vector<void*> blocks = TakeChunks(laidOut);
  for (void* block : blocks) {
    EXPECT_TRUE(pool.Owns(block));
  }
  void* overflow = pool.Alloc(1024);
  EXPECT_FALSE(pool.Owns(overflow));
  stats = Stats();
  EXPECT_EQ(stats.lostChunks, lost);
  EXPECT_EQ(stats.freeChunks, 0u);
  EXPECT_EQ(stats.lowestFreeChunks, 0u);
  EXPECT_EQ(stats.exhaustedRequests, 1u);
  EXPECT_EQ(stats.classes[127].chunks, laidOut);
  EXPECT_EQ(ChunksForPeak(stats), laidOut + 1);

  std::string text = Text();
  char expected[256];
  if (segment) {
    snprintf(expected, sizeof expected,
             "chunks:           %lu of 2048 bytes, %lu of them lost: the segment holds only %lu",
             static_cast<unsigned long>(param.chunks), static_cast<unsigned long>(lost),
             static_cast<unsigned long>(laidOut));
  } else {
    snprintf(expected, sizeof expected,
             "chunks:           %lu of 2048 bytes, %lu of them lost: the pool has no segment",
             static_cast<unsigned long>(param.chunks), static_cast<unsigned long>(lost));
  }
  // Only a count whose segment request reaches 2 GiB even after aligning
  // takes its chunk off is past the limit.
  const uint32_t limit = 0x80000000u / kChunk;
  std::string limitClause = param.chunks > limit ? "; CHUNKS is above the pool's limit of " +
                                                       std::to_string(limit) + " chunks"
                                                 : "";
  std::string lines = std::string(expected) + limitClause + "\n" +
                      "free chunks:      0 now, 0 at the fewest\n" +
                      "peak chunks used: " + std::to_string(laidOut) + "\n";
  EXPECT_NE(text.find(lines), std::string::npos) << text;
  EXPECT_EQ(LastLine(text),
            "CHUNKS " + std::to_string(laidOut + 2) +
                " would have held the peak of this run, by estimate: the pool ran out of chunks");

  for (void* block : blocks) {
    pool.Free(block);
  }
  pool.Free(overflow);
  stats = Stats();
  EXPECT_EQ(stats.freeChunks, laidOut);
  EXPECT_EQ(stats.lowestFreeChunks, 0u);
  EXPECT_TRUE(PoolIsConsistent(pool));
}

// Segment bytes: 2097153 and 2097154 chunks wrap to 2048 and 4096 bytes,
// 2147483648 to none; 4294967295 chunks (a CHUNKS of -1) ask for 4294965248
// bytes and 1048576 for 2 GiB, both at or above 2 GiB, where only the first
// chunk is laid out. A misaligned segment gives up one chunk's bytes first,
// so 1048576 chunks are within the limit and 1048577 are past it.
INSTANTIATE_TEST_SUITE_P(
    Chunks, PoolStatsOfWrappedSegmentsTest,
    ::testing::Values(WrappedSegmentCase{2097153u, 0, 1}, WrappedSegmentCase{2097153u, 16, 0},
                      WrappedSegmentCase{2097154u, 0, 2}, WrappedSegmentCase{2097154u, 16, 1},
                      WrappedSegmentCase{2147483648u, 0, 0}, WrappedSegmentCase{2147483648u, 16, 0},
                      WrappedSegmentCase{4294967295u, 0, 1}, WrappedSegmentCase{4294967295u, 16, 1},
                      WrappedSegmentCase{1048576u, 0, 1}, WrappedSegmentCase{1048577u, 16, 1}),
    NameOf);

// The sizing line of a run that needed more chunks than a pool can have
// says so: its value would build a pool of one chunk. Written from
// snapshots, as no test can fill a pool that large.
TEST(PoolStatsSizingLine, SaysWhenItsValueIsAboveThePoolsLimit) {
  const uint32_t limit = 0x80000000u / kChunk;
  auto lastLine = [](uint32_t needed, uint32_t atMost, uint32_t unfollowed) {
    QDHeapStats stats;
    memset(&stats, 0, sizeof stats);
    stats.size = sizeof stats;
    stats.chunkCount = 650;
    stats.chunkSize = kChunk;
    stats.lostChunks = 1;
    stats.exhaustedRequests = 10;
    stats.unfollowedBlocks = unfollowed;
    stats.peakChunksNeeded = needed;
    stats.peakChunksNeededAtMost = atMost;
    char* buffer = nullptr;
    size_t length = 0;
    FILE* stream = open_memstream(&buffer, &length);
    WriteHeapStatsText(stream, stats, Quendal::Heap::kLostToAlignment);
    fclose(stream);
    std::string text(buffer, length);
    free(buffer);
    EXPECT_EQ(text.find("CHUNKS is above"), std::string::npos) << text;
    size_t start = text.rfind('\n', text.size() - 2) + 1;
    return text.substr(start, text.size() - 1 - start);
  };
  const std::string by =
      " would have held the peak of this run, by estimate: the pool ran out of chunks";
  const std::string above =
      "; that is above the pool's limit of " + std::to_string(limit) + " chunks";
  EXPECT_EQ(lastLine(limit - 1, limit - 1, 0), "CHUNKS " + std::to_string(limit) + by);
  EXPECT_EQ(lastLine(limit, limit, 0), "CHUNKS " + std::to_string(limit + 1) + by + above);
  EXPECT_EQ(lastLine(limit - 2, limit, 3),
            "CHUNKS " + std::to_string(limit + 1) +
                " to try: the pool ran out of chunks and this run needed at least " +
                std::to_string(limit - 1) + above);
  EXPECT_EQ(lastLine(limit - 2, limit - 1, 3),
            "CHUNKS " + std::to_string(limit) +
                " to try: the pool ran out of chunks and this run needed at least " +
                std::to_string(limit - 1));
}

// A heap call made while the heap initialises builds the pool from its
// construction values (a 16-byte segment, no chunk, one class) before
// Configure gives it 650 chunks: it has none of them.
TEST_F(PoolStatsTest, APoolBuiltBeforeItWasConfiguredHasNoneOfItsChunks) {
  pool.Initialize();
  ASSERT_NE(pool.Segment(), nullptr);
  pool.Configure(650, kChunk, 1024);
  void* overflow = pool.Alloc(8);
  EXPECT_FALSE(pool.Owns(overflow));
  QDHeapStats stats = Stats();
  EXPECT_EQ(stats.chunkCount, 650u);
  EXPECT_EQ(stats.lostChunks, 650u);
  EXPECT_EQ(stats.freeChunks, 0u);
  EXPECT_EQ(stats.lowestFreeChunks, 0u);
  EXPECT_EQ(stats.exhaustedRequests, 1u);
  ASSERT_EQ(stats.classCount, 1u);
  EXPECT_EQ(stats.classes[0].chunks, 0u);
  std::string text = Text();
  EXPECT_NE(text.find("chunks:           650 of 2048 bytes, 650 of them lost: the segment holds "
                      "only 0\nfree chunks:      0 now, 0 at the fewest\npeak chunks used: 0\n"),
            std::string::npos)
      << text;
  EXPECT_EQ(
      LastLine(text),
      "CHUNKS 2 would have held the peak of this run, by estimate: the pool ran out of chunks");
  pool.Free(overflow);
}

// One chunk on a misaligned segment: aligning costs the only chunk.
TEST_F(PoolStatsTest, ASingleChunkLostToAligningLeavesNothingFree) {
  Build(1, 16);
  void* overflow = pool.Alloc(8);
  EXPECT_FALSE(pool.Owns(overflow));
  QDHeapStats stats = Stats();
  EXPECT_EQ(stats.lostChunks, 1u);
  EXPECT_EQ(stats.freeChunks, 0u);
  EXPECT_EQ(stats.lowestFreeChunks, 0u);
  EXPECT_EQ(stats.exhaustedRequests, 1u);
  std::string text = Text();
  EXPECT_NE(text.find("chunks:           1 of 2048 bytes, 1 of them lost to aligning the segment\n"
                      "free chunks:      0 now, 0 at the fewest\n"
                      "peak chunks used: 0\n"),
            std::string::npos)
      << text;
  EXPECT_EQ(
      LastLine(text),
      "CHUNKS 2 would have held the peak of this run, by estimate: the pool ran out of chunks");
  pool.Free(overflow);
}

TEST_F(PoolStatsTest, SizingLineOfAnAlignedSegmentIsThePeakInUse) {
  Build(6, 0);
  std::vector<void*> blocks = TakeChunks(5);
  for (void* block : blocks) {
    pool.Free(block);
  }
  QDHeapStats stats = Stats();
  EXPECT_EQ(stats.lostChunks, 0u);
  EXPECT_EQ(stats.lowestFreeChunks, 1u);
  EXPECT_EQ(ChunksForPeak(stats), 5u);
  std::string text = Text();
  EXPECT_NE(text.find("\n(no class holds a chunk now)\n"), std::string::npos) << text;
  EXPECT_EQ(LastLine(text), "CHUNKS 5 would have held the peak of this run");
}

// Aligning the segment cost its last chunk: it is lost, not free, and the
// sizing line adds it back.
TEST_F(PoolStatsTest, SizingLineOfAMisalignedSegmentAddsTheLostChunk) {
  Build(6, 16);
  EXPECT_EQ(Stats().freeChunks, 5u);
  std::vector<void*> blocks = TakeChunks(5);
  void* overflow = pool.Alloc(1024);
  EXPECT_FALSE(pool.Owns(overflow));
  QDHeapStats stats = Stats();
  EXPECT_EQ(stats.lostChunks, 1u);
  EXPECT_EQ(stats.freeChunks, 0u);
  EXPECT_EQ(stats.lowestFreeChunks, 0u);
  EXPECT_EQ(stats.exhaustedRequests, 1u);
  EXPECT_EQ(ChunksForPeak(stats), 6u);
  std::string text = Text();
  EXPECT_NE(text.find("chunks:           6 of 2048 bytes, 1 of them lost to aligning the segment\n"
                      "free chunks:      0 now, 0 at the fewest\n"
                      "peak chunks used: 5\n"),
            std::string::npos)
      << text;
  EXPECT_EQ(
      LastLine(text),
      "CHUNKS 7 would have held the peak of this run, by estimate: the pool ran out of chunks");
  EXPECT_NE(text.find("ran out of chunks"), std::string::npos) << text;
  for (void* block : blocks) {
    pool.Free(block);
  }
  pool.Free(overflow);
}

TEST_F(PoolStatsTest, TextListsTheCountersAndOnlyTheClassesInUse) {
  Build(8);
  void* eight = pool.Alloc(8);
  void* forty = pool.Alloc(40);
  void* large = pool.Alloc(2000);
  std::string text = Text();
  EXPECT_EQ(text.rfind("libQuendal heap statistics\n", 0), 0u) << text;
  EXPECT_NE(
      text.find("chunks:           8 of 2048 bytes, 0 of them lost to aligning the segment\n"),
      std::string::npos)
      << text;
  EXPECT_NE(text.find("free chunks:      6 now, 6 at the fewest\n"), std::string::npos) << text;
  EXPECT_NE(text.find("peak chunks used: 2\n"), std::string::npos) << text;
  EXPECT_NE(text.find("0 requests of pooled size with no chunk left, 1 above the pooled size\n"),
            std::string::npos)
      << text;
  char row[128];
  snprintf(row, sizeof row, "%5d  %11d  %6d  %13d  %14d\n", 0, 8, 1, 1,
           static_cast<int>(kEightByteBlocks));
  EXPECT_NE(text.find(row), std::string::npos) << text;
  snprintf(row, sizeof row, "%5d  %11d  %6d  %13d  %14d\n", 4, 40, 1, 1,
           static_cast<int>((kChunk - kChunkHeaderSize) / 40));
  EXPECT_NE(text.find(row), std::string::npos) << text;
  EXPECT_EQ(text.find("\n    1  "), std::string::npos) << text;
  EXPECT_EQ(text.find("ran out of chunks"), std::string::npos) << text;
  EXPECT_EQ(text.find("no class holds a chunk"), std::string::npos) << text;
  EXPECT_EQ(LastLine(text), "CHUNKS 2 would have held the peak of this run");
  pool.Free(eight);
  pool.Free(forty);
  pool.Free(large);
}

}  // namespace

namespace {

// The class figures of a snapshot, as a walk over the class lists reads them.
struct WalkedClass {
  uint32_t chunks = 0;
  uint64_t usedBlocks = 0;
  uint64_t blockCapacity = 0;
};

std::vector<WalkedClass> WalkClasses(TestPool& pool) {
  // Settles a deferred return, so that every chunk a list holds is its class's.
  pool.Materialize();
  std::vector<WalkedClass> walked(QD_HEAP_STATS_CLASSES);
  for (uint32_t index = 0; index < QD_HEAP_STATS_CLASSES; ++index) {
    uint32_t blockSize = (index + 1) * 8;
    for (ChunkHeader* chunk = pool.ClassChunk(index); chunk != nullptr; chunk = chunk->nextChunk) {
      walked[index].chunks += 1;
      walked[index].usedBlocks += chunk->usedBlocks;
      walked[index].blockCapacity += (chunk->chunkBytes - kChunkHeaderSize) / blockSize;
    }
  }
  return walked;
}

// The snapshot reads counts the pool keeps as it works; after every step of
// a random mix of classes, chunks taken and returned and chunks deferred, they
// are what a walk over every chunk finds.
TEST_F(PoolStatsTest, ClassFiguresAgreeWithAWalkAfterEveryStep) {
  Build(24);
  std::vector<void*> live;
  uint32_t state = 7;
  for (int step = 0; step < 3000; ++step) {
    state = state * 1103515245u + 12345u;
    uint32_t draw = state >> 8;
    if (live.empty() || draw % 5 < 3) {
      void* block = pool.Alloc(1 + (draw >> 4) % 600);
      if (pool.Owns(block)) {
        live.push_back(block);
      } else {
        pool.Free(block);
      }
    } else {
      size_t k = (draw >> 4) % live.size();
      pool.Free(live[k]);
      live[k] = live.back();
      live.pop_back();
    }
    QDHeapStats stats = Stats();
    std::vector<WalkedClass> walked = WalkClasses(pool);
    ASSERT_EQ(stats.classCount, 128u);
    for (uint32_t index = 0; index < stats.classCount; ++index) {
      ASSERT_EQ(stats.classes[index].chunks, walked[index].chunks) << "class " << index;
      ASSERT_EQ(stats.classes[index].usedBlocks, walked[index].usedBlocks) << "class " << index;
      ASSERT_EQ(stats.classes[index].blockCapacity, walked[index].blockCapacity)
          << "class " << index;
    }
  }
}

// A chunk's own used count is 16 bits and wraps; the class figure counts
// every block handed out.
TEST_F(PoolStatsTest, UsedBlocksCountPastTheChunksSixteenBitCount) {
  const uint32_t chunkSize = 1u << 20;
  Build(1, 0, chunkSize);
  const size_t blocks = (chunkSize - kChunkHeaderSize) / 8;
  ASSERT_GT(blocks, 65536u + 1000u);
  const size_t taken = 65536 + 1000;
  for (size_t k = 0; k < taken; ++k) {
    ASSERT_TRUE(pool.Owns(pool.Alloc(8)));
  }
  QDHeapStats stats = Stats();
  EXPECT_EQ(stats.classes[0].chunks, 1u);
  EXPECT_EQ(stats.classes[0].usedBlocks, taken);
  EXPECT_EQ(stats.classes[0].blockCapacity, blocks);
  EXPECT_TRUE(PoolIsConsistent(pool));
}

}  // namespace
