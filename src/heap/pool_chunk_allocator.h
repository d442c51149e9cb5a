// The pool chunk allocator, a class template over its backing heaps.
//
// SegmentHeap provides the one segment the pool carves; OverflowHeap serves
// every request the pool does not (too large, pool exhausted, no segment) and
// takes back every pointer outside the segment. Both are policies with static
// members:
//   static void* Alloc(size_t size);
//   static void* ReAlloc(void* pointer, size_t size);
//   static void Free(void* pointer);
// The library uses ExtraHeapAllocator for both; tests use scripted heaps that
// hand out misaligned, short or no segments on cue.
//
// The segment is cut into chunks that start at multiples of the chunk size,
// so the chunk of any pooled block is its address rounded down to a multiple
// of the chunk size, and blocks carry no header. A chunk serves one 8-byte
// class at a time and goes back to the free chunk list, last in first out,
// when its last block is released. Not thread-safe: LockedAllocator adds the
// lock.
#ifndef QUENDAL_HEAP_POOL_CHUNK_ALLOCATOR_H
#define QUENDAL_HEAP_POOL_CHUNK_ALLOCATOR_H

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "heap/chunk_header.h"
#include "heap/size_class.h"
#include "util/compiler.h"

namespace Quendal {
namespace Heap {

template <class SegmentHeap, class OverflowHeap>
class ConfigPoolChunkAllocator {
 public:
  // The smallest working pool: one 16-byte chunk serving 8-byte requests.
  // Configure replaces these in every configured process.
  ConfigPoolChunkAllocator()
      : m_classChunks(0),
        m_freeChunks(0),
        m_segment(0),
        m_alignedSegment(0),
        m_segmentBytes(0),
        m_freeChunkCount(0),
        m_chunkCount(1),
        m_chunkSize(16),
        m_maxBlockSize(8),
        m_configured(0),
        m_classCount(1),
        m_classTableEntries(0),
        m_pooledLimit(0),
        m_chunkMask(0) {
    UpdateGeometry();
  }

  // Adopts the three parameters once; later calls change nothing. A chunk
  // count of 0 becomes 1, a chunk size below 16 becomes 16, a largest pooled
  // size below 8 becomes 8 with one class. The largest size is not rounded:
  // with 20 there are two classes and 17 to 20 bytes go to OverflowHeap.
  void Configure(uint32_t chunkCount, uint32_t chunkSize, uint32_t maxBlockSize) {
    if (m_configured) {
      return;
    }
    m_chunkCount = chunkCount != 0 ? chunkCount : 1;
    m_chunkSize = chunkSize > 15 ? chunkSize : 16;
    m_maxBlockSize = maxBlockSize;
    m_configured = 1;
    if (m_maxBlockSize > 7) {
      m_classCount = m_maxBlockSize >> 3;
    } else {
      m_classCount = 1;
      m_maxBlockSize = 8;
    }
    UpdateGeometry();
  }

  // Takes the segment and builds the free chunk list in address order. Does
  // nothing once a segment exists; a failed request leaves the pool as it was
  // and the next allocation retries.
  void Initialize();

  // Returns a block of at least size (> 0) bytes: pool first, OverflowHeap
  // for everything the pool cannot serve; null only when OverflowHeap fails.
  void* Alloc(size_t size) {
    if (QD_UNLIKELY(m_classChunks == 0)) {
      Initialize();
    }
    void* block = AllocFromClass(size);
    if (QD_LIKELY(block != 0)) {
      return block;
    }
    return OverflowHeap::Alloc(size);
  }

  // Takes back a non-null pointer: a block of the segment returns to its
  // chunk, any other pointer goes to OverflowHeap. While the class table is
  // absent (no segment yet) the release is dropped.
  void Free(void* pointer) {
    if (QD_UNLIKELY(m_classChunks == 0)) {
      return;
    }
    if (QD_UNLIKELY(!Owns(pointer))) {
      OverflowHeap::Free(pointer);
      return;
    }
    Release(pointer);
  }

  // Moves a pooled block (never in place) or passes a foreign pointer to
  // OverflowHeap's ReAlloc. Returns the new block, or null when size is 0 or
  // no new block could be obtained; the old pooled block is released in
  // every case.
  void* ReAlloc(void* pointer, size_t size);

