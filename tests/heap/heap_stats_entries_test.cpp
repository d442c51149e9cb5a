// The statistics entries over the process's heap, with the .mem file
// scripted: lazy initialisation, a small pool exhausted through QDHeapAlloc,
// the sizing line QDHeapWriteStats ends with, the fields a shorter structure
// gets, and the results for a null pointer and an unknown size.
#include <gtest/gtest.h>

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <string>
#include <vector>

#include "heap/the_heap.h"
#include "heap/the_pool.h"
#include "quendal/heap.h"
#include "quendal/heap_stats.h"
#include "support/scripted_platform.h"

namespace {

using Quendal::Heap::InitNeeded;
using Quendal::Heap::Pool;
using Quendal::Heap::TheHeap;
namespace Scripted = QuendalTest::ScriptedPlatform;

using QuendalTest::ThePool;

const unsigned char kUntouched = 0xA5;

class HeapStatsEntriesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Scripted::Reset();
    Scripted::SetExecutablePath("/opt/app/player.bin");
    Scripted::SetFileContents("CHUNKS 4  CHUNK_SIZE 2048 SEG_SIZE 1024\n");
  }

  // A structure whose every byte reads kUntouched, with size set.
  static QDHeapStats Marked(uint32_t size) {
    QDHeapStats stats;
    memset(&stats, kUntouched, sizeof stats);
    stats.size = size;
    return stats;
  }

  static bool Untouched(const void* field, size_t bytes) {
    const unsigned char* byte = static_cast<const unsigned char*>(field);
    for (size_t k = 0; k < bytes; ++k) {
      if (byte[k] != kUntouched) {
        return false;
      }
    }
    return true;
  }

  static std::string WrittenText() {
    FILE* stream = tmpfile();
    QDHeapWriteStats(stream);
    std::string text;
    long length = ftell(stream);
    text.resize(static_cast<size_t>(length));
    rewind(stream);
    EXPECT_EQ(fread(&text[0], 1, text.size(), stream), text.size());
    fclose(stream);
    return text;
  }
};

TEST_F(HeapStatsEntriesTest, GetStatsInitialisesTheHeapFromTheMemFile) {
  ASSERT_EQ(InitNeeded(), 1);
  QDHeapStats stats = Marked(sizeof(QDHeapStats));
  EXPECT_EQ(QDHeapGetStats(&stats), QD_HEAP_STATS_OK);
  EXPECT_EQ(InitNeeded(), 0);
  EXPECT_EQ(stats.size, sizeof(QDHeapStats));
  EXPECT_EQ(stats.chunkCount, 4u);
  EXPECT_EQ(stats.chunkSize, 2048u);
  EXPECT_EQ(stats.freeChunks, 4u);
  EXPECT_EQ(stats.lowestFreeChunks, 4u);
  EXPECT_EQ(
      stats.lostChunks,
      ThePool().AlignedSegment() != reinterpret_cast<uintptr_t>(ThePool().Segment()) ? 1u : 0u);
  EXPECT_EQ(stats.exhaustedRequests, 0u);
  EXPECT_EQ(stats.largeRequests, 0u);
  ASSERT_EQ(stats.classCount, 128u);
  EXPECT_EQ(stats.classes[127].blockSize, 1024u);
  EXPECT_EQ(stats.classes[127].chunks, 0u);
}

TEST_F(HeapStatsEntriesTest, WriteStatsInitialisesTheHeap) {
  ASSERT_EQ(InitNeeded(), 1);
  std::string text = WrittenText();
  EXPECT_EQ(InitNeeded(), 0);
  EXPECT_EQ(text.rfind("libQuendal heap statistics\n", 0), 0u) << text;
}

// CHUNKS 4: every chunk the segment holds is taken, then one more request
// of pooled size goes to the extra heap.
TEST_F(HeapStatsEntriesTest, ASmallPoolExhaustedThroughTheEntries) {
  std::vector<void*> blocks;
  void* block = QDHeapAlloc(1024);
  while (ThePool().Owns(block)) {
    blocks.push_back(block);
    block = QDHeapAlloc(1024);
  }
  void* large = QDHeapAlloc(3000);
  QDHeapStats stats = Marked(sizeof(QDHeapStats));
  ASSERT_EQ(QDHeapGetStats(&stats), QD_HEAP_STATS_OK);
  EXPECT_EQ(blocks.size(), 4u - stats.lostChunks);
  EXPECT_EQ(stats.exhaustedRequests, 1u);
  EXPECT_EQ(stats.largeRequests, 1u);
  EXPECT_EQ(stats.freeChunks, stats.lostChunks);
  EXPECT_EQ(stats.lowestFreeChunks, stats.lostChunks);
  EXPECT_EQ(stats.classes[127].chunks, blocks.size());
  EXPECT_EQ(stats.classes[127].usedBlocks, blocks.size());

  for (void* pooled : blocks) {
    QDHeapFree(pooled);
  }
  QDHeapFree(block);
  QDHeapFree(large);
  ASSERT_EQ(QDHeapGetStats(&stats), QD_HEAP_STATS_OK);
  EXPECT_EQ(stats.freeChunks, 4u);
  EXPECT_EQ(stats.lowestFreeChunks, stats.lostChunks);

  std::string text = WrittenText();
  ASSERT_GT(text.size(), 2u);
  EXPECT_EQ(text.substr(text.rfind('\n', text.size() - 2) + 1),
            "CHUNKS 4 would have held the peak of this run\n")
      << text;
}

