// Checks the pool's structure after each step of a test: every built chunk is
// on exactly one list, links agree in both directions, class chunks hold their
// class, used counts match the free blocks, free blocks lie on block
// boundaries inside their chunk.
#ifndef QUENDAL_TESTS_HEAP_POOL_INVARIANTS_H
#define QUENDAL_TESTS_HEAP_POOL_INVARIANTS_H

#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "heap/chunk_header.h"

namespace QuendalTest {

using Quendal::Heap::ChunkHeader;
using Quendal::Heap::kChunkHeaderSize;

template <class Pool>
::testing::AssertionResult CheckList(const Pool& pool, ChunkHeader* head, uint32_t blockSize,
                                     std::set<ChunkHeader*>& seen) {
  ChunkHeader* previous = nullptr;
  for (ChunkHeader* chunk = head; chunk != nullptr; chunk = chunk->nextChunk) {
    std::ostringstream where;
    where << "chunk " << chunk << " of list for block size " << blockSize;
    if (!seen.insert(chunk).second) {
      return ::testing::AssertionFailure() << where.str() << " is on two lists";
    }
    uintptr_t address = reinterpret_cast<uintptr_t>(chunk);
    if (!pool.Owns(chunk) || (address - pool.AlignedSegment()) % pool.ChunkSize() != 0) {
      return ::testing::AssertionFailure() << where.str() << " is not a chunk of the segment";
    }
    if (chunk->prevChunk != previous) {
      return ::testing::AssertionFailure() << where.str() << " has a wrong prevChunk";
    }
    if (chunk->chunkBytes != pool.ChunkSize() || chunk->blockSize != blockSize) {
      return ::testing::AssertionFailure() << where.str() << " has a wrong size";
    }
    if (blockSize == 0) {
      if (chunk->usedBlocks != 0) {
        return ::testing::AssertionFailure() << where.str() << " is free but has used blocks";
      }
    } else {
      size_t capacity = (chunk->chunkBytes - kChunkHeaderSize) / blockSize;
      size_t freeCount = 0;
      for (void* block = chunk->freeBlocks; block != nullptr; block = *static_cast<void**>(block)) {
        uintptr_t offset = reinterpret_cast<uintptr_t>(block) - address;
        if (offset < kChunkHeaderSize || (offset - kChunkHeaderSize) % blockSize != 0 ||
            (offset - kChunkHeaderSize) / blockSize >= capacity) {
          return ::testing::AssertionFailure() << where.str() << " lists a foreign block";
        }
        if (++freeCount > capacity) {
          return ::testing::AssertionFailure() << where.str() << " has a looping free list";
        }
      }
      if ((capacity - freeCount) % 65536 != chunk->usedBlocks) {
        return ::testing::AssertionFailure()
               << where.str() << " counts " << chunk->usedBlocks << " used blocks, free list says "
               << capacity - freeCount;
      }
    }
    previous = chunk;
  }
  return ::testing::AssertionSuccess();
}

template <class Pool>
::testing::AssertionResult PoolIsConsistent(const Pool& pool) {
  if (pool.Segment() == nullptr) {
    return pool.FreeChunks() == nullptr ? ::testing::AssertionSuccess()
                                        : ::testing::AssertionFailure() << "chunks without segment";
  }
  std::set<ChunkHeader*> seen;
  ::testing::AssertionResult result = CheckList(pool, pool.FreeChunks(), 0, seen);
  if (!result) {
    return result;
  }
  size_t freeListed = seen.size();
  uint32_t classes =
      pool.ClassCount() < pool.ClassTableEntries() ? pool.ClassCount() : pool.ClassTableEntries();
  for (uint32_t index = 0; index < classes; ++index) {
    result = CheckList(pool, pool.ClassChunk(index), (index + 1) * 8, seen);
    if (!result) {
      return result;
    }
  }
  size_t built = pool.SegmentBytes() / pool.ChunkSize();
  if (pool.ChunkSize() < kChunkHeaderSize) {
    built = 0;
  }
  if (seen.size() != built) {
    return ::testing::AssertionFailure()
           << seen.size() << " chunks on lists, " << built << " built";
  }
  // The free count starts at CHUNKS even when alignment cost a chunk.
  size_t missing = pool.ChunkCount() - built;
  if (pool.FreeChunkCount() != freeListed + missing) {
    return ::testing::AssertionFailure() << "free chunk count " << pool.FreeChunkCount() << " but "
                                         << freeListed << " chunks on the free list";
  }
  return ::testing::AssertionSuccess();
}

}  // namespace QuendalTest

#endif
