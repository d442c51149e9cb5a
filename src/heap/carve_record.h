// Remembers the chunk carved last while its free list still reads exactly as
// carving wrote it, so that the chunk is not carved again when it comes back
// whole and is given to the same class: carving would write the links it
// already holds.
//
// Invariant: when Chunk() is set, its free list from freeBlocks on lists its
// blocks of BlockSize() bytes in address order up to Last(), whose link is
// null. Blocks taken from the front keep this; a block given back keeps it
// only when it is the one just in front of the list (the last block when the
// chunk is full), anything else forgets the record.
#ifndef QUENDAL_HEAP_CARVE_RECORD_H
#define QUENDAL_HEAP_CARVE_RECORD_H

#include <stdint.h>

#include "heap/chunk_header.h"
#include "util/compiler.h"

namespace Quendal {
namespace Heap {

class CarveRecord {
 public:
  CarveRecord() : m_chunk(0), m_last(0), m_blockSize(0) {}

  ChunkHeader* Chunk() const { return m_chunk; }
  void* Last() const { return m_last; }
  uint32_t BlockSize() const { return m_blockSize; }

  void Carved(ChunkHeader* chunk, void* last, uint32_t blockSize) {
    m_chunk = chunk;
    m_last = last;
    m_blockSize = blockSize;
  }

  void Forget() { m_chunk = 0; }

  // True when chunk, whole again, would be carved for blockSize into the
  // very list it holds.
  bool ReadsAsCarved(ChunkHeader* chunk, uint32_t blockSize) const {
    return chunk == m_chunk && blockSize == m_blockSize && chunk->freeBlocks == FirstBlock(chunk);
  }

  // block is about to be pushed in front of chunk's free list.
  void BlockGivenBack(ChunkHeader* chunk, void* block) {
    if (chunk == m_chunk) {
      BlockGivenBack(chunk, block, chunk->freeBlocks);
    }
  }
  // The same, for a chunk whose first free block is firstFree.
  QD_ALWAYS_INLINE void BlockGivenBack(ChunkHeader* chunk, void* block, void* firstFree) {
    if (chunk != m_chunk) {
      return;
    }
    void* expected = firstFree != 0 ? static_cast<unsigned char*>(firstFree) - m_blockSize : m_last;
    if (block != expected) {
      m_chunk = 0;
    }
  }

 private:
  ChunkHeader* m_chunk;
  void* m_last;
  uint32_t m_blockSize;
};

}  // namespace Heap
}  // namespace Quendal

#endif
