// The library's pool writes into a chunk of its segment only when the chunk
// is first taken, so that the first heap call of a process touches the pages
// it uses and no others.
#include <gtest/gtest.h>

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <vector>

#include "heap/pool_chunk_allocator.h"
#include "heap/scripted_heap.h"

namespace QuendalTest {
namespace {

const unsigned char kUntouched = 0xA5;

// Hands out chunk-aligned segments filled with a pattern the pool never
// writes, so that every byte the pool wrote shows.
struct PatternedSegmentHeap {
  static std::vector<void*> segments;
  static void* Alloc(size_t size) {
    void* segment = nullptr;
    if (posix_memalign(&segment, 1 << 16, size) != 0) {
      return nullptr;
    }
    memset(segment, kUntouched, size);
    segments.push_back(segment);
    return segment;
  }
  static void Free(void* pointer) { free(pointer); }
  static void* ReAlloc(void*, size_t) { abort(); }
};
std::vector<void*> PatternedSegmentHeap::segments;

typedef Quendal::Heap::ConfigPoolChunkAllocator<PatternedSegmentHeap, RecordingOverflowHeap>
    FootprintPool;

const uint32_t kChunks = 64;
const uint32_t kChunkSize = 2048;

// The chunks from first on hold nothing but the pattern.
::testing::AssertionResult UntouchedFrom(const FootprintPool& pool, uint32_t first) {
  const unsigned char* bytes = reinterpret_cast<const unsigned char*>(pool.AlignedSegment());
  for (size_t offset = size_t(first) * kChunkSize; offset < size_t(kChunks) * kChunkSize;
       ++offset) {
    if (bytes[offset] != kUntouched) {
      return ::testing::AssertionFailure()
             << "byte " << offset << " (chunk " << offset / kChunkSize << ") was written";
    }
  }
  return ::testing::AssertionSuccess();
}

class PoolFootprintTest : public ::testing::Test {
 protected:
  void TearDown() override {
    free(pool.ClassTable());
    for (void* segment : PatternedSegmentHeap::segments) {
      free(segment);
    }
    PatternedSegmentHeap::segments.clear();
  }
  FootprintPool pool;
};

TEST_F(PoolFootprintTest, InitializeWritesOnlyTheFirstChunksHeader) {
  pool.Configure(kChunks, kChunkSize, 1024);
  pool.Initialize();
  ASSERT_EQ(pool.FreeChunkCount(), kChunks);
  EXPECT_TRUE(UntouchedFrom(pool, 1));
}

TEST_F(PoolFootprintTest, AChunkIsWrittenWhenItIsFirstTaken) {
  pool.Configure(kChunks, kChunkSize, 1024);
  pool.Initialize();
  void* first = pool.Alloc(1024);
  void* second = pool.Alloc(1024);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(pool.ChunkOf(second)),
            reinterpret_cast<uintptr_t>(pool.ChunkOf(first)) + kChunkSize);
  EXPECT_TRUE(UntouchedFrom(pool, 2));
  // Chunks that come back are reused before any new one is built.
  pool.Free(second);
  pool.Free(first);
  pool.Alloc(16);
  pool.Alloc(24);
  EXPECT_TRUE(UntouchedFrom(pool, 2));
  pool.Alloc(32);
  EXPECT_TRUE(UntouchedFrom(pool, 3));
}

}  // namespace
}  // namespace QuendalTest
