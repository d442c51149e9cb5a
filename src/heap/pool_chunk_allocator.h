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
        m_chunkMask(0),
        m_chunkShift(0),
        m_nextRank(1),
        m_carvedChunk(0),
        m_carvedLast(0),
        m_carvedBlockSize(0) {
    ForgetShortcuts();
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

  QD_ALWAYS_INLINE void* AllocFromClass(size_t size);
  QD_NOINLINE void* AllocWalking(uint32_t blockSize, size_t index);
  ChunkHeader* TakeFreeChunk(uint32_t blockSize);
  void Carve(ChunkHeader* chunk, uint32_t blockSize);
  QD_ALWAYS_INLINE void Release(void* pointer);
  QD_NOINLINE void ReturnChunk(ChunkHeader* chunk, size_t index);
  void BuildChunks();
  void UpdateGeometry();
  void ForgetShortcuts();
  ChunkHeader* WalkStart(size_t index, ChunkHeader* head) const {
    if (index < kHintedClasses && m_firstFreeHint[index] != 0) {
      return m_firstFreeHint[index];
    }
    return head;
  }
  void SetHint(size_t index, ChunkHeader* chunk) {
    if (index < kHintedClasses) {
      m_firstFreeHint[index] = chunk;
    }
  }
  uint32_t* RankSlot(const ChunkHeader* chunk) {
    uintptr_t offset = reinterpret_cast<uintptr_t>(chunk) - m_alignedSegment;
    uintptr_t number = m_chunkMask != 0 ? offset >> m_chunkShift : offset / m_chunkSize;
    return number < kRankedChunks ? &m_chunkRank[number] : 0;
  }
  void RankAsTail(ChunkHeader* chunk);
  void HintAfterFullChunkGotABlock(size_t index, ChunkHeader* chunk);

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
  // log2 of a power-of-two chunk size: a chunk's number in the segment.
  uint32_t m_chunkShift;

  // Where the walk of a class may start: every chunk ahead of its hint in
  // the class list is full, so the first chunk with a free block is the hint
  // or one behind it, exactly the chunk a walk from the head would find.
  // Null: walk from the head. The classes of the pool every process gets
  // (1024 bytes in 8-byte steps) have one; any further class walks from its
  // head.
  enum { kHintedClasses = 128 };
  ChunkHeader* m_firstFreeHint[kHintedClasses];

  // Order of the chunks within their class lists, to tell whether a full
  // chunk that gets a free block lies ahead of its class's hint. A chunk
  // joins a class list only at the tail (or as the only chunk) and the
  // lists never change order otherwise, so numbering chunks as they join
  // keeps, within each class, the smaller number ahead. 0: unknown (not
  // numbered yet, beyond the first kRankedChunks chunks, or numbers ran
  // out and were cleared); the hint then falls back to the head.
  enum { kRankedChunks = 1024 };
  uint32_t m_chunkRank[kRankedChunks];
  uint32_t m_nextRank;

  // A chunk whose free list, from its freeBlocks on, still reads exactly as
  // carving for m_carvedBlockSize wrote it (m_carvedLast is its last block):
  // blocks were only taken from the front and given back in the reverse
  // order. When such a chunk comes back whole and is given to the same
  // class again, carving it would write the very links it holds, so it is
  // not carved again. An allocate-and-free of a lone block empties and
  // re-assigns its chunk every time; this keeps that from costing a carve.
  ChunkHeader* m_carvedChunk;
  void* m_carvedLast;
  uint32_t m_carvedBlockSize;
};

template <class SegmentHeap, class OverflowHeap>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap>::ForgetShortcuts() {
  for (size_t index = 0; index < kHintedClasses; ++index) {
    m_firstFreeHint[index] = 0;
  }
  memset(m_chunkRank, 0, sizeof m_chunkRank);
  m_nextRank = 1;
  m_carvedChunk = 0;
  m_carvedLast = 0;
  m_carvedBlockSize = 0;
}

template <class SegmentHeap, class OverflowHeap>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap>::UpdateGeometry() {
  bool powerOfTwo = (m_chunkSize & (m_chunkSize - 1)) == 0;
  m_chunkMask = powerOfTwo ? ~static_cast<uintptr_t>(m_chunkSize - 1) : 0;
  m_chunkShift = 0;
  while (powerOfTwo && (static_cast<uint32_t>(1) << m_chunkShift) < m_chunkSize) {
    ++m_chunkShift;
  }

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
  ForgetShortcuts();

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
  for (uint32_t k = 0;
       static_cast<int32_t>(blockSize * (k + 1)) < static_cast<int32_t>(count * blockSize); ++k) {
    SetNextFreeBlock(block, block + blockSize);
    block += blockSize;
  }
  SetNextFreeBlock(block, 0);
  m_carvedChunk = chunk;
  m_carvedLast = block;
  m_carvedBlockSize = blockSize;
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
  if (chunk != m_carvedChunk || blockSize != m_carvedBlockSize ||
      chunk->freeBlocks != FirstBlock(chunk)) {
    Carve(chunk, blockSize);
  }
  --m_freeChunkCount;
  return chunk;
}

