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
// The segment is cut into chunks that start at multiples of the chunk size
// (pool_geometry.h), so the chunk of any pooled block is its address rounded
// down to a multiple of the chunk size, and blocks carry no header. A chunk
// serves one 8-byte class at a time and goes back to the free chunk list
// (free_chunk_list.h), last in first out, when its last block is released.
// A request takes the first free block of the first chunk of its class list
// (class_lists.h) that has one; a class whose chunks are all full gets the
// first free chunk at its list's tail.
//
// Shortcuts (pool_shortcuts.h) change how the pool finds chunks and blocks,
// never which ones it hands out: with NoPoolShortcuts this template is the
// plain algorithm, and the tests run it in lockstep with the library's
// AllPoolShortcuts. Each shortcut's state and invariant live in its own
// unit; CheckPoolInvariants (pool_invariant_checker.h) checks them all. Not
// thread-safe: LockedAllocator adds the lock. The drop-in allocator's C
// entries reach the pool through PoolForCCallers (pool_c_callers.h).
//
// A memory checker watching the process (platform/memory_checker.h) sees
// every block of a pool over a heap that shows its blocks to checkers as an
// allocation of its own. While one watches, allocations and releases skip
// their inline paths, which then pay nothing for it.
#ifndef QUENDAL_HEAP_POOL_CHUNK_ALLOCATOR_H
#define QUENDAL_HEAP_POOL_CHUNK_ALLOCATOR_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "heap/carve_record.h"
#include "heap/chunk_header.h"
#include "heap/class_lists.h"
#include "heap/free_chunk_list.h"
#include "heap/overflow_tally.h"
#include "heap/pool_counters.h"
#include "heap/pool_geometry.h"
#include "heap/pool_shortcuts.h"
#include "heap/release_window.h"
#include "heap/size_class.h"
#include "platform/memory_checker.h"
#include "util/compiler.h"

namespace Quendal {
namespace Heap {

template <class Pool>
class PoolView;
template <class Pool>
class PoolForCCallers;

template <class SegmentHeap, class OverflowHeap, class Shortcuts = AllPoolShortcuts>
class ConfigPoolChunkAllocator {
 public:
  typedef Shortcuts ShortcutSet;
  typedef OverflowHeap OverflowHeapType;

  ConfigPoolChunkAllocator() : m_fastLimit(0), m_unpooledAbove(SIZE_MAX) {}

  // Adopts the three parameters once; later calls change nothing
  // (PoolGeometry::Configure).
  void Configure(uint32_t chunkCount, uint32_t chunkSize, uint32_t maxBlockSize) {
    if (m_geometry.Configure(chunkCount, chunkSize, maxBlockSize)) {
      UpdateGeometry();
    }
  }

  // Takes the segment and lays out the free chunk list in address order.
  // Does nothing once a segment exists; a failed request leaves the pool as
  // it was and the next allocation retries.
  void Initialize();

  // Returns a block of at least size (> 0) bytes: pool first, OverflowHeap
  // for everything the pool cannot serve; null only when OverflowHeap fails.
  // The fast path: with the first-free index, the class's first chunk with a
  // free block is at hand, and its first free block is popped inline. Size 0
  // fails the limit's test.
  QD_ALWAYS_INLINE void* Alloc(size_t size) {
    if (Shortcuts::kFirstFreeIndex && QD_LIKELY(size - 1 < m_fastLimit)) {
      size_t index = ClassIndexOfRequest(size);
      ChunkHeader* chunk = m_classes.IndexedFirst(index);
      if (QD_LIKELY(chunk != 0)) {
        m_counters.CountedClassBlockTaken(index);
        return TakeBlock(index, chunk);
      }
    }
    return AllocOutOfLine(size);
  }

