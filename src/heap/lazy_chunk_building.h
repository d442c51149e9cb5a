// Builds the chunks of the segment when they are first taken rather than all
// at once, so that the first heap call touches only the pages it uses.
//
// Invariant: the chunks from Next() up to End() have never been taken and no
// header has been written into them; they are the tail of the free chunk
// list, in address order, behind every chunk on the list itself. Every chunk
// below Next() has its header. This holds because the free chunk list starts
// in address order and chunks come back only to its front.
#ifndef QUENDAL_HEAP_LAZY_CHUNK_BUILDING_H
#define QUENDAL_HEAP_LAZY_CHUNK_BUILDING_H

#include <stdint.h>

#include "heap/chunk_header.h"

namespace Quendal {
namespace Heap {

class LazyChunkBuilding {
 public:
  LazyChunkBuilding() : m_next(0), m_end(0), m_chunkSize(0) {}

  // The chunks from next (a chunk address) to end are still to be built.
  void Start(uintptr_t next, uintptr_t end, uint32_t chunkSize) {
    m_next = next;
    m_end = end;
    m_chunkSize = chunkSize;
  }

  uintptr_t Next() const { return m_next; }
  uintptr_t End() const { return m_end; }
  uint32_t Unbuilt() const { return m_next < m_end ? (m_end - m_next) / m_chunkSize : 0; }

  // True when the chunk at address has its header.
  bool IsBuilt(uintptr_t address) const { return address < m_next; }

  // Writes the header of the next unbuilt chunk as a free chunk that heads
  // the free chunk list, and returns it; null when every chunk is built.
  ChunkHeader* BuildNext() {
    if (m_next >= m_end) {
      return 0;
    }
    ChunkHeader* chunk = ChunkAt(m_next);
    m_next += m_chunkSize;
    chunk->chunkBytes = m_chunkSize;
    chunk->prevChunk = 0;
    chunk->nextChunk = 0;
    chunk->freeBlocks = 0;
    chunk->usedBlocks = 0;
    chunk->unused = 0;
    chunk->blockSize = 0;
    return chunk;
  }

 private:
  uintptr_t m_next;
  uintptr_t m_end;
  uint32_t m_chunkSize;
};

}  // namespace Heap
}  // namespace Quendal

#endif
