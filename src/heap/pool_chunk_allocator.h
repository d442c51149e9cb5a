// The pool chunk allocator, a class template over its backing heaps and its
// shortcuts.
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
// when its last block is released. A request takes the first free block of
// the first chunk of its class list that has one; a class whose chunks are
// all full gets the first free chunk at its list's tail.
//
// Shortcuts (pool_shortcuts.h) change how the pool finds chunks and blocks,
// never which ones it hands out: with NoPoolShortcuts this template is the
// plain algorithm, and the tests run it in lockstep with the library's
// AllPoolShortcuts. CheckPoolInvariants (pool_invariant_checker.h) checks the lists
// and every shortcut's invariant. Not thread-safe: LockedAllocator adds the
// lock.
//
// A memory checker watching the process (platform/memory_checker.h) sees
// every block of a pool over a heap that shows its blocks to checkers as an
// allocation of its own. While one watches, allocations skip the inline
// fast path, so without one the release path alone pays one test of a flag.
#ifndef QUENDAL_HEAP_POOL_CHUNK_ALLOCATOR_H
#define QUENDAL_HEAP_POOL_CHUNK_ALLOCATOR_H

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "heap/carve_record.h"
#include "heap/chunk_header.h"
#include "heap/deferred_chunk_return.h"
#include "heap/first_free_index.h"
#include "heap/lazy_chunk_building.h"
#include "heap/pool_counters.h"
#include "heap/pool_shortcuts.h"
#include "heap/size_class.h"
#include "platform/memory_checker.h"
#include "quendal/heap_stats.h"
#include "util/compiler.h"