  // Takes back a non-null pointer: a block of the segment returns to its
  // chunk, any other pointer goes to OverflowHeap. While the class table is
  // absent (no segment yet) the release is dropped. With the release
  // window, a pointer inside it needs no other test to reach its chunk.
  QD_ALWAYS_INLINE void Free(void* pointer) {
    if (Shortcuts::kReleaseWindow) {
      if (QD_LIKELY(m_window.Contains(pointer))) {
        ReleaseInWindow(pointer);
        return;
      }
      FreeOutOfLine(pointer);
      return;
    }
    FreeAnywhere(pointer);
  }

  // Moves a pooled block (never in place) or passes a foreign pointer to
  // OverflowHeap's ReAlloc. Returns the new block, or null when size is 0 or
  // no new block could be obtained; the old pooled block is released in
  // every case.
  void* ReAlloc(void* pointer, size_t size);

  bool Owns(const void* pointer) const { return m_geometry.Owns(pointer); }

  // The class size of the pooled block at pointer, which the pool owns; 0
  // when its chunk is free.
  uint32_t BlockSizeOf(const void* pointer) const {
    ChunkHeader* chunk = ChunkOf(pointer);
    if (m_free.IsFree(chunk)) {
      return 0;
    }
    return chunk->blockSize;
  }

  uint8_t IsConfigured() const { return m_geometry.configured; }

  // True when a memory checker watches the pool's blocks; found once, when
  // the pool takes its segment.
  bool WatchedByMemoryChecker() const { return m_checker.Active(); }

  // Requests above this size go to the overflow heap whatever the pool
  // holds, for good: the pool has its segment and class table. SIZE_MAX
  // before that. Read without the lock.
  size_t UnpooledAbove() const {
#if defined(__GNUC__)
    return __atomic_load_n(&m_unpooledAbove, __ATOMIC_RELAXED);
#else
    return m_unpooledAbove;
#endif
  }

  // True once a block of pooled size went to the overflow heap; read
  // without the lock.
  bool FollowsOverflowBlocks() const {
    return m_overflow.Following();
  }

  // Read access for diagnostics and tests, as the lists read to a caller:
  // a chunk whose return is deferred already heads the free chunk list, and
  // chunks not yet built follow the chunks on it.
  ChunkHeader* ClassChunk(size_t index) const {
    ChunkHeader* head = m_classes.Head(index);
    return head != 0 && head == m_free.Deferred() ? head->nextChunk : head;
  }
  ChunkHeader** ClassTable() const {
    return m_classes.Table();
  }
  ChunkHeader* FreeChunks() const {
    return m_free.First();
  }
  void* Segment() const {
    return m_geometry.segment;
  }
  uintptr_t AlignedSegment() const {
    return m_geometry.alignedSegment;
  }
  uint32_t SegmentBytes() const {
    return m_geometry.segmentBytes;
  }
  uint32_t FreeChunkCount() const {
    return m_free.Count();
  }
  uint32_t ChunkCount() const {
    return m_geometry.chunkCount;
  }
  uint32_t ChunkSize() const {
    return m_geometry.chunkSize;
  }
  uint32_t MaxBlockSize() const {
    return m_geometry.maxBlockSize;
  }
  uint32_t ClassCount() const {
    return m_geometry.classCount;
  }
  uint32_t ClassTableEntries() const {
    return m_geometry.classTableEntries;
  }
  // Chunks laid out in the segment, built or still to build.
  uint32_t LaidOutChunks() const {
    return m_geometry.laidOutChunks;
  }
  ChunkHeader* ChunkOf(const void* pointer) const {
    return m_geometry.ChunkOf(pointer);
  }

  // Writes every header a pool without shortcuts would hold: builds the
  // chunks not yet built and settles a deferred return. Nothing a caller
  // sees changes; tests call it before they read headers.
  void Materialize() {
    m_free.Settle(m_classes);
    m_free.BuildAll(m_checker);
    UpdateReleaseWindow();
  }

 private:
  template <class Pool>
  friend class PoolView;
  template <class Pool>
  friend class PoolForCCallers;

  ConfigPoolChunkAllocator(const ConfigPoolChunkAllocator&);
  ConfigPoolChunkAllocator& operator=(const ConfigPoolChunkAllocator&);

