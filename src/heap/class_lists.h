// The class lists: per size class, the chunks that serve it in the order
// they joined, with the first-free index (first_free_index.h) that finds a
// class's first chunk with a free block and keeps each list's tail.
//
// Invariant: chunks join a class list only at its tail; the index, when
// active, holds exactly the chunks of each list that have a free block (a
// deferred chunk excepted, deferred_chunk_return.h) and names each list's
// tail. Without the shortcut, or when the index could not get its memory,
// the lists are walked instead. For the statistics, each of the first
// PoolCounters::kCountedClasses lists counts the chunks on it, a deferred
// chunk included.
#ifndef QUENDAL_HEAP_CLASS_LISTS_H
#define QUENDAL_HEAP_CLASS_LISTS_H

#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include "heap/chunk_header.h"
#include "heap/chunk_list.h"
#include "heap/first_free_index.h"
#include "heap/pool_counters.h"
#include "heap/pool_geometry.h"
#include "util/compiler.h"

namespace Quendal {
namespace Heap {

template <class Shortcuts>
class ClassLists {
 public:
  ClassLists() : m_heads(0) {
    for (uint32_t index = 0; index <= PoolCounters::kCountedClasses; ++index) {
      m_chunks[index] = 0;
    }
  }

  // The table of list heads comes from the C library's allocator, once.
  bool AllocateTable(uint32_t entries) {
    m_heads = static_cast<ChunkHeader**>(malloc(entries * sizeof(ChunkHeader*)));
    return m_heads != 0;
  }
  ChunkHeader** Table() const { return m_heads; }

  // Every list empty, indexed over the chunks the geometry lays out.
  void Start(const PoolGeometry& geometry) {
    memset(m_heads, 0, geometry.classTableEntries * sizeof(ChunkHeader*));
  }
  void StartIndex(const PoolGeometry& geometry) {
    if (Shortcuts::kFirstFreeIndex) {
      m_index.Start(geometry.alignedSegment, geometry.chunkSize, geometry.chunkShift,
                    geometry.laidOutChunks, geometry.classTableEntries);
    }
  }

  bool Indexed() const { return Shortcuts::kFirstFreeIndex && m_index.Active(); }
  const FirstFreeIndex& Index() const { return m_index; }

  ChunkHeader* Head(size_t index) const { return m_heads[index]; }
  // Chunks on the list of class index, below PoolCounters::kCountedClasses.
  uint32_t Chunks(size_t index) const { return m_chunks[index]; }

  // The indexed answer alone, for the allocation fast path.
  QD_ALWAYS_INLINE ChunkHeader* IndexedFirst(size_t index) const { return m_index.First(index); }

  // The class's first chunk with a free block, or null; a walk passes over
  // skipped, the deferred chunk, which the index never holds unparked.
  ChunkHeader* FirstWithAFreeBlock(size_t index, const ChunkHeader* skipped) const {
    if (Indexed()) {
      return m_index.First(index);
    }
    for (ChunkHeader* chunk = m_heads[index]; chunk != 0; chunk = chunk->nextChunk) {
      if (chunk->freeBlocks != 0 && chunk != skipped) {
        return chunk;
      }
    }
    return 0;
  }

  ChunkHeader* Tail(size_t index) const {
    if (Indexed()) {
      return m_index.Tail(index);
    }
    return ChunkList::WalkToTail(m_heads[index]);
  }

  // The chunk joins the tail of its class list (or heads an empty one).
  void Append(size_t index, ChunkHeader* chunk) {
    ChunkList::Append(m_heads[index], Tail(index), chunk);
    ++m_chunks[PoolCounters::Entry(index)];
    if (Indexed()) {
      m_index.SetTail(index, chunk);
      m_index.Join(chunk);
    }
  }

  // The chunk, already the class's tail, counts as joining it again.
  void Rejoin(ChunkHeader* chunk) {
    if (Indexed()) {
      m_index.Join(chunk);
    }
  }

  void Unlink(size_t index, ChunkHeader* chunk) {
    if (Indexed() && m_index.Tail(index) == chunk) {
      m_index.SetTail(index, chunk->prevChunk);
    }
    ChunkList::Unlink(m_heads[index], chunk);
    --m_chunks[PoolCounters::Entry(index)];
  }

  // The chunk, on the class's list, got a free block.
  void GotAFreeBlock(size_t index, ChunkHeader* chunk) {
    if (Indexed()) {
      m_index.Insert(index, chunk);
    }
  }
  // The class's first chunk with a free block has none left.
  void FirstFilled(size_t index) {
    if (Indexed()) {
      m_index.RemoveFirst(index);
    }
  }
  // The chunk no longer counts as having a free block: it is emptied, or its
  // return is deferred.
  void LeaveIndex(size_t index, ChunkHeader* chunk) {
    if (Indexed()) {
      m_index.Remove(index, chunk);
    }
  }

  // True when chunk is the class's tail and its only chunk with a free
  // block; known only with the index. The tail joined the list last, so
  // when it is also the first chunk with a free block no other has one.
  QD_ALWAYS_INLINE bool HoldsOnlyAtTail(size_t index, const ChunkHeader* chunk) const {
    return Indexed() && m_index.First(index) == chunk && m_index.Tail(index) == chunk;
  }

 private:
  ClassLists(const ClassLists&);
  ClassLists& operator=(const ClassLists&);

  ChunkHeader** m_heads;
  FirstFreeIndex m_index;
  uint32_t m_chunks[PoolCounters::kCountedClasses + 1];
};

}  // namespace Heap
}  // namespace Quendal

#endif
