// The free chunk list: the chunks no class holds, taken from its front and
// given back to its front, last in first out, with their count. Two
// shortcuts change how the list is kept, never what a caller reads from it:
// its tail is built only as it is reached (lazy_chunk_building.h), and an
// emptied chunk may stay on its class list a while as if it headed this one
// (deferred_chunk_return.h).
//
// Invariant: Count() is the number of chunks a caller sees as free: the
// chunks on the list, the chunks not yet built, the deferred chunk and the
// chunks the segment never laid out (counted from the start, never built).
#ifndef QUENDAL_HEAP_FREE_CHUNK_LIST_H
#define QUENDAL_HEAP_FREE_CHUNK_LIST_H

#include <stddef.h>
#include <stdint.h>

#include "heap/chunk_header.h"
#include "heap/chunk_list.h"
#include "heap/deferred_chunk_return.h"
#include "heap/lazy_chunk_building.h"
#include "heap/pool_geometry.h"
#include "platform/memory_checker.h"
#include "util/compiler.h"

namespace Quendal {
namespace Heap {

template <class Shortcuts>
class FreeChunkList {
 public:
  FreeChunkList() : m_head(0), m_count(0) {}

  // Every chunk of the configuration counts as free, before any is laid out.
  void Reset(uint32_t count) { m_count = count; }

  // Lays out the geometry's chunks as the list, in address order; with lazy
  // building only the first gets its header now.
  void LayOut(const PoolGeometry& geometry, Platform::MemoryChecker& checker) {
    m_head = 0;
    m_deferred.Clear();
    uint32_t count = geometry.laidOutChunks;
    m_building.Start(geometry.alignedSegment, geometry.alignedSegment, geometry.chunkSize);
    if (count == 0) {
      return;
    }
    uint32_t built = Shortcuts::kLazyBuilding ? 1 : count;
    ChunkHeader* tail = 0;
    for (uint32_t number = 0; number < built; ++number) {
      ChunkHeader* chunk = geometry.ChunkNumbered(number);
      checker.MakeAccessible(chunk, kChunkHeaderSize);
      chunk->chunkBytes = geometry.chunkSize;
      // Never read: carving sets it before the chunk serves a block.
      chunk->freeBlocks = tail == 0 ? FirstBlock(chunk) : 0;
      chunk->usedBlocks = 0;
      chunk->unused = 0;
      chunk->blockSize = 0;
      ChunkList::Append(m_head, tail, chunk);
      tail = chunk;
    }
    m_building.Start(reinterpret_cast<uintptr_t>(geometry.ChunkNumbered(built)),
                     reinterpret_cast<uintptr_t>(geometry.ChunkNumbered(count)),
                     geometry.chunkSize);
  }

  uint32_t Count() const { return m_count; }
  ChunkHeader* Head() const { return m_head; }
  const LazyChunkBuilding& Building() const { return m_building; }
  const DeferredChunkReturn& Deferral() const { return m_deferred; }
  ChunkHeader* Deferred() const { return Shortcuts::kDeferredReturn ? m_deferred.Chunk() : 0; }

  // The first free chunk as a caller reads the list: a deferred chunk heads
  // it, and chunks not yet built follow the chunks on it.
  ChunkHeader* First() const {
    if (Deferred() != 0) {
      return Deferred();
    }
    if (m_head == 0 && Shortcuts::kLazyBuilding && m_building.Unbuilt() != 0) {
      return ChunkAt(m_building.Next());
    }
    return m_head;
  }

  bool IsBuilt(const ChunkHeader* chunk) const {
    return !Shortcuts::kLazyBuilding || m_building.IsBuilt(reinterpret_cast<uintptr_t>(chunk));
  }

  // True when a release into chunk is to be ignored: the chunk is on this
  // list, as far as a caller can tell.
  bool IsFree(const ChunkHeader* chunk) const {
    if (!IsBuilt(chunk)) {
      return true;
    }
    return (chunk->usedBlocks == 0 && chunk->blockSize == 0) || chunk == Deferred();
  }

  // The first chunk, unlinked, for a class to take; null when none is left.
  // A deferred chunk must have been settled first.
  ChunkHeader* Take(Platform::MemoryChecker& checker) {
    ChunkHeader* chunk = ChunkList::PopFront(m_head);
    if (chunk == 0 && Shortcuts::kLazyBuilding) {
      chunk = BuildNext(checker);
    }
    if (chunk != 0) {
      --m_count;
    }
    return chunk;
  }

  // An emptied chunk, already off its class list, comes back to the front.
  void Return(ChunkHeader* chunk) {
    ++m_count;
    Push(chunk);
  }

  // An emptied chunk stays on class index's list as if it headed this one.
  void Defer(ChunkHeader* chunk, size_t index, bool parked) {
    ++m_count;
    m_deferred.Defer(chunk, index, parked);
  }

  // Its own class takes the deferred chunk back as it stands.
  ChunkHeader* TakeBackDeferred() {
    ChunkHeader* chunk = m_deferred.Chunk();
    m_deferred.Clear();
    --m_count;
    return chunk;
  }

  // An allocation took the first block of chunk, whose used count was 0: a
  // parked chunk is taken back by it. The count comes back down to what it
  // was before the chunk was parked (nothing else changes it meanwhile),
  // never to a new low, so the fast path records no low-water mark.
  QD_ALWAYS_INLINE void FirstBlockTaken(const ChunkHeader* chunk) {
    if (Shortcuts::kDeferredReturn && chunk == m_deferred.Chunk()) {
      m_deferred.Clear();
      --m_count;
    }
  }

  // The deferred chunk, if any, leaves its class list for the front of this
  // list, where it already counted.
  template <class Classes>
  void Settle(Classes& classes) {
    ChunkHeader* chunk = Deferred();
    if (chunk == 0) {
      return;
    }
    m_deferred.Clear();
    size_t index = m_deferred.ClassIndex();
    if (m_deferred.Parked()) {
      classes.LeaveIndex(index, chunk);
    }
    classes.Unlink(index, chunk);
    Push(chunk);
  }

  // Builds every chunk not yet built onto the list's tail, as the plain
  // list holds them. The deferred chunk must have been settled first.
  void BuildAll(Platform::MemoryChecker& checker) {
    ChunkHeader* tail = ChunkList::WalkToTail(m_head);
    while (ChunkHeader* chunk = BuildNext(checker)) {
      ChunkList::Append(m_head, tail, chunk);
      tail = chunk;
    }
  }

 private:
  FreeChunkList(const FreeChunkList&);
  FreeChunkList& operator=(const FreeChunkList&);

  void Push(ChunkHeader* chunk) {
    ChunkList::PushFront(m_head, chunk);
    chunk->blockSize = 0;
  }

  // The next chunk not yet built gets its header, which stays open to the
  // pool from then on.
  ChunkHeader* BuildNext(Platform::MemoryChecker& checker) {
    if (m_building.Unbuilt() != 0) {
      checker.MakeAccessible(ChunkAt(m_building.Next()), kChunkHeaderSize);
    }
    return m_building.BuildNext();
  }

  ChunkHeader* m_head;
  uint32_t m_count;
  LazyChunkBuilding m_building;
  DeferredChunkReturn m_deferred;
};

}  // namespace Heap
}  // namespace Quendal

#endif