  QD_NOINLINE void* AllocOutOfLine(size_t size) {
    if (QD_UNLIKELY(m_classes.Table() == 0)) {
      Initialize();
    }
    return AllocFromClassOrOverflow(size);
  }
  void* AllocFromClassOrOverflow(size_t size) {
    void* block = AllocFromClass(size);
    if (block != 0) {
      return block;
    }
    return AllocFromOverflow(size);
  }
  // Out of line, so that the pool's own paths keep their registers.
  QD_NOINLINE void* AllocFromOverflow(size_t size) {
    void* block;
    bool pooledSize = m_geometry.IsPooledSize(size);
    m_counters.Overflowed(pooledSize);
    block = OverflowHeap::Alloc(size);
    if (pooledSize && block != 0) {
      FollowOverflowBlock(block, size);
    }
    return block;
  }
  // No chunk was left for block, of a pooled size: every chunk laid out is
  // in use.
  void FollowOverflowBlock(const void* block, size_t size, bool optional = false) {
    m_overflow.Taken(block, OverflowBlockSize<OverflowHeap>::Of(block), ClassIndex(ClassSize(size)),
                     BlockBytesPerChunk(), m_geometry.laidOutChunks, optional);
  }
  uint32_t BlockBytesPerChunk() const {
    return m_geometry.chunkSize > kChunkHeaderSize
               ? m_geometry.chunkSize - static_cast<uint32_t>(kChunkHeaderSize)
               : 0;
  }
  QD_NOINLINE void FreeOutsideSegment(void* pointer) {
    ForgetOverflowBlock(pointer);
    OverflowHeap::Free(pointer);
  }
  // Asks the overflow heap for the block's size only once the pool counts.
  size_t ForgetOverflowBlock(const void* pointer) {
    if (QD_LIKELY(!m_overflow.Following())) {
      return 0;
    }
    return m_overflow.Forget(pointer, OverflowBlockSize<OverflowHeap>::Of(pointer));
  }
  void* ReAllocOutsideSegment(void* pointer, size_t size);
  void FollowMovedOverflowBlock(uintptr_t pointer, void* block, size_t size, size_t followed);
  void* AllocFromClass(size_t size);
  ChunkHeader* AssignFreeChunk(size_t index, uint32_t blockSize);
  ChunkHeader* ReadoptDeferredChunk(size_t index, uint32_t blockSize);
  void CarveUnlessCarved(ChunkHeader* chunk, uint32_t blockSize);
  void Carve(ChunkHeader* chunk, uint32_t blockSize);

