// Sixteen threads make the process's first heap call at once, against the
// shared library and a real ".mem" beside the executable (written by the
// build: CHUNKS 1000). The program's malloc stands in front of the C
// library's and counts the requests the size of a segment.
#include <gtest/gtest.h>

#include <pthread.h>
#include <stdint.h>
#include <string.h>

#include <atomic>
#include <vector>

#include "quendal/heap.h"
#include "quendal/heap_owns.h"
#include "quendal/heap_stats.h"
#include "support/threads_released_together.h"

extern "C" void* __libc_malloc(size_t size);

namespace {

std::atomic<int> segmentSizedRequests{0};

}  // namespace

extern "C" void* malloc(size_t size) {
  if (size >= (1u << 20)) {
    segmentSizedRequests.fetch_add(1);
  }
  return __libc_malloc(size);
}

namespace {

constexpr int kThreads = 16;
constexpr int kRounds = 200;
constexpr uint32_t kMemFileChunks = 1000;

std::atomic<int> damaged{0};
std::atomic<int> pooled{0};

void Work(int thread) {
  std::vector<unsigned char*> blocks;
  std::vector<size_t> sizes;
  for (int round = 0; round < kRounds; ++round) {
    size_t size = 8 + static_cast<size_t>((thread * 41 + round * 29) % 1000);
    auto* block = static_cast<unsigned char*>(QDHeapAlloc(size));
    if (block == nullptr) {
      damaged.fetch_add(1);
      continue;
    }
    if (QDHeapOwns(block)) {
      pooled.fetch_add(1);
    }
    memset(block, thread + 1, size);
    blocks.push_back(block);
    sizes.push_back(size);
  }
  for (size_t i = 0; i < blocks.size(); ++i) {
    for (size_t k = 0; k < sizes[i]; ++k) {
      if (blocks[i][k] != thread + 1) {
        damaged.fetch_add(1);
        break;
      }
    }
    QDHeapFree(blocks[i]);
  }
}

TEST(HeapFirstUseSharedLibraryTest, SixteenThreadsFirstCallAtOnceTakeTheMemFilesPool) {
  QuendalTest::RunReleasedTogether(kThreads, Work);

  EXPECT_EQ(damaged.load(), 0);
  EXPECT_EQ(pooled.load(), kThreads * kRounds);
  EXPECT_EQ(segmentSizedRequests.load(), 1);
  QDHeapStats stats;
  stats.size = sizeof stats;
  ASSERT_EQ(QDHeapGetStats(&stats), QD_HEAP_STATS_OK);
  EXPECT_EQ(stats.chunkCount, kMemFileChunks);
}

}  // namespace
