// The statistics entries over the process's heap, with the .mem file
// scripted: lazy initialisation, a small pool exhausted through QDHeapAlloc,
// the sizing line QDHeapWriteStats ends with, the fields a shorter structure
// gets, the results for a null pointer and an unknown size, and the pools
// of the extreme CHUNKS values.
#include <gtest/gtest.h>

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <ostream>
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

using Quendal::Heap::kChunkHeaderSize;
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
  EXPECT_EQ(
      stats.lostChunks,
      ThePool().AlignedSegment() != reinterpret_cast<uintptr_t>(ThePool().Segment()) ? 1u : 0u);
  EXPECT_EQ(stats.freeChunks, 4u - stats.lostChunks);
  EXPECT_EQ(stats.lowestFreeChunks, 4u - stats.lostChunks);
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
  EXPECT_EQ(stats.freeChunks, 0u);
  EXPECT_EQ(stats.lowestFreeChunks, 0u);
  EXPECT_EQ(stats.classes[127].chunks, blocks.size());
  EXPECT_EQ(stats.classes[127].usedBlocks, blocks.size());

  for (void* pooled : blocks) {
    QDHeapFree(pooled);
  }
  QDHeapFree(block);
  QDHeapFree(large);
  ASSERT_EQ(QDHeapGetStats(&stats), QD_HEAP_STATS_OK);
  EXPECT_EQ(stats.freeChunks, blocks.size());
  EXPECT_EQ(stats.lowestFreeChunks, 0u);

  EXPECT_EQ(stats.extraHeapBlocks, 0u);
  EXPECT_EQ(stats.unfollowedBlocks, 0u);
  EXPECT_EQ(stats.peakChunksNeeded, blocks.size() + 1);
  EXPECT_EQ(stats.peakChunksNeededAtMost, blocks.size() + 1);

  // The block the extra heap took would have needed a chunk of its own.
  std::string text = WrittenText();
  ASSERT_GT(text.size(), 2u);
  EXPECT_EQ(text.substr(text.rfind('\n', text.size() - 2) + 1),
            "CHUNKS " + std::to_string(blocks.size() + 1 + (stats.lostChunks != 0 ? 1 : 0)) +
                " would have held the peak of this run, by estimate: the pool ran out of chunks\n")
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
  EXPECT_EQ(stats.freeChunks, 3u - stats.lostChunks);
  EXPECT_EQ(stats.lowestFreeChunks, 3u - stats.lostChunks);
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