// The hot path: one comparison routes the request; when the class's hint
// chunk has a free block, that block is the one a walk from the head would
// find, and it is taken at once.
template <class SegmentHeap, class OverflowHeap>
void* ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap>::AllocFromClass(size_t size) {
  if (QD_UNLIKELY(size - 1 >= m_pooledLimit)) {
    return 0;
  }
  uint32_t blockSize = static_cast<uint32_t>(ClassSize(size));
  size_t index = ClassIndex(blockSize);
  if (QD_LIKELY(index < kHintedClasses)) {
    ChunkHeader* chunk = m_firstFreeHint[index];
    if (QD_LIKELY(chunk != 0)) {
      void* block = chunk->freeBlocks;
      if (QD_LIKELY(block != 0)) {
        chunk->freeBlocks = NextFreeBlock(block);
        ++chunk->usedBlocks;
        return block;
      }
    }
  }
  return AllocWalking(blockSize, index);
}

// Gives an empty class its first chunk, then walks the class's chunks from
// the hint (or the head) to the first with a free block, appending a chunk
// from the free chunk list behind the last one when all are full.
template <class SegmentHeap, class OverflowHeap>
void* ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap>::AllocWalking(uint32_t blockSize,
                                                                        size_t index) {
  // The routing limit is 0 without a class table, so this never returns
  // here; it keeps the table's absence from being dereferenced regardless.
  if (m_classChunks == 0) {
    return 0;
  }
  ChunkHeader** head = &m_classChunks[index];
  ChunkHeader* chunk = *head;
  if (chunk == 0) {
    chunk = TakeFreeChunk(blockSize);
    if (chunk == 0) {
      return 0;
    }
    *head = chunk;
    RankAsTail(chunk);
  } else {
    chunk = WalkStart(index, chunk);
  }
  for (;;) {
    void* block = chunk->freeBlocks;
    if (block != 0) {
      chunk->freeBlocks = NextFreeBlock(block);
      ++chunk->usedBlocks;
      SetHint(index, chunk);
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
    RankAsTail(appended);
    chunk = appended;
  }
}

template <class SegmentHeap, class OverflowHeap>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap>::RankAsTail(ChunkHeader* chunk) {
  uint32_t* slot = RankSlot(chunk);
  if (slot == 0) {
    return;
  }
  if (m_nextRank == 0) {
    // The numbers wrapped: forget them all rather than misorder two chunks.
    memset(m_chunkRank, 0, sizeof m_chunkRank);
    m_nextRank = 1;
  }
  *slot = m_nextRank++;
}

// A full chunk of the class got a free block. If it lies ahead of the hint
// it is now the first chunk with a free block; behind it, the hint stands.
template <class SegmentHeap, class OverflowHeap>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap>::HintAfterFullChunkGotABlock(
    size_t index, ChunkHeader* chunk) {
  if (index >= kHintedClasses) {
    return;
  }
  ChunkHeader* hint = m_firstFreeHint[index];
  if (hint == 0 || hint == chunk) {
    return;
  }
  uint32_t* chunkRank = RankSlot(chunk);
  uint32_t* hintRank = RankSlot(hint);
  if (chunkRank == 0 || hintRank == 0 || *chunkRank == 0 || *hintRank == 0) {
    m_firstFreeHint[index] = 0;
  } else if (*chunkRank < *hintRank) {
    m_firstFreeHint[index] = chunk;
  }
}

template <class SegmentHeap, class OverflowHeap>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap>::Release(void* pointer) {
  ChunkHeader* chunk = ChunkOf(pointer);
  // Read apart: one wide load of both fields would wait for the two
  // narrower stores that just wrote them.
  uint16_t usedBlocks = chunk->usedBlocks;
  uint32_t blockSize = chunk->blockSize;
  // A late second release of a block whose chunk is already free again.
  if (QD_UNLIKELY(usedBlocks == 0) && blockSize == 0) {
    return;
  }
  void* firstFree = chunk->freeBlocks;
  if (chunk == m_carvedChunk) {
    // Only the block just in front of the free list (the last one while the
    // chunk is full) comes back to the place carving gave it.
    void* expected =
        firstFree != 0 ? static_cast<unsigned char*>(firstFree) - m_carvedBlockSize : m_carvedLast;
    if (pointer != expected) {
      m_carvedChunk = 0;
    }
  }
  SetNextFreeBlock(pointer, firstFree);
  chunk->freeBlocks = pointer;
  --usedBlocks;
  chunk->usedBlocks = usedBlocks;
  size_t index = ClassIndex(blockSize);
  if (QD_UNLIKELY(firstFree == 0) && blockSize != 0) {
    HintAfterFullChunkGotABlock(index, chunk);
  }
  if (QD_LIKELY(usedBlocks != 0) || blockSize == 0) {
    return;
  }
  ReturnChunk(chunk, index);
}

// The chunk is empty: it leaves its class at once for the front of the free
// chunk list.
template <class SegmentHeap, class OverflowHeap>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap>::ReturnChunk(ChunkHeader* chunk,
                                                                      size_t index) {
  if (chunk->prevChunk != 0) {
    chunk->prevChunk->nextChunk = chunk->nextChunk;
    if (chunk->nextChunk != 0) {
      chunk->nextChunk->prevChunk = chunk->prevChunk;
    }
  } else {
    if (index >= m_classCount || index >= m_classTableEntries) {
      return;
    }
    m_classChunks[index] = chunk->nextChunk;
    if (chunk->nextChunk != 0) {
      chunk->nextChunk->prevChunk = 0;
    }
  }
  if (index < kHintedClasses && m_firstFreeHint[index] == chunk) {
    // Every chunk ahead of it was full; its neighbour keeps that true.
    m_firstFreeHint[index] = chunk->nextChunk != 0 ? chunk->nextChunk : chunk->prevChunk;
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