  // True when pointer lies inside the built part of the aligned segment.
  bool Owns(const void* pointer) const {
    return m_segment != 0 &&
           reinterpret_cast<uintptr_t>(pointer) - m_alignedSegment < m_segmentBytes;
  }

  uint8_t IsConfigured() const { return m_configured; }

  // Read access for diagnostics and tests.
  ChunkHeader* ClassChunk(size_t index) const { return m_classChunks[index]; }
  ChunkHeader** ClassTable() const { return m_classChunks; }
  ChunkHeader* FreeChunks() const { return m_freeChunks; }
  void* Segment() const { return m_segment; }
  uintptr_t AlignedSegment() const { return m_alignedSegment; }
  uint32_t SegmentBytes() const { return m_segmentBytes; }
  uint32_t FreeChunkCount() const { return m_freeChunkCount; }
  uint32_t ChunkCount() const { return m_chunkCount; }
  uint32_t ChunkSize() const { return m_chunkSize; }
  uint32_t MaxBlockSize() const { return m_maxBlockSize; }
  uint32_t ClassCount() const { return m_classCount; }
  uint32_t ClassTableEntries() const { return m_classTableEntries; }
  ChunkHeader* ChunkOf(const void* pointer) const {
    uintptr_t address = reinterpret_cast<uintptr_t>(pointer);
    if (m_chunkMask != 0) {
      return ChunkAt(address & m_chunkMask);
    }
    return ChunkAt(address / m_chunkSize * m_chunkSize);
  }

 private:
  ConfigPoolChunkAllocator(const ConfigPoolChunkAllocator&);
  ConfigPoolChunkAllocator& operator=(const ConfigPoolChunkAllocator&);

  void* AllocFromClass(size_t size);
  ChunkHeader* TakeFreeChunk(uint32_t blockSize);
  void Carve(ChunkHeader* chunk, uint32_t blockSize);
  void Release(void* pointer);
  void BuildChunks();
  void UpdateGeometry();

  ChunkHeader** m_classChunks;
  ChunkHeader* m_freeChunks;
  void* m_segment;
  uintptr_t m_alignedSegment;
  uint32_t m_segmentBytes;
  uint32_t m_freeChunkCount;
  uint32_t m_chunkCount;
  uint32_t m_chunkSize;
  uint32_t m_maxBlockSize;
  uint8_t m_configured;
  uint32_t m_classCount;