namespace Quendal {
namespace Heap {

template <class Pool>
const char* CheckPoolInvariants(const Pool& pool);
template <class Pool>
void ReadPoolStats(const Pool& pool, QDHeapStats& stats);

template <class SegmentHeap, class OverflowHeap, class Shortcuts = AllPoolShortcuts>
class ConfigPoolChunkAllocator {
 public:
  typedef Shortcuts ShortcutSet;

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
        m_fastLimit(0),
        m_chunkMask(0),
        m_chunkShift(0),
        m_laidOutChunks(0),
        m_countedChunks(0) {
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

  // Takes the segment and lays out the free chunk list in address order.
  // Does nothing once a segment exists; a failed request leaves the pool as
  // it was and the next allocation retries.
  void Initialize();

  // Returns a block of at least size (> 0) bytes: pool first, OverflowHeap
  // for everything the pool cannot serve; null only when OverflowHeap fails.
  // The fast path: with the first-free index, the class's first chunk with a
  // free block is at hand, and its first free block is popped inline.
  QD_ALWAYS_INLINE void* Alloc(size_t size) {
    if (Shortcuts::kFirstFreeIndex && QD_LIKELY(size - 1 < m_fastLimit)) {
      size_t index = ClassIndex(ClassSize(size));
      ChunkHeader* chunk = m_index.First(index);
      if (QD_LIKELY(chunk != 0)) {
        return TakeBlock(index, chunk);
      }
    }
    return AllocOutOfLine(size);
  }

  // Takes back a non-null pointer: a block of the segment returns to its
  // chunk, any other pointer goes to OverflowHeap. While the class table is
  // absent (no segment yet) the release is dropped.
  QD_ALWAYS_INLINE void Free(void* pointer) {
    if (QD_UNLIKELY(m_classChunks == 0)) {
      return;
    }
    if (QD_UNLIKELY(!Owns(pointer))) {
      OverflowHeap::Free(pointer);
      return;
    }
    Release(pointer);
  }

  // Alloc for a caller that needs the block zeroed. A size the classes never
  // serve goes to OverflowHeap's AllocCleared, which gets it zeroed without
  // writing it; every other block is cleared here. Only the drop-in
  // allocator's calloc calls it, so OverflowHeap needs it only there.
  void* AllocCleared(size_t size) {
    if (m_classChunks != 0 && !IsPooledSize(size)) {
      m_counters.Overflowed(false);
      return OverflowHeap::AllocCleared(size);
    }
    void* block = Alloc(size);
    if (block != 0) {
      memset(block, 0, size);
    }
    return block;
  }

  // Reallocation for C callers (the drop-in allocator's realloc) of a block
  // the pool owns to size (> 0) bytes. A block whose class is size's already
  // stays where it is, unless a memory checker watches (it knows the block
  // by the size first asked for); any other block moves as ReAlloc moves
  // it, except that the old block stays when no new one can be had (null).
  void* Resize(void* pointer, size_t size) {
    size_t oldSize = BlockSizeOf(pointer);
    if (oldSize != 0 && oldSize == ClassSize(size) && !m_checker.Active()) {
      return pointer;
    }
    void* block = Alloc(size);
    if (block == 0) {
      return 0;
    }
    size_t copied = oldSize < size ? oldSize : size;
    m_checker.BlockCopied(pointer, copied);
    memcpy(block, pointer, copied);
    Free(pointer);
    return block;
  }

  // Moves a pooled block (never in place) or passes a foreign pointer to
  // OverflowHeap's ReAlloc. Returns the new block, or null when size is 0 or
  // no new block could be obtained; the old pooled block is released in
  // every case.
  void* ReAlloc(void* pointer, size_t size);

  // True when pointer lies inside the usable part of the aligned segment.
  bool Owns(const void* pointer) const {
    return m_segment != 0 &&
           reinterpret_cast<uintptr_t>(pointer) - m_alignedSegment < m_segmentBytes;
  }

  // The class size of the pooled block at pointer, which the pool owns; 0
  // when its chunk is free.
  uint32_t BlockSizeOf(const void* pointer) const {
    ChunkHeader* chunk = ChunkOf(pointer);
    if (IsFreeChunk(chunk)) {
      return 0;
    }
    return chunk->blockSize;
  }

  uint8_t IsConfigured() const { return m_configured; }

  // Read access for diagnostics and tests, as the lists read to a caller:
  // a chunk whose return is deferred already heads the free chunk list, and
  // chunks not yet built follow the chunks on it.
  ChunkHeader* ClassChunk(size_t index) const {
    ChunkHeader* head = m_classChunks[index];
    return head != 0 && head == DeferredChunk() ? head->nextChunk : head;
  }
  ChunkHeader** ClassTable() const { return m_classChunks; }
  ChunkHeader* FreeChunks() const {
    if (DeferredChunk() != 0) {
      return DeferredChunk();
    }
    if (m_freeChunks == 0 && Shortcuts::kLazyBuilding && m_building.Unbuilt() != 0) {
      return ChunkAt(m_building.Next());
    }
    return m_freeChunks;
  }
  void* Segment() const { return m_segment; }
  uintptr_t AlignedSegment() const { return m_alignedSegment; }
  uint32_t SegmentBytes() const { return m_segmentBytes; }
  uint32_t FreeChunkCount() const { return m_freeChunkCount; }
  uint32_t ChunkCount() const { return m_chunkCount; }
  uint32_t ChunkSize() const { return m_chunkSize; }
  uint32_t MaxBlockSize() const { return m_maxBlockSize; }
  uint32_t ClassCount() const { return m_classCount; }
  uint32_t ClassTableEntries() const { return m_classTableEntries; }
  // Chunks laid out in the segment, built or still to build.
  uint32_t LaidOutChunks() const { return m_laidOutChunks; }
  ChunkHeader* ChunkOf(const void* pointer) const {
    uintptr_t address = reinterpret_cast<uintptr_t>(pointer);
    if (m_chunkMask != 0) {
      return ChunkAt(address & m_chunkMask);
    }
    return ChunkAt(address / m_chunkSize * m_chunkSize);
  }

  // Writes every header a pool without shortcuts would hold: builds the
  // chunks not yet built and settles a deferred return. Nothing a caller
  // sees changes; tests call it before they read headers.
  void Materialize();

 private:
  template <class Pool>
  friend const char* CheckPoolInvariants(const Pool& pool);
  template <class Pool>
  friend void ReadPoolStats(const Pool& pool, QDHeapStats& stats);

  ConfigPoolChunkAllocator(const ConfigPoolChunkAllocator&);
  ConfigPoolChunkAllocator& operator=(const ConfigPoolChunkAllocator&);

  QD_NOINLINE void* AllocOutOfLine(size_t size) {
    if (QD_UNLIKELY(m_classChunks == 0)) {
      Initialize();
    }
    void* block = AllocFromClass(size);
    if (block != 0) {
      return block;
    }
    m_counters.Overflowed(IsPooledSize(size));
    return OverflowHeap::Alloc(size);
  }
  // True when the classes serve size, so that only a missing chunk sends it
  // to OverflowHeap; without a segment, when the configuration would pool it.
  bool IsPooledSize(size_t size) const {
    if (m_segment == 0) {
      return size - 1 < m_maxBlockSize;
    }
    return size - 1 < m_pooledLimit;
  }
  void* AllocFromClass(size_t size);
  ChunkHeader* FirstChunkWithAFreeBlock(size_t index) const;
  ChunkHeader* ClassTail(size_t index) const;
  ChunkHeader* AssignFreeChunk(size_t index, uint32_t blockSize);
  ChunkHeader* ReadoptDeferredChunk(uint32_t blockSize);
  ChunkHeader* TakeFreeChunk();
  void PushFreeChunk(ChunkHeader* chunk);
  void AppendToClass(size_t index, ChunkHeader* chunk);
  void UnlinkFromClass(size_t index, ChunkHeader* chunk);
  void SettleDeferredChunk();
  void Carve(ChunkHeader* chunk, uint32_t blockSize);
  ChunkHeader* BuildNextChunk();
  QD_NOINLINE void PushReleasedBlock(void* pointer, void* firstFree, uint32_t blockSize);
  // Pops the chunk's first free block. A parked deferred chunk is taken
  // back by this, its class's next allocation.
  QD_ALWAYS_INLINE void* TakeBlock(size_t index, ChunkHeader* chunk) {
    void* block = chunk->freeBlocks;
    void* next = NextFreeBlock(block);
    chunk->freeBlocks = next;
    uint16_t usedBlocks = chunk->usedBlocks;
    chunk->usedBlocks = static_cast<uint16_t>(usedBlocks + 1);
    // Taking a parked chunk back brings the free chunk count down to what it
    // was before the chunk was parked (nothing else changes the count while
    // a chunk is parked), never to a new low: the fast path counts nothing.
    if (Shortcuts::kDeferredReturn && QD_UNLIKELY(usedBlocks == 0) && chunk == m_deferred.Chunk()) {
      m_deferred.Clear();
      --m_freeChunkCount;
    }
    if (QD_UNLIKELY(next == 0)) {
      ChunkFilled(index);
    }
    return block;
  }
  QD_NOINLINE void ChunkFilled(size_t index) {
    if (Indexed()) {
      m_index.RemoveFirst(index);
    }
  }
  QD_NOINLINE void ChunkGotAFreeBlock(size_t index, ChunkHeader* chunk) {
    if (Indexed()) {
      m_index.Insert(index, chunk);
    }
  }
  QD_ALWAYS_INLINE void Release(void* pointer);
  // True when the emptied chunk, with no other return deferred, may be
  // parked (deferred_chunk_return.h).
  QD_ALWAYS_INLINE bool CanPark(size_t index, ChunkHeader* chunk, uint32_t blockSize) const {
    return Shortcuts::kDeferredReturn && Shortcuts::kCarveRecord && Indexed() &&
           DeferredChunk() == 0 && index < m_classCount &&
           m_carved.ReadsAsCarved(chunk, blockSize) && m_index.HoldsOnly(index, chunk) &&
           m_index.Tail(index) == chunk;
  }
  QD_NOINLINE void ReturnChunk(ChunkHeader* chunk, size_t index);
  void BuildChunks();
  uint32_t BuildableChunks() const;
  void UpdateGeometry();

  bool Indexed() const { return Shortcuts::kFirstFreeIndex && m_index.Active(); }
  ChunkHeader* DeferredChunk() const { return Shortcuts::kDeferredReturn ? m_deferred.Chunk() : 0; }
  // True when a release into chunk is to be ignored: the chunk is on the
  // free chunk list, as far as a caller can tell.
  bool IsFreeChunk(ChunkHeader* chunk) const {
    if (Shortcuts::kLazyBuilding && !m_building.IsBuilt(reinterpret_cast<uintptr_t>(chunk))) {
      return true;
    }
    return (chunk->usedBlocks == 0 && chunk->blockSize == 0) || chunk == DeferredChunk();
  }

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
  // m_pooledLimit while the first-free index is active, else 0.
  size_t m_fastLimit;
  // ~(m_chunkSize - 1) for a power-of-two chunk size, else 0 (divide).
  uintptr_t m_chunkMask;
  // log2 of a power-of-two chunk size, else 0.
  uint32_t m_chunkShift;
  // Chunks laid out by Initialize, and m_chunkCount as it was then (a
  // Configure after Initialize changes the count, not the segment).
  uint32_t m_laidOutChunks;
  uint32_t m_countedChunks;

  LazyChunkBuilding m_building;
  DeferredChunkReturn m_deferred;
  FirstFreeIndex m_index;
  CarveRecord m_carved;
  Platform::MemoryChecker m_checker;
  PoolCounters m_counters;
};

template <class SegmentHeap, class OverflowHeap, class Shortcuts>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::UpdateGeometry() {
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
  // A checker sees each block handed out, which the fast path does not tell.
  m_fastLimit = Indexed() && !m_checker.Active() ? limit : 0;
}

template <class SegmentHeap, class OverflowHeap, class Shortcuts>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::Initialize() {
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
  if (Platform::ShowsBlocksToMemoryCheckers<SegmentHeap>::kValue) {
    m_checker.Start(m_segment, m_segmentBytes);
  }

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

// Only whole chunks that lie inside the segment and can hold their header
// are built, and only at addresses where a header may be written: with
// CHUNKS 1 and a misaligned segment, a wrapped segment size or a chunk
// smaller than its header the pool has no chunk and serves nothing. The
// byte count is compared as a signed 32-bit value: a segment of 2 GiB or
// more builds its first chunk only.
template <class SegmentHeap, class OverflowHeap, class Shortcuts>
uint32_t ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::BuildableChunks() const {
  if (m_chunkSize < kChunkHeaderSize || m_chunkSize > m_segmentBytes ||
      m_chunkSize % __alignof__(ChunkHeader) != 0) {
    return 0;
  }
  if (static_cast<int32_t>(m_segmentBytes) < 0) {
    return 1;
  }
  return m_segmentBytes / m_chunkSize;
}

template <class SegmentHeap, class OverflowHeap, class Shortcuts>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::BuildChunks() {
  m_freeChunks = 0;
  m_deferred.Clear();
  m_carved.Forget();
  uint32_t count = BuildableChunks();
  m_laidOutChunks = count;
  m_countedChunks = m_chunkCount;
  m_building.Start(m_alignedSegment, m_alignedSegment, m_chunkSize);
  if (count == 0) {
    return;
  }
  if (Shortcuts::kFirstFreeIndex) {
    m_index.Start(m_alignedSegment, m_chunkSize, m_chunkShift, count, m_classTableEntries);
  }
  uint32_t built = Shortcuts::kLazyBuilding ? 1 : count;
  ChunkHeader* previous = 0;
  for (uint32_t number = 0; number < built; ++number) {
    ChunkHeader* chunk = ChunkAt(m_alignedSegment + static_cast<uintptr_t>(number) * m_chunkSize);
    m_checker.MakeAccessible(chunk, kChunkHeaderSize);
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
  }
  uintptr_t builtEnd = m_alignedSegment + static_cast<uintptr_t>(built) * m_chunkSize;
  m_building.Start(builtEnd, m_alignedSegment + static_cast<uintptr_t>(count) * m_chunkSize,
                   m_chunkSize);
}

template <class SegmentHeap, class OverflowHeap, class Shortcuts>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::Materialize() {
  SettleDeferredChunk();
  ChunkHeader* tail = m_freeChunks;
  while (tail != 0 && tail->nextChunk != 0) {
    tail = tail->nextChunk;
  }
  while (ChunkHeader* chunk = BuildNextChunk()) {
    chunk->prevChunk = tail;
    if (tail != 0) {
      tail->nextChunk = chunk;
    } else {
      m_freeChunks = chunk;
    }
    tail = chunk;
  }
}

template <class SegmentHeap, class OverflowHeap, class Shortcuts>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::Carve(ChunkHeader* chunk,
                                                                           uint32_t blockSize) {
  unsigned char* first = static_cast<unsigned char*>(FirstBlock(chunk));
  uint32_t count = static_cast<uint32_t>((chunk->chunkBytes - kChunkHeaderSize) / blockSize);
  // The links are the pool's own writes into blocks nobody holds.
  size_t area = chunk->chunkBytes - kChunkHeaderSize;
  m_checker.MakeAccessible(first, area);
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
  m_checker.MakeInaccessible(first, area);
  if (Shortcuts::kCarveRecord) {
    m_carved.Carved(chunk, block, blockSize);
  }
}

// The first chunk of the free chunk list, unlinked; chunks not yet built
// follow the chunks on the list.
template <class SegmentHeap, class OverflowHeap, class Shortcuts>
ChunkHeader* ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::TakeFreeChunk() {
  ChunkHeader* chunk = m_freeChunks;
  if (chunk == 0) {
    return Shortcuts::kLazyBuilding ? BuildNextChunk() : 0;
  }
  m_freeChunks = chunk->nextChunk;
  if (m_freeChunks != 0) {
    m_freeChunks->prevChunk = 0;
  }
  return chunk;
}

// The next chunk not yet built gets its header, which stays open to the
// pool from then on.
template <class SegmentHeap, class OverflowHeap, class Shortcuts>
ChunkHeader* ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::BuildNextChunk() {
  if (m_building.Unbuilt() != 0) {
    m_checker.MakeAccessible(ChunkAt(m_building.Next()), kChunkHeaderSize);
  }
  return m_building.BuildNext();
}

template <class SegmentHeap, class OverflowHeap, class Shortcuts>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::PushFreeChunk(
    ChunkHeader* chunk) {
  if (m_freeChunks != 0) {
    m_freeChunks->prevChunk = chunk;
  }
  chunk->nextChunk = m_freeChunks;
  chunk->prevChunk = 0;
  m_freeChunks = chunk;
  chunk->blockSize = 0;
}

template <class SegmentHeap, class OverflowHeap, class Shortcuts>
ChunkHeader* ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::ClassTail(
    size_t index) const {
  if (Indexed()) {
    return m_index.Tail(index);
  }
  ChunkHeader* chunk = m_classChunks[index];
  while (chunk != 0 && chunk->nextChunk != 0) {
    chunk = chunk->nextChunk;
  }
  return chunk;
}

// The chunk joins the tail of its class list (or heads an empty one).
template <class SegmentHeap, class OverflowHeap, class Shortcuts>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::AppendToClass(
    size_t index, ChunkHeader* chunk) {
  ChunkHeader* tail = ClassTail(index);
  chunk->prevChunk = tail;
  chunk->nextChunk = 0;
  if (tail != 0) {
    tail->nextChunk = chunk;
  } else {
    m_classChunks[index] = chunk;
  }
  if (Indexed()) {
    m_index.SetTail(index, chunk);
    m_index.Join(chunk);
  }
}

template <class SegmentHeap, class OverflowHeap, class Shortcuts>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::UnlinkFromClass(
    size_t index, ChunkHeader* chunk) {
  if (chunk->prevChunk != 0) {
    chunk->prevChunk->nextChunk = chunk->nextChunk;
  } else {
    m_classChunks[index] = chunk->nextChunk;
  }
  if (chunk->nextChunk != 0) {
    chunk->nextChunk->prevChunk = chunk->prevChunk;
  }
  if (Indexed() && m_index.Tail(index) == chunk) {
    m_index.SetTail(index, chunk->prevChunk);
  }
}

template <class SegmentHeap, class OverflowHeap, class Shortcuts>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::SettleDeferredChunk() {
  ChunkHeader* chunk = DeferredChunk();
  if (chunk == 0) {
    return;
  }
  m_deferred.Clear();
  if (m_deferred.Parked()) {
    m_index.Remove(m_deferred.ClassIndex(), chunk);
  }
  UnlinkFromClass(m_deferred.ClassIndex(), chunk);
  PushFreeChunk(chunk);
}

template <class SegmentHeap, class OverflowHeap, class Shortcuts>
ChunkHeader* ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap,
                                      Shortcuts>::FirstChunkWithAFreeBlock(size_t index) const {
  if (Indexed()) {
    return m_index.First(index);
  }
  ChunkHeader* deferred = DeferredChunk();
  for (ChunkHeader* chunk = m_classChunks[index]; chunk != 0; chunk = chunk->nextChunk) {
    if (chunk->freeBlocks != 0 && chunk != deferred) {
      return chunk;
    }
  }
  return 0;
}

// Every chunk of the class is full (or it has none): the first chunk of the
// free chunk list joins the class's tail, carved for blockSize.
template <class SegmentHeap, class OverflowHeap, class Shortcuts>
ChunkHeader* ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::AssignFreeChunk(
    size_t index, uint32_t blockSize) {
  if (DeferredChunk() != 0) {
    if (m_deferred.ClassIndex() == index) {
      return ReadoptDeferredChunk(blockSize);
    }
    SettleDeferredChunk();
  }
  ChunkHeader* chunk = TakeFreeChunk();
  if (chunk == 0) {
    return 0;
  }
  chunk->blockSize = blockSize;
  if (!(Shortcuts::kCarveRecord && m_carved.ReadsAsCarved(chunk, blockSize))) {
    Carve(chunk, blockSize);
  }
  --m_freeChunkCount;
  m_counters.FreeChunksFell(m_freeChunkCount);
  AppendToClass(index, chunk);
  if (Indexed()) {
    m_index.Insert(index, chunk);
  }
  return chunk;
}

// The deferred chunk heads the free chunk list, so it is the one its own
// class takes: it moves to the class's tail if it is not there already.
template <class SegmentHeap, class OverflowHeap, class Shortcuts>
ChunkHeader* ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::ReadoptDeferredChunk(
    uint32_t blockSize) {
  ChunkHeader* chunk = m_deferred.Chunk();
  size_t index = m_deferred.ClassIndex();
  m_deferred.Clear();
  if (ClassTail(index) != chunk) {
    UnlinkFromClass(index, chunk);
    AppendToClass(index, chunk);
  } else if (Indexed()) {
    m_index.Join(chunk);
  }
  if (!(Shortcuts::kCarveRecord && m_carved.ReadsAsCarved(chunk, blockSize))) {
    Carve(chunk, blockSize);
  }
  --m_freeChunkCount;
  m_counters.FreeChunksFell(m_freeChunkCount);
  if (Indexed()) {
    m_index.Insert(index, chunk);
  }
  return chunk;
}

template <class SegmentHeap, class OverflowHeap, class Shortcuts>
void* ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::AllocFromClass(size_t size) {
  // The routing limit is 0 without a class table; the second test keeps the
  // table's absence from being dereferenced regardless.
  if (size - 1 >= m_pooledLimit || m_classChunks == 0) {
    return 0;
  }
  uint32_t blockSize = static_cast<uint32_t>(ClassSize(size));
  size_t index = ClassIndex(blockSize);
  ChunkHeader* chunk = FirstChunkWithAFreeBlock(index);
  if (chunk == 0) {
    chunk = AssignFreeChunk(index, blockSize);
    if (chunk == 0) {
      return 0;
    }
  }
  // TakeBlock reads the free block's link; the block then goes to the
  // program with the size it asked for.
  m_checker.MakeAccessible(chunk->freeBlocks, sizeof(void*));
  void* block = TakeBlock(index, chunk);
  m_checker.BlockHandedOut(block, size, blockSize);
  return block;
}

// The release fast path: push the block; a chunk that was full joins the
// first-free index, a chunk that is now empty leaves its class.
template <class SegmentHeap, class OverflowHeap, class Shortcuts>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::Release(void* pointer) {
  ChunkHeader* chunk = ChunkOf(pointer);
  if (Shortcuts::kLazyBuilding &&
      QD_UNLIKELY(!m_building.IsBuilt(reinterpret_cast<uintptr_t>(chunk)))) {
    return;
  }
  // Read apart: one wide load of both fields would wait for the two
  // narrower stores that just wrote them.
  uint16_t usedBlocks = chunk->usedBlocks;
  uint32_t blockSize = chunk->blockSize;
  // A late second release of a block whose chunk is already free again.
  if (QD_UNLIKELY(usedBlocks == 0) && (blockSize == 0 || chunk == DeferredChunk())) {
    m_checker.BlockReleased(pointer, 0);
    return;
  }
  void* firstFree = chunk->freeBlocks;
  if (Shortcuts::kCarveRecord) {
    m_carved.BlockGivenBack(chunk, pointer);
  }
  if (QD_UNLIKELY(m_checker.Active())) {
    PushReleasedBlock(pointer, firstFree, blockSize);
  } else {
    SetNextFreeBlock(pointer, firstFree);
  }
  chunk->freeBlocks = pointer;
  --usedBlocks;
  chunk->usedBlocks = usedBlocks;
  size_t index = ClassIndex(blockSize);
  if (QD_UNLIKELY(firstFree == 0) && blockSize != 0) {
    ChunkGotAFreeBlock(index, chunk);
  }
  if (QD_LIKELY(usedBlocks != 0) || blockSize == 0) {
    return;
  }
  if (CanPark(index, chunk, blockSize)) {
    ++m_freeChunkCount;
    m_deferred.Defer(chunk, index, true);
    return;
  }
  ReturnChunk(chunk, index);
}

// Release's link write, seen by a checker: the block leaves the program
// before the pool writes its link into it.
template <class SegmentHeap, class OverflowHeap, class Shortcuts>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::PushReleasedBlock(
    void* pointer, void* firstFree, uint32_t blockSize) {
  m_checker.BlockReleased(pointer, blockSize);
  m_checker.MakeAccessible(pointer, sizeof(void*));
  SetNextFreeBlock(pointer, firstFree);
  m_checker.MakeInaccessible(pointer, sizeof(void*));
}

// The chunk is empty: it leaves its class for the front of the free chunk
// list. A class head whose class is past the table stays where it is.
template <class SegmentHeap, class OverflowHeap, class Shortcuts>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::ReturnChunk(ChunkHeader* chunk,
                                                                                 size_t index) {
  if (chunk->prevChunk == 0 && (index >= m_classCount || index >= m_classTableEntries)) {
    return;
  }
  ++m_freeChunkCount;
  if (Shortcuts::kDeferredReturn) {
    SettleDeferredChunk();
    bool parked = CanPark(index, chunk, chunk->blockSize);
    if (!parked && Indexed()) {
      m_index.Remove(index, chunk);
    }
    m_deferred.Defer(chunk, index, parked);
    return;
  }
  if (Indexed()) {
    m_index.Remove(index, chunk);
  }
  UnlinkFromClass(index, chunk);
  PushFreeChunk(chunk);
}

template <class SegmentHeap, class OverflowHeap, class Shortcuts>
void* ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::ReAlloc(void* pointer,
                                                                              size_t size) {
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
  size_t oldSize = BlockSizeOf(pointer);
  size_t copied = oldSize < size ? oldSize : size;
  void* block = AllocFromClass(size);
  if (block == 0) {
    m_counters.Overflowed(IsPooledSize(size));
    block = OverflowHeap::Alloc(size);
  }
  if (block != 0) {
    // The copy reads the old block's class size: the pool's own read.
    m_checker.BlockCopied(pointer, copied);
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