  // Pops the chunk's first free block. A parked deferred chunk is taken
  // back by this, its class's next allocation.
  QD_ALWAYS_INLINE void* TakeBlock(size_t index, ChunkHeader* chunk) {
    void* block = chunk->freeBlocks;
    void* next = NextFreeBlock(block);
    chunk->freeBlocks = next;
    uint16_t usedBlocks = chunk->usedBlocks;
    chunk->usedBlocks = static_cast<uint16_t>(usedBlocks + 1);
    if (QD_UNLIKELY(usedBlocks == 0)) {
      m_free.FirstBlockTaken(chunk);
    }
    if (QD_UNLIKELY(next == 0)) {
      ChunkFilled(index);
    }
    return block;
  }
  QD_NOINLINE void ChunkFilled(size_t index) {
    m_classes.FirstFilled(index);
  }
  QD_NOINLINE void ChunkGotAFreeBlock(size_t index, ChunkHeader* chunk) {
    m_classes.GotAFreeBlock(index, chunk);
  }
  void FreeAnywhere(void* pointer) {
    if (QD_UNLIKELY(m_classes.Table() == 0)) {
      return;
    }
    if (QD_UNLIKELY(!Owns(pointer))) {
      FreeOutsideSegment(pointer);
      return;
    }
    Release(pointer);
  }
  QD_NOINLINE void FreeOutOfLine(void* pointer) {
    FreeAnywhere(pointer);
  }
  QD_ALWAYS_INLINE void ReleaseInWindow(void* pointer);
  void Release(void* pointer);
  QD_NOINLINE void ReleaseAtEdge(void* pointer, ChunkHeader* chunk, uint16_t usedBlocks,
                                 void* firstFree);
  QD_NOINLINE void ReleaseIntoFullChunk(void* pointer, ChunkHeader* chunk, uint16_t usedBlocks);
  // Puts a released block of the window at the head of its chunk's free
  // list, firstFree after it, and leaves usedBlocks handed out; returns
  // the class of the chunk's blockSize.
  QD_ALWAYS_INLINE size_t GiveBlockBackInWindow(void* pointer, ChunkHeader* chunk, void* firstFree,
                                                uint16_t usedBlocks, uint32_t blockSize) {
    if (Shortcuts::kCarveRecord) {
      m_carved.BlockGivenBack(chunk, pointer, firstFree);
    }
    SetNextFreeBlock(pointer, firstFree);
    chunk->freeBlocks = pointer;
    chunk->usedBlocks = usedBlocks;
    size_t index = ClassIndex(blockSize);
    m_counters.BlockGivenBack(index);
    return index;
  }
  QD_NOINLINE void PushReleasedBlock(void* pointer, void* firstFree, uint32_t blockSize);
  // True when the emptied chunk, with no other return deferred, may be
  // parked (deferred_chunk_return.h).
  QD_ALWAYS_INLINE bool CanPark(size_t index, ChunkHeader* chunk, uint32_t blockSize) const {
    return Shortcuts::kDeferredReturn && Shortcuts::kCarveRecord && m_free.Deferred() == 0 &&
           index < m_geometry.classCount && m_carved.ReadsAsCarved(chunk, blockSize) &&
           m_classes.HoldsOnlyAtTail(index, chunk);
  }
  // A release left the chunk without a block in use: parked as the
  // deferred chunk when it may be, else returned.
  QD_ALWAYS_INLINE void ChunkEmptied(size_t index, ChunkHeader* chunk, uint32_t blockSize) {
    if (CanPark(index, chunk, blockSize)) {
      m_free.Defer(chunk, index, true);
      return;
    }
    ReturnChunk(chunk, index);
  }
  QD_NOINLINE void ReturnChunk(ChunkHeader* chunk, size_t index);
  void DeferReturn(ChunkHeader* chunk, size_t index);

  void UpdateGeometry() {
    m_geometry.Derive(m_classes.Table() != 0);
    // A checker sees each block handed out, which the fast path does not
    // tell. The fast path counts its classes without looking for the ones
    // the statistics do not show.
    size_t limit = m_geometry.pooledLimit;
    size_t countedLimit = PoolCounters::kCountedClasses * kClassGranule;
    limit = limit < countedLimit ? limit : countedLimit;
    m_fastLimit = m_classes.Indexed() && !m_checker.Active() ? limit : 0;
    size_t unpooledAbove =
        m_classes.Table() != 0 && m_geometry.segment != 0 ? m_geometry.pooledLimit : SIZE_MAX;
#if defined(__GNUC__)
    __atomic_store_n(&m_unpooledAbove, unpooledAbove, __ATOMIC_RELAXED);
#else
    m_unpooledAbove = unpooledAbove;
#endif
    UpdateReleaseWindow();
  }

  // Opens the release window over the chunks built so far, or closes it
  // (release_window.h).
  void UpdateReleaseWindow() {
    if (!Shortcuts::kReleaseWindow) {
      return;
    }
    if (m_classes.Table() != 0 && m_geometry.segment != 0 && m_geometry.chunkMask != 0 &&
        !m_checker.Active()) {
      m_window.Open(m_geometry.alignedSegment, m_free.Building().Next(), m_geometry.chunkMask);
    } else {
      m_window.Close();
    }
  }