// A structure that ends with the class entries, as before the sizing
// estimate's fields, gets every class and none of those fields.
TEST_F(HeapStatsEntriesTest, AStructureEndingAtTheClassesGetsNoneOfTheLaterFields) {
  void* block = QDHeapAlloc(8);
  QDHeapStats stats = Marked(offsetof(QDHeapStats, extraHeapBlocks));
  ASSERT_EQ(QDHeapGetStats(&stats), QD_HEAP_STATS_OK);
  EXPECT_EQ(stats.classCount, 128u);
  EXPECT_EQ(stats.classes[127].blockSize, 1024u);
  EXPECT_TRUE(
      Untouched(&stats.extraHeapBlocks, sizeof stats - offsetof(QDHeapStats, extraHeapBlocks)));

  // Room for two of them: those two.
  stats = Marked(offsetof(QDHeapStats, peakChunksNeeded) + 3);
  ASSERT_EQ(QDHeapGetStats(&stats), QD_HEAP_STATS_OK);
  EXPECT_EQ(stats.extraHeapBlocks, 0u);
  EXPECT_EQ(stats.unfollowedBlocks, 0u);
  EXPECT_TRUE(
      Untouched(&stats.peakChunksNeeded, sizeof stats - offsetof(QDHeapStats, peakChunksNeeded)));

  stats = Marked(sizeof(QDHeapStats));
  ASSERT_EQ(QDHeapGetStats(&stats), QD_HEAP_STATS_OK);
  EXPECT_EQ(stats.peakChunksNeeded, 1u);
  EXPECT_EQ(stats.peakChunksNeededAtMost, 1u);
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

// A CHUNKS value as the .mem file gives it, and the chunk count it must
// become where that does not depend on the target (0 where it does: an
// out-of-range number reads differently with a 32-bit long).
struct ExtremeChunks {
  const char* name;
  const char* text;
  uint32_t chunkCount;
};

void PrintTo(const ExtremeChunks& chunks, std::ostream* out) {
  *out << "CHUNKS " << chunks.text;
}

std::string NameOf(const ::testing::TestParamInfo<ExtremeChunks>& info) {
  return info.param.name;
}

class HeapStatsOfExtremeChunksTest : public HeapStatsEntriesTest,
                                     public ::testing::WithParamInterface<ExtremeChunks> {};

// What the pool has is found by taking 1024-byte blocks, one per chunk,
// until one comes from the extra heap; every figure and line of the text
// follows from it and from the pool's own segment. A segment of 2 GiB or
// more may be refused, as on 32-bit targets, or granted.
TEST_P(HeapStatsOfExtremeChunksTest, EveryFigureAndTheTextMatchTheChunksThePoolHas) {
  Scripted::SetFileContents(std::string("CHUNKS ") + GetParam().text +
                            "  CHUNK_SIZE 2048 SEG_SIZE 1024\n");
  QDHeapStats before = Marked(sizeof(QDHeapStats));
  ASSERT_EQ(QDHeapGetStats(&before), QD_HEAP_STATS_OK);
  const Pool& pool = ThePool();
  const uint32_t chunkCount = pool.ChunkCount();
  if (GetParam().chunkCount != 0) {
    EXPECT_EQ(chunkCount, GetParam().chunkCount);
  }
  EXPECT_EQ(before.chunkCount, chunkCount);
  EXPECT_EQ(before.chunkSize, 2048u);

  std::vector<void*> blocks;
  void* block = QDHeapAlloc(1024);
  while (pool.Owns(block) && blocks.size() <= chunkCount) {
    blocks.push_back(block);
    block = QDHeapAlloc(1024);
  }
  ASSERT_FALSE(pool.Owns(block));
  const uint32_t chunks = static_cast<uint32_t>(blocks.size());
  const uint32_t lost = chunkCount - chunks;
  const bool segment = pool.Segment() != nullptr;
  const bool misaligned =
      segment && pool.AlignedSegment() != reinterpret_cast<uintptr_t>(pool.Segment());
  if (!segment) {
    EXPECT_EQ(chunks, 0u);
  }
  EXPECT_EQ(before.lostChunks, lost);
  EXPECT_EQ(before.freeChunks, chunks);
  EXPECT_EQ(before.lowestFreeChunks, chunks);
  EXPECT_EQ(before.classCount, segment ? 128u : 0u);

  QDHeapStats after = Marked(sizeof(QDHeapStats));
  ASSERT_EQ(QDHeapGetStats(&after), QD_HEAP_STATS_OK);
  EXPECT_EQ(after.lostChunks, lost);
  EXPECT_EQ(after.freeChunks, 0u);
  EXPECT_EQ(after.lowestFreeChunks, 0u);
  EXPECT_EQ(after.exhaustedRequests, 1u);
  EXPECT_EQ(after.largeRequests, 0u);
  if (segment) {
    EXPECT_EQ(after.classes[127].chunks, chunks);
    EXPECT_EQ(after.classes[127].usedBlocks, chunks);
    EXPECT_EQ(after.classes[127].blockCapacity, chunks * ((2048 - kChunkHeaderSize) / 1024));
  }

  std::string text = WrittenText();
  char line[160];
  if (!segment) {
    snprintf(line, sizeof line, "%lu of them lost: the pool has no segment",
             static_cast<unsigned long>(lost));
  } else if (lost == (misaligned ? 1u : 0u)) {
    snprintf(line, sizeof line, "%lu of them lost to aligning the segment",
             static_cast<unsigned long>(lost));
  } else {
    snprintf(line, sizeof line, "%lu of them lost: the segment holds only %lu",
             static_cast<unsigned long>(lost), static_cast<unsigned long>(chunks));
  }
  // A segment request of 2 GiB or more, once aligning took a chunk off, is
  // past the pool's limit, and the line says so.
  const uint32_t limit = 0x80000000u / before.chunkSize;
  std::string limitClause = chunkCount > limit ? "; CHUNKS is above the pool's limit of " +
                                                     std::to_string(limit) + " chunks"
                                               : "";
  EXPECT_NE(text.find(std::string("chunks:           ") + std::to_string(chunkCount) +
                      " of 2048 bytes, " + line + limitClause + "\n" +
                      "free chunks:      0 now, 0 at the fewest\n" +
                      "peak chunks used: " + std::to_string(chunks) + "\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("the pool ran out of chunks"), std::string::npos) << text;
  // The 1024-byte block the extra heap took fills a chunk of its own.
  EXPECT_EQ(after.extraHeapBlocks, 1u);
  EXPECT_EQ(after.peakChunksNeeded, chunks + 1);
  EXPECT_EQ(text.substr(text.rfind('\n', text.size() - 2) + 1),
            "CHUNKS " + std::to_string(chunks + 1 + (lost != 0 ? 1 : 0)) +
                " would have held the peak of this run, by estimate: the pool ran out of chunks\n")
      << text;

  for (void* pooled : blocks) {
    QDHeapFree(pooled);
  }
  QDHeapFree(block);
  ASSERT_EQ(QDHeapGetStats(&after), QD_HEAP_STATS_OK);
  EXPECT_EQ(after.freeChunks, chunks);
  EXPECT_EQ(after.lowestFreeChunks, 0u);
  EXPECT_EQ(after.lostChunks, lost);
}

// 0 becomes 1 chunk; -1 and 4294967295 (a 32-bit long reads the latter as
// 2147483647), 2147483647 and 2147483648 (0 bytes where it wraps to
// 2147483648 chunks) ask for segments at or above 2 GiB, or none;
// 2097153 and 2097154 chunks wrap to segments of one and two chunks.
INSTANTIATE_TEST_SUITE_P(Chunks, HeapStatsOfExtremeChunksTest,
                         ::testing::Values(ExtremeChunks{"Zero", "0", 1u},
                                           ExtremeChunks{"One", "1", 1u},
                                           ExtremeChunks{"MinusOne", "-1", 4294967295u},
                                           ExtremeChunks{"Of4294967295", "4294967295", 0},
                                           ExtremeChunks{"Of2147483647", "2147483647", 2147483647u},
                                           ExtremeChunks{"Of2147483648", "2147483648", 0},
                                           ExtremeChunks{"Of1048577", "1048577", 1048577u},
                                           ExtremeChunks{"Of2097153", "2097153", 2097153u},
                                           ExtremeChunks{"Of2097154", "2097154", 2097154u},
                                           ExtremeChunks{"Of650", "650", 650u}),
                         NameOf);

}  // namespace
