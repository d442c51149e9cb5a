// Defers the return of an emptied chunk to the free chunk list, so that a
// lone block allocated and released again and again does not move its chunk
// between the lists every time.
//
// Invariant: the deferred chunk, if any, is free as far as every caller can
// tell: it is the first chunk of the free chunk list, counted among the free
// chunks, and a release into it is ignored. It still sits where it was on
// its class list with its class size and all of its blocks free, and the
// first-free index does not hold it. It is settled (moved to the front of
// the free chunk list) before anything else is put there or taken from
// there for another class; taken back by its own class while no other chunk
// of the class has a free block, it simply joins the class's tail again.
//
// Parked: the chunk was its class's tail and its only chunk with a free
// block, and its free list reads as carved. Its class would take it back
// exactly as it stands, so it stays in the first-free index: it joined the
// class last, so any chunk of the class that gets a free block meanwhile
// comes first, as it would ahead of a free chunk. The allocation that takes
// its first block (its used count going up from 0) takes it back.
#ifndef QUENDAL_HEAP_DEFERRED_CHUNK_RETURN_H
#define QUENDAL_HEAP_DEFERRED_CHUNK_RETURN_H

#include <stddef.h>

#include "heap/chunk_header.h"

namespace Quendal {
namespace Heap {

class DeferredChunkReturn {
 public:
  DeferredChunkReturn() : m_chunk(0), m_index(0), m_parked(false) {}

  ChunkHeader* Chunk() const { return m_chunk; }
  // The class the deferred chunk still sits on.
  size_t ClassIndex() const { return m_index; }
  bool Parked() const { return m_parked; }

  void Defer(ChunkHeader* chunk, size_t index, bool parked) {
    m_chunk = chunk;
    m_index = index;
    m_parked = parked;
  }
  void Clear() { m_chunk = 0; }

 private:
  ChunkHeader* m_chunk;
  size_t m_index;
  bool m_parked;
};

}  // namespace Heap
}  // namespace Quendal

#endif