  // Derived from the fields above by UpdateGeometry.
  // Entries the class table was allocated with; classes at or past it are
  // never indexed, even if Configure raised m_classCount afterwards.
  uint32_t m_classTableEntries;
  // Largest size a class serves: the smaller of m_maxBlockSize, the classes
  // the table holds and the largest block that fits a chunk behind its
  // header; 0 while nothing can be pooled. One comparison routes a request.
  size_t m_pooledLimit;
  // ~(m_chunkSize - 1) for a power-of-two chunk size, else 0 (divide).
  uintptr_t m_chunkMask;
};

template <class SegmentHeap, class OverflowHeap>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap>::UpdateGeometry() {
  bool powerOfTwo = (m_chunkSize & (m_chunkSize - 1)) == 0;
  m_chunkMask = powerOfTwo ? ~static_cast<uintptr_t>(m_chunkSize - 1) : 0;

  size_t limit = 0;
  if (m_segment != 0 && m_classChunks != 0 && m_chunkSize >= kChunkHeaderSize) {
    uint32_t classes = m_classCount < m_classTableEntries ? m_classCount : m_classTableEntries;
    limit = static_cast<size_t>(classes) * kClassGranule;
    if (m_maxBlockSize < limit) {
      limit = m_maxBlockSize;
    }
    // A chunk too small for one block of a class must not serve it: the
    // block would reach into the next chunk or past the segment.
    size_t fitting = (m_chunkSize - kChunkHeaderSize) & ~(kClassGranule - 1);
    if (fitting < limit) {
      limit = fitting;
    }
  }
  m_pooledLimit = limit;
}

template <class SegmentHeap, class OverflowHeap>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap>::Initialize() {
  if (m_segment != 0) {
    return;
  }
  m_freeChunkCount = m_chunkCount;
  m_segmentBytes = m_chunkCount * m_chunkSize;
  m_segment = SegmentHeap::Alloc(m_segmentBytes);
  if (m_segment == 0) {
    return;
  }
  if (m_classChunks == 0) {
    m_classChunks = static_cast<ChunkHeader**>(malloc(m_classCount * sizeof(ChunkHeader*)));
    if (m_classChunks == 0) {
      // Without a class table the segment cannot be used: give it back and
      // stay uninitialised, as after a failed segment request.
      SegmentHeap::Free(m_segment);
      m_segment = 0;
      m_segmentBytes = 0;
      return;
    }
    m_classTableEntries = m_classCount;
  }
  memset(m_classChunks, 0, m_classTableEntries * sizeof(ChunkHeader*));

  uintptr_t segment = reinterpret_cast<uintptr_t>(m_segment);
  m_alignedSegment = (segment + m_chunkSize - 1) / m_chunkSize * m_chunkSize;
  if (m_alignedSegment != segment) {
    // The last chunk is given up to the alignment. A segment shorter than
    // one chunk keeps no usable bytes rather than a wrapped count.
    m_segmentBytes = m_segmentBytes >= m_chunkSize ? m_segmentBytes - m_chunkSize : 0;
  }
  BuildChunks();
  UpdateGeometry();
}

template <class SegmentHeap, class OverflowHeap>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap>::BuildChunks() {
  m_freeChunks = 0;
  // Only whole chunks that lie inside the segment and can hold their header
  // are built, and only at addresses where a header may be written: with
  // CHUNKS 1 and a misaligned segment, a wrapped segment size or a chunk
  // smaller than its header the pool has no chunk and serves nothing.
  if (m_chunkSize < kChunkHeaderSize || m_chunkSize > m_segmentBytes ||
      m_chunkSize % __alignof__(ChunkHeader) != 0) {
    return;
  }
  ChunkHeader* previous = 0;
  uint32_t offset = 0;
  do {
    ChunkHeader* chunk = ChunkAt(m_alignedSegment + offset);
    chunk->chunkBytes = m_chunkSize;
    chunk->prevChunk = previous;
    chunk->nextChunk = 0;
    // Never read: carving sets it before the chunk serves a block.
    chunk->freeBlocks = previous == 0 ? FirstBlock(chunk) : 0;
    chunk->usedBlocks = 0;
    chunk->unused = 0;
    chunk->blockSize = 0;
    if (previous != 0) {
      previous->nextChunk = chunk;
    } else {
      m_freeChunks = chunk;
    }
    previous = chunk;
    offset += m_chunkSize;
    // The byte count is compared as a signed 32-bit value: a segment of 2 GiB
    // or more builds its first chunk only.
  } while (static_cast<int32_t>(offset) < static_cast<int32_t>(m_segmentBytes) &&
           m_segmentBytes - offset >= m_chunkSize);
}

template <class SegmentHeap, class OverflowHeap>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap>::Carve(ChunkHeader* chunk,
                                                                uint32_t blockSize) {
  unsigned char* first = static_cast<unsigned char*>(FirstBlock(chunk));
  uint32_t count = static_cast<uint32_t>((chunk->chunkBytes - kChunkHeaderSize) / blockSize);
  chunk->freeBlocks = first;
  unsigned char* block = first;
  // Compared as signed 32-bit values: with 0 or 1 blocks only the first is
  // listed (the routing limit guarantees it fits).
  for (uint32_t k = 0; static_cast<int32_t>(blockSize * (k + 1)) <
                       static_cast<int32_t>(count * blockSize);
       ++k) {
    SetNextFreeBlock(block, block + blockSize);
    block += blockSize;
  }
  SetNextFreeBlock(block, 0);
}

template <class SegmentHeap, class OverflowHeap>
ChunkHeader* ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap>::TakeFreeChunk(
    uint32_t blockSize) {
  ChunkHeader* chunk = m_freeChunks;
  if (chunk == 0) {
    return 0;
  }
  m_freeChunks = chunk->nextChunk;
  if (m_freeChunks != 0) {
    m_freeChunks->prevChunk = 0;
  }
  chunk->blockSize = blockSize;
  chunk->nextChunk = 0;
  Carve(chunk, blockSize);
  --m_freeChunkCount;
  return chunk;
}

// The hot path: one comparison routes the request, then the class's chunks
// are walked from its head to the first with a free block. A pop costs a few
// loads and stores; only a full class list makes the walk longer.
template <class SegmentHeap, class OverflowHeap>
void* ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap>::AllocFromClass(size_t size) {
  if (QD_UNLIKELY(size - 1 >= m_pooledLimit)) {
    return 0;
  }
  uint32_t blockSize = static_cast<uint32_t>(ClassSize(size));
  ChunkHeader** head = &m_classChunks[ClassIndex(blockSize)];
  ChunkHeader* chunk = *head;
  if (QD_UNLIKELY(chunk == 0)) {
    chunk = TakeFreeChunk(blockSize);
    if (chunk == 0) {
      return 0;
    }
    *head = chunk;
  }
  for (;;) {
    void* block = chunk->freeBlocks;
    if (QD_LIKELY(block != 0)) {
      chunk->freeBlocks = NextFreeBlock(block);
      ++chunk->usedBlocks;
      return block;
    }
    if (chunk->nextChunk != 0) {
      chunk = chunk->nextChunk;
      continue;
    }
    ChunkHeader* appended = TakeFreeChunk(blockSize);
    if (appended == 0) {
      return 0;
    }
    chunk->nextChunk = appended;
    appended->prevChunk = chunk;
    chunk = appended;
  }
}

template <class SegmentHeap, class OverflowHeap>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap>::Release(void* pointer) {
  ChunkHeader* chunk = ChunkOf(pointer);
  // A late second release of a block whose chunk is already free again.
  if (chunk->usedBlocks == 0 && chunk->blockSize == 0) {
    return;
  }
  SetNextFreeBlock(pointer, chunk->freeBlocks);
  chunk->freeBlocks = pointer;
  --chunk->usedBlocks;
  if (QD_LIKELY(chunk->usedBlocks != 0) || chunk->blockSize == 0) {
    return;
  }

  // The chunk is empty: it leaves its class at once.
  if (chunk->prevChunk != 0) {
    chunk->prevChunk->nextChunk = chunk->nextChunk;
    if (chunk->nextChunk != 0) {
      chunk->nextChunk->prevChunk = chunk->prevChunk;
    }
  } else {
    size_t index = ClassIndex(chunk->blockSize);
    if (index >= m_classCount || index >= m_classTableEntries) {
      return;
    }
    m_classChunks[index] = chunk->nextChunk;
    if (chunk->nextChunk != 0) {
      chunk->nextChunk->prevChunk = 0;
    }
  }
  if (m_freeChunks != 0) {
    m_freeChunks->prevChunk = chunk;
  }
  chunk->nextChunk = m_freeChunks;
  chunk->prevChunk = 0;
  m_freeChunks = chunk;
  chunk->blockSize = 0;
  ++m_freeChunkCount;
}

template <class SegmentHeap, class OverflowHeap>
void* ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap>::ReAlloc(void* pointer, size_t size) {
  // Ownership is tested first: null and foreign blocks never enter the pool.
  if (!Owns(pointer)) {
    return OverflowHeap::ReAlloc(pointer, size);
  }
  if (size == 0) {
    if (m_classChunks != 0) {
      Release(pointer);
    }
    return 0;
  }
  if (m_classChunks == 0) {
    Initialize();
  }
  size_t oldSize = ChunkOf(pointer)->blockSize;
  size_t copied = oldSize < size ? oldSize : size;
  void* block = AllocFromClass(size);
  if (block == 0) {
    block = OverflowHeap::Alloc(size);
  }
  if (block != 0) {
    memcpy(block, pointer, copied);
  }
  // The old block goes even when no new one was obtained.
  if (m_classChunks != 0) {
    if (Owns(pointer)) {
      Release(pointer);
    } else {
      OverflowHeap::Free(pointer);
    }
  }
  return block;
}

}  // namespace Heap
}  // namespace Quendal

#endif
