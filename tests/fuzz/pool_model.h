// An independent model of the pool chunk allocator: the chunk chain, the
// 8-byte classes, the class walk, carving, release and reallocation, kept in
// plain containers instead of headers inside the segment. Given the segment
// address and the overflow heap's results (which it reads from the recorded
// backing-heap calls), it predicts every address the pool returns and every
// call the pool makes to its backing heaps.
#ifndef QUENDAL_TESTS_FUZZ_POOL_MODEL_H
#define QUENDAL_TESTS_FUZZ_POOL_MODEL_H

#include <stddef.h>
#include <stdint.h>

#include <deque>
#include <utility>
#include <vector>

#include "fuzz/fuzz_backing_heaps.h"

namespace QuendalFuzz {

// Walks the recorded calls of one operation in order; every call the model
// expects must be the next one recorded, with the same arguments.
class HeapCallChecker {
 public:
  explicit HeapCallChecker(std::vector<HeapCall> calls) : m_calls(std::move(calls)), m_next(0) {}

  // Checks the next call and returns its result.
  void* Expect(HeapCall::Heap heap, HeapCall::Kind kind, void* pointer, size_t size);
  // Fails when the pool made calls the model did not expect.
  void ExpectNoMore() const;

 private:
  std::vector<HeapCall> m_calls;
  size_t m_next;
};

class PoolModel {
 public:
  PoolModel();

  // The chunk header's size on this target: six fields padded to the
  // fundamental alignment, so that every block is aligned as malloc's are.
  static size_t HeaderSize();

  void Configure(uint32_t chunkCount, uint32_t chunkSize, uint32_t maxBlockSize);
  void Initialize(HeapCallChecker& heaps);
  void* Alloc(size_t size, HeapCallChecker& heaps);
  void Free(void* pointer, HeapCallChecker& heaps);
  void* ReAlloc(void* pointer, size_t size, HeapCallChecker& heaps);

  bool Owns(const void* pointer) const;
  // The class size of the chunk holding a pooled block.
  uint32_t BlockSizeOf(const void* pointer) const;

  // What the pool's accessors must show.
  bool HasClassTable() const { return m_hasClassTable; }
  uint32_t ClassTableEntries() const { return m_tableEntries; }
  uintptr_t ClassHead(size_t index) const;
  uintptr_t FreeChunksHead() const;
  uintptr_t Segment() const { return m_segment; }
  uintptr_t AlignedSegment() const { return m_alignedSegment; }
  uint32_t SegmentBytes() const { return m_segmentBytes; }
  uint32_t FreeChunkCount() const { return m_freeChunkCount; }
  uint32_t ChunkCount() const { return m_chunkCount; }
  uint32_t ChunkSize() const { return m_chunkSize; }
  uint32_t MaxBlockSize() const { return m_maxBlockSize; }
  uint32_t ClassCount() const { return m_classCount; }
  size_t BuiltChunks() const { return m_chunks.size(); }
  // Chunks on the free chunk list.
  size_t FreeChunksListed() const { return m_freeList.size(); }

 private:
  struct Chunk {
    uint32_t blockSize;
    uint16_t usedBlocks;
    // Free blocks, the next one to hand out last.
    std::vector<uintptr_t> freeBlocks;
  };

  uintptr_t ChunkAddress(size_t chunk) const;
  size_t ChunkIndexOf(const void* pointer) const;
  bool IsPooledSize(size_t size) const;
  bool TakeFreeChunk(uint32_t blockSize, size_t* chunk);
  void Carve(size_t chunk, uint32_t blockSize);
  void* AllocFromClass(size_t size);
  void Release(void* pointer);

  uint32_t m_chunkCount;
  uint32_t m_chunkSize;
  uint32_t m_maxBlockSize;
  uint32_t m_classCount;
  bool m_configured;

  bool m_hasClassTable;
  uint32_t m_tableEntries;
  uintptr_t m_segment;
  uintptr_t m_alignedSegment;
  uint32_t m_segmentBytes;
  uint32_t m_freeChunkCount;
  // The chunk size the chain was built with.
  uint32_t m_builtChunkSize;

  std::vector<Chunk> m_chunks;
  // Chunk indices, list head first.
  std::deque<size_t> m_freeList;
  std::vector<std::deque<size_t> > m_classLists;
};

}  // namespace QuendalFuzz

#endif
