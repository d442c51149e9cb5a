// The header the pool writes at the start of every chunk of its segment.
#ifndef QUENDAL_HEAP_CHUNK_HEADER_H
#define QUENDAL_HEAP_CHUNK_HEADER_H

#include <stddef.h>
#include <stdint.h>

#include "util/max_align.h"

namespace Quendal {
namespace Heap {

struct ChunkHeader {
  // Bytes in the chunk, header included.
  uint32_t chunkBytes;
  // Neighbours in whichever list holds the chunk (free chunk list or its
  // class list); null at the ends.
  ChunkHeader* prevChunk;
  ChunkHeader* nextChunk;
  // First free block; each free block holds the next one in its first word.
  void* freeBlocks;
  // Blocks handed out. 16 bits on purpose: it wraps past 65535.
  uint16_t usedBlocks;
  uint16_t unused;
  // The chunk's class size in bytes; 0 while on the free chunk list.
  uint32_t blockSize;
};

// Blocks start behind the header padded to the fundamental alignment, so a
// block is aligned for any type that fits in it: 24 bytes on 32-bit ARM, 32
// on i386, 48 on x86-64.
static const size_t kChunkHeaderSize =
    (sizeof(ChunkHeader) + kMaxAlign - 1) / kMaxAlign * kMaxAlign;

// The chunk header at a chunk-aligned address.
inline ChunkHeader* ChunkAt(uintptr_t address) {
  return reinterpret_cast<ChunkHeader*>(address);
}

inline void* FirstBlock(ChunkHeader* chunk) {
  return reinterpret_cast<unsigned char*>(chunk) + kChunkHeaderSize;
}

// A free block's link to the next free block of its chunk.
inline void* NextFreeBlock(void* block) {
  return *static_cast<void**>(block);
}

inline void SetNextFreeBlock(void* block, void* next) {
  *static_cast<void**>(block) = next;
}

}  // namespace Heap
}  // namespace Quendal

#endif
