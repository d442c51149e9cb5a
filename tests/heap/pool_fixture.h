// The pool over scripted backing heaps, as the pool tests build it.
#ifndef QUENDAL_TESTS_HEAP_POOL_FIXTURE_H
#define QUENDAL_TESTS_HEAP_POOL_FIXTURE_H

#include <gtest/gtest.h>

#include <stdint.h>
#include <stdlib.h>

#include <vector>

#include "heap/pool_c_callers.h"
#include "heap/pool_chunk_allocator.h"
#include "heap/pool_invariants.h"
#include "heap/scripted_heap.h"

namespace QuendalTest {

using Quendal::Heap::ChunkHeader;
using Quendal::Heap::ConfigPoolChunkAllocator;
using Quendal::Heap::kChunkHeaderSize;

// The pool tests run twice: over the library's pool and over the plain
// algorithm with no shortcuts.
#if defined(QUENDAL_TEST_POOL_WITHOUT_SHORTCUTS)
typedef ConfigPoolChunkAllocator<ScriptedSegmentHeap, RecordingOverflowHeap,
                                 Quendal::Heap::NoPoolShortcuts>
    TestPool;
#else
typedef ConfigPoolChunkAllocator<ScriptedSegmentHeap, RecordingOverflowHeap> TestPool;
#endif

inline const uint32_t kChunk = 2048;
// Blocks of the 8-byte class in a 2048-byte chunk: 253 behind a 24-byte header.
inline const size_t kEightByteBlocks = (kChunk - kChunkHeaderSize) / 8;

// Writes first, first + 1, ... into the block's bytes.
inline void Fill(void* block, size_t bytes, unsigned char first) {
  unsigned char* bytePointer = static_cast<unsigned char*>(block);
  for (size_t k = 0; k < bytes; ++k) {
    bytePointer[k] = static_cast<unsigned char>(first + k);
  }
}

class PoolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ScriptedSegmentHeap::Reset();
    RecordingOverflowHeap::Reset();
  }
  void TearDown() override {
    free(pool.ClassTable());
    ScriptedSegmentHeap::Reset();
    RecordingOverflowHeap::Reset();
  }

  // A pool of `chunks` chunks serving up to `largest` bytes, on a segment
  // offset bytes past a multiple of the chunk size.
  void Build(uint32_t chunks, size_t offset = 0, uint32_t chunkSize = kChunk,
             uint32_t largest = 1024) {
    pool.Configure(chunks, chunkSize, largest);
    ScriptedSegmentHeap::QueueOffset(size_t(1) << 20, offset);
    pool.Initialize();
  }

  // Reading headers: every header the plain algorithm would have written
  // is written first.
  std::vector<ChunkHeader*> FreeList() {
    pool.Materialize();
    std::vector<ChunkHeader*> chunks;
    for (ChunkHeader* chunk = pool.FreeChunks(); chunk != nullptr; chunk = chunk->nextChunk) {
      chunks.push_back(chunk);
    }
    return chunks;
  }

  // The drop-in allocator's operations on the pool.
  void* Resize(void* pointer, size_t size) {
    return Quendal::Heap::PoolForCCallers<TestPool>::Resize(pool, pointer, size);
  }
  void* AllocCleared(size_t size) {
    return Quendal::Heap::PoolForCCallers<TestPool>::AllocCleared(pool, size);
  }

  ChunkHeader* ChunkNumber(size_t k) {
    pool.Materialize();
    return reinterpret_cast<ChunkHeader*>(pool.AlignedSegment() + k * pool.ChunkSize());
  }

  TestPool pool;
};

}  // namespace QuendalTest

#endif