TEST_F(HeapStatsEntriesTest, NullPointerIsRefused) {
  EXPECT_EQ(QDHeapGetStats(nullptr), QD_HEAP_STATS_NULL_POINTER);
  EXPECT_EQ(InitNeeded(), 0);
}

TEST_F(HeapStatsEntriesTest, WriteStatsToANullStreamDoesNothing) {
  QDHeapWriteStats(nullptr);
  EXPECT_EQ(InitNeeded(), 0);
}

TEST_F(HeapStatsEntriesTest, UnknownSizesAreRefusedAndNothingIsWritten) {
  const uint32_t sizes[] = {0, 4, 7, static_cast<uint32_t>(sizeof(QDHeapStats) + 1), 0xFFFFFFFFu};
  for (uint32_t size : sizes) {
    QDHeapStats stats = Marked(size);
    EXPECT_EQ(QDHeapGetStats(&stats), QD_HEAP_STATS_UNKNOWN_SIZE) << size;
    EXPECT_EQ(stats.size, size);
    EXPECT_TRUE(Untouched(&stats.chunkCount, sizeof stats - offsetof(QDHeapStats, chunkCount)))
        << size;
  }
}

TEST_F(HeapStatsEntriesTest, TheSmallestSizeGetsTheChunkCountOnly) {
  QDHeapStats stats = Marked(offsetof(QDHeapStats, chunkCount) + sizeof(uint32_t));
  ASSERT_EQ(QDHeapGetStats(&stats), QD_HEAP_STATS_OK);
  EXPECT_EQ(stats.chunkCount, 4u);
  EXPECT_TRUE(Untouched(&stats.chunkSize, sizeof stats - offsetof(QDHeapStats, chunkSize)));
}

// A field cut by size is left as it was, and so is everything after it.
TEST_F(HeapStatsEntriesTest, AShorterStructureGetsOnlyTheLeadingFields) {
  void* block = QDHeapAlloc(8);
  QDHeapStats stats = Marked(offsetof(QDHeapStats, exhaustedRequests) + 4);
  ASSERT_EQ(QDHeapGetStats(&stats), QD_HEAP_STATS_OK);
  EXPECT_EQ(stats.chunkCount, 4u);
  EXPECT_EQ(stats.chunkSize, 2048u);
  EXPECT_EQ(stats.freeChunks, 3u);
  EXPECT_EQ(stats.lowestFreeChunks, 3u);
  EXPECT_TRUE(
      Untouched(&stats.exhaustedRequests, sizeof stats - offsetof(QDHeapStats, exhaustedRequests)));

  // Up to classCount: no room for a class entry.
  stats = Marked(offsetof(QDHeapStats, classes));
  ASSERT_EQ(QDHeapGetStats(&stats), QD_HEAP_STATS_OK);
  EXPECT_EQ(stats.exhaustedRequests, 0u);
  EXPECT_EQ(stats.largeRequests, 0u);
  EXPECT_EQ(stats.classCount, 0u);
  EXPECT_TRUE(Untouched(stats.classes, sizeof stats.classes));
  QDHeapFree(block);
}

TEST_F(HeapStatsEntriesTest, ClassCountTellsHowManyEntriesFitted) {
  void* block = QDHeapAlloc(8);
  QDHeapStats stats = Marked(offsetof(QDHeapStats, classes) + 3 * sizeof(QDHeapClassStats) + 5);
  ASSERT_EQ(QDHeapGetStats(&stats), QD_HEAP_STATS_OK);
  ASSERT_EQ(stats.classCount, 3u);
  EXPECT_EQ(stats.classes[0].blockSize, 8u);
  EXPECT_EQ(stats.classes[0].chunks, 1u);
  EXPECT_EQ(stats.classes[0].usedBlocks, 1u);
  EXPECT_EQ(stats.classes[2].blockSize, 24u);
  EXPECT_EQ(stats.classes[2].chunks, 0u);
  EXPECT_TRUE(Untouched(&stats.classes[3], sizeof(QDHeapClassStats) * (QD_HEAP_STATS_CLASSES - 3)));
  QDHeapFree(block);
}

}  // namespace
