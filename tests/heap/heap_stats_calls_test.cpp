// The statistics entries call no allocator: malloc, realloc and free are
// wrapped at link time and must see no call while a snapshot is taken or
// written (the heap is initialised before, as the first entry call would).
#include <gtest/gtest.h>

#include <stddef.h>
#include <stdio.h>

#include "quendal/heap.h"
#include "quendal/heap_stats.h"

extern "C" void* __real_malloc(size_t size);
extern "C" void* __real_realloc(void* pointer, size_t size);
extern "C" void __real_free(void* pointer);

namespace {

size_t g_calls = 0;
bool g_recording = false;

}  // namespace

extern "C" void* __wrap_malloc(size_t size) {
  g_calls += g_recording ? 1 : 0;
  return __real_malloc(size);
}

extern "C" void* __wrap_realloc(void* pointer, size_t size) {
  g_calls += g_recording ? 1 : 0;
  return __real_realloc(pointer, size);
}

extern "C" void __wrap_free(void* pointer) {
  g_calls += g_recording ? 1 : 0;
  __real_free(pointer);
}

namespace {

class HeapStatsCallsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(QDHeapInit(), 1);
    // Chunks of two classes, and blocks of the extra heap.
    for (int k = 0; k < 300; ++k) {
      blocks[k] = QDHeapAlloc(k % 2 == 0 ? 8 : 2000);
    }
    // The wrapper itself counts calls it sees, so a test that could not see
    // any would pass for nothing: make sure it does.
    g_calls = 0;
    g_recording = true;
    QDHeapFree(QDHeapAlloc(5000));
    g_recording = false;
    ASSERT_EQ(g_calls, 2u);
    g_calls = 0;
  }
  void TearDown() override {
    g_recording = false;
    for (void* block : blocks) {
      QDHeapFree(block);
    }
  }
  void* blocks[300];
};

TEST_F(HeapStatsCallsTest, GetStatsCallsNoAllocator) {
  QDHeapStats stats;
  stats.size = sizeof stats;
  g_recording = true;
  int result = QDHeapGetStats(&stats);
  g_recording = false;
  EXPECT_EQ(result, QD_HEAP_STATS_OK);
  EXPECT_EQ(g_calls, 0u);
  EXPECT_EQ(stats.classes[0].usedBlocks, 150u);
  EXPECT_EQ(stats.largeRequests, 151u);
}

TEST_F(HeapStatsCallsTest, WriteStatsCallsNoAllocator) {
  // The stream's buffer is set up before: its first write may allocate one.
  static char buffer[1 << 16];
  FILE* stream = tmpfile();
  ASSERT_NE(stream, nullptr);
  ASSERT_EQ(setvbuf(stream, buffer, _IOFBF, sizeof buffer), 0);
  g_recording = true;
  QDHeapWriteStats(stream);
  g_recording = false;
  EXPECT_EQ(g_calls, 0u);
  EXPECT_GT(ftell(stream), 0L);
  fclose(stream);
}

}  // namespace