  PoolGeometry m_geometry;
  ReleaseWindow m_window;
  // The routing limit, at most the classes the statistics count, while the
  // first-free index is active; else 0.
  size_t m_fastLimit;
  size_t m_unpooledAbove;
  ClassLists<Shortcuts> m_classes;
  FreeChunkList<Shortcuts> m_free;
  CarveRecord m_carved;
  Platform::MemoryChecker m_checker;
  PoolCounters m_counters;
  OverflowTally m_overflow;
};

template <class SegmentHeap, class OverflowHeap, class Shortcuts>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::Initialize() {
  if (m_geometry.segment != 0) {
    return;
  }
  m_free.Reset(m_geometry.chunkCount);
  uint32_t bytes = m_geometry.SegmentRequest();
  m_geometry.segmentBytes = bytes;
  // Set before the class table is asked for, so that a heap call the C
  // library makes meanwhile finds a pool that is starting, not one to start.
  m_geometry.segment = SegmentHeap::Alloc(bytes);
  void* segment = m_geometry.segment;
  if (segment == 0) {
    return;
  }
  if (m_classes.Table() == 0) {
    if (!m_classes.AllocateTable(m_geometry.classCount)) {
      // Without a class table the segment cannot be used: give it back and
      // stay uninitialised, as after a failed segment request.
      SegmentHeap::Free(segment);
      m_geometry.Abandon();
      return;
    }
    m_geometry.classTableEntries = m_geometry.classCount;
  }
  m_classes.Start(m_geometry);
  if (Platform::ShowsBlocksToMemoryCheckers<SegmentHeap>::kValue) {
    m_checker.Start(segment, bytes);
  }
  m_geometry.LayOut(segment, bytes);
  m_free.LayOut(m_geometry, m_checker);
  m_carved.Forget();
  if (m_geometry.laidOutChunks != 0) {
    m_classes.StartIndex(m_geometry);
  }
  UpdateGeometry();
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

// A chunk that still reads as carved for blockSize is not carved again.
template <class SegmentHeap, class OverflowHeap, class Shortcuts>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::CarveUnlessCarved(
    ChunkHeader* chunk, uint32_t blockSize) {
  if (!(Shortcuts::kCarveRecord && m_carved.ReadsAsCarved(chunk, blockSize))) {
    Carve(chunk, blockSize);
  }
}

// Every chunk of the class is full (or it has none): the first chunk of the
// free chunk list joins the class's tail, carved for blockSize.
template <class SegmentHeap, class OverflowHeap, class Shortcuts>
ChunkHeader* ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::AssignFreeChunk(
    size_t index, uint32_t blockSize) {
  if (m_free.Deferred() != 0) {
    if (m_free.Deferral().ClassIndex() == index) {
      return ReadoptDeferredChunk(index, blockSize);
    }
    m_free.Settle(m_classes);
  }
  ChunkHeader* chunk = m_free.Take(m_checker);
  if (chunk == 0) {
    return 0;
  }
  // Taking may have built the chunk.
  UpdateReleaseWindow();
  chunk->blockSize = blockSize;
  CarveUnlessCarved(chunk, blockSize);
  m_counters.FreeChunksFell(m_free.Count());
  m_classes.Append(index, chunk);
  m_classes.GotAFreeBlock(index, chunk);
  return chunk;
}

// The deferred chunk heads the free chunk list, so it is the one its own
// class takes: it moves to the class's tail if it is not there already.
template <class SegmentHeap, class OverflowHeap, class Shortcuts>
ChunkHeader* ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::ReadoptDeferredChunk(
    size_t index, uint32_t blockSize) {
  ChunkHeader* chunk = m_free.TakeBackDeferred();
  if (m_classes.Tail(index) != chunk) {
    m_classes.Unlink(index, chunk);
    m_classes.Append(index, chunk);
  } else {
    m_classes.Rejoin(chunk);
  }
  CarveUnlessCarved(chunk, blockSize);
  m_counters.FreeChunksFell(m_free.Count());
  m_classes.GotAFreeBlock(index, chunk);
  return chunk;
}

template <class SegmentHeap, class OverflowHeap, class Shortcuts>
void* ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::AllocFromClass(size_t size) {
  // The routing limit is 0 without a class table; the second test keeps the
  // table's absence from being dereferenced regardless.
  if (size - 1 >= m_geometry.pooledLimit || m_classes.Table() == 0) {
    return 0;
  }
  uint32_t blockSize = static_cast<uint32_t>(ClassSize(size));
  size_t index = ClassIndex(blockSize);
  ChunkHeader* chunk = m_classes.FirstWithAFreeBlock(index, m_free.Deferred());
  if (chunk == 0) {
    chunk = AssignFreeChunk(index, blockSize);
    if (chunk == 0) {
      return 0;
    }
  }
  // TakeBlock reads the free block's link; the block then goes to the
  // program with the size it asked for.
  m_checker.MakeAccessible(chunk->freeBlocks, sizeof(void*));
  m_counters.BlockTaken(index);
  void* block = TakeBlock(index, chunk);
  m_checker.BlockHandedOut(block, size, blockSize);
  return block;
}

// The common release, inside the release window: a block back into a chunk
// that has other blocks free and others handed out. A release that fills or
// empties the chunk's free list, or finds it at 0 blocks used, goes the
// whole way.
template <class SegmentHeap, class OverflowHeap, class Shortcuts>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::ReleaseInWindow(
    void* pointer) {
  ChunkHeader* chunk = m_window.ChunkOf(pointer);
  uint16_t usedBlocks = chunk->usedBlocks;
  void* firstFree = chunk->freeBlocks;
  if (QD_UNLIKELY(usedBlocks <= 1) || QD_UNLIKELY(firstFree == 0)) {
    ReleaseAtEdge(pointer, chunk, usedBlocks, firstFree);
    return;
  }
  GiveBlockBackInWindow(pointer, chunk, firstFree, static_cast<uint16_t>(usedBlocks - 1),
                        chunk->blockSize);
}

// A release inside the window that ReleaseInWindow does not take. The lone
// block's release, the last block handed out of a chunk that has others
// free, empties the chunk, which is parked when it may be. A chunk at 0
// blocks used goes the whole way. Only tail calls leave this path, so it
// saves no registers.
template <class SegmentHeap, class OverflowHeap, class Shortcuts>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::ReleaseAtEdge(
    void* pointer, ChunkHeader* chunk, uint16_t usedBlocks, void* firstFree) {
  if (usedBlocks == 0) {
    Release(pointer);
    return;
  }
  if (firstFree == 0) {
    ReleaseIntoFullChunk(pointer, chunk, usedBlocks);
    return;
  }
  uint32_t blockSize = chunk->blockSize;
  size_t index = GiveBlockBackInWindow(pointer, chunk, firstFree, 0, blockSize);
  if (blockSize == 0) {
    return;
  }
  ChunkEmptied(index, chunk, blockSize);
}

// A release inside the window into a full chunk with blocks used: the chunk
// gets a free block and, when that was its only block handed out, empties.
template <class SegmentHeap, class OverflowHeap, class Shortcuts>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::ReleaseIntoFullChunk(
    void* pointer, ChunkHeader* chunk, uint16_t usedBlocks) {
  uint32_t blockSize = chunk->blockSize;
  --usedBlocks;
  size_t index = GiveBlockBackInWindow(pointer, chunk, 0, usedBlocks, blockSize);
  if (blockSize == 0) {
    return;
  }
  ChunkGotAFreeBlock(index, chunk);
  if (usedBlocks != 0) {
    return;
  }
  ChunkEmptied(index, chunk, blockSize);
}

// Any release into the segment: push the block; a chunk that was full joins
// the first-free index, a chunk that is now empty leaves its class.
template <class SegmentHeap, class OverflowHeap, class Shortcuts>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::Release(void* pointer) {
  ChunkHeader* chunk = ChunkOf(pointer);
  if (QD_UNLIKELY(!m_free.IsBuilt(chunk))) {
    return;
  }
  // Read apart: one wide load of both fields would wait for the two
  // narrower stores that just wrote them.
  uint16_t usedBlocks = chunk->usedBlocks;
  uint32_t blockSize = chunk->blockSize;
  // A late second release of a block whose chunk is already free again.
  if (QD_UNLIKELY(usedBlocks == 0) && (blockSize == 0 || chunk == m_free.Deferred())) {
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
  m_counters.BlockGivenBack(index);
  if (QD_UNLIKELY(firstFree == 0) && blockSize != 0) {
    ChunkGotAFreeBlock(index, chunk);
  }
  if (QD_LIKELY(usedBlocks != 0) || blockSize == 0) {
    return;
  }
  ChunkEmptied(index, chunk, blockSize);
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
  if (chunk->prevChunk == 0 &&
      (index >= m_geometry.classCount || index >= m_geometry.classTableEntries)) {
    return;
  }
  if (Shortcuts::kDeferredReturn) {
    DeferReturn(chunk, index);
    return;
  }
  m_classes.LeaveIndex(index, chunk);
  m_classes.Unlink(index, chunk);
  m_free.Return(chunk);
}

// The emptied chunk stays on its class list as the free chunk list's first;
// a chunk deferred before it is settled first.
template <class SegmentHeap, class OverflowHeap, class Shortcuts>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::DeferReturn(ChunkHeader* chunk,
                                                                                 size_t index) {
  m_free.Settle(m_classes);
  bool parked = CanPark(index, chunk, chunk->blockSize);
  if (!parked) {
    m_classes.LeaveIndex(index, chunk);
  }
  m_free.Defer(chunk, index, parked);
}

template <class SegmentHeap, class OverflowHeap, class Shortcuts>
void* ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::ReAlloc(void* pointer,
                                                                              size_t size) {
  // Ownership is tested first: null and foreign blocks never enter the pool.
  if (!Owns(pointer)) {
    return ReAllocOutsideSegment(pointer, size);
  }
  bool hasTable = m_classes.Table() != 0;
  if (size == 0) {
    if (hasTable) {
      Release(pointer);
    }
    return 0;
  }
  if (!hasTable) {
    Initialize();
  }
  size_t oldSize = BlockSizeOf(pointer);
  size_t copied = oldSize < size ? oldSize : size;
  void* block = AllocFromClassOrOverflow(size);
  if (block != 0) {
    // The copy reads the old block's class size: the pool's own read.
    m_checker.BlockCopied(pointer, copied);
    memcpy(block, pointer, copied);
  }
  // The old block goes even when no new one was obtained.
  if (m_classes.Table() != 0) {
    if (Owns(pointer)) {
      Release(pointer);
    } else {
      OverflowHeap::Free(pointer);
    }
  }
  return block;
}

template <class SegmentHeap, class OverflowHeap, class Shortcuts>
void* ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::ReAllocOutsideSegment(
    void* pointer, size_t size) {
  size_t followed = ForgetOverflowBlock(pointer);
  // The old address as a number: only a failed move reads it again, where
  // the block is still there.
  uintptr_t address = reinterpret_cast<uintptr_t>(pointer);
  void* block = OverflowHeap::ReAlloc(pointer, size);
  FollowMovedOverflowBlock(address, block, size, followed);
  return block;
}

// The overflow heap reallocated pointer to block (null when it could not,
// or for size 0, which released it); followed is what Forget said of
// pointer. A counted block stays counted at its new size while that is
// pooled, and as it was where it stayed; one counted by its size counts
// whatever it was before, as its release will.
template <class SegmentHeap, class OverflowHeap, class Shortcuts>
void ConfigPoolChunkAllocator<SegmentHeap, OverflowHeap, Shortcuts>::FollowMovedOverflowBlock(
    uintptr_t pointer, void* block, size_t size, size_t followed) {
  if (block != 0) {
    if ((followed != 0 || m_overflow.CountsBySize()) && m_geometry.IsPooledSize(size)) {
      FollowOverflowBlock(block, size, followed == 0);
    }
  } else if (size != 0 && followed != 0) {
    FollowOverflowBlock(reinterpret_cast<const void*>(pointer), followed * kClassGranule);
  }
}

}  // namespace Heap
}  // namespace Quendal

#endif
