// The pool's statistics snapshot (quendal/heap_stats.h). What the chunks
// can tell is counted here, when the snapshot is taken, by walking the class
// lists as a caller sees them: a chunk whose return is deferred is free, not
// its class's, and chunks not yet built are free and on no list. The free
// chunk count already counts both. The rest comes from PoolCounters.
#ifndef QUENDAL_HEAP_POOL_STATS_H
#define QUENDAL_HEAP_POOL_STATS_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "heap/chunk_header.h"
#include "heap/pool_chunk_allocator.h"
#include "quendal/heap_stats.h"

namespace Quendal {
namespace Heap {

// Fills every field of stats (size becomes sizeof(QDHeapStats)). Reads the
// pool only; the caller holds the pool's lock.
template <class Pool>
void ReadPoolStats(const Pool& pool, QDHeapStats& stats) {
  memset(&stats, 0, sizeof stats);
  stats.size = static_cast<uint32_t>(sizeof stats);
  stats.chunkCount = pool.m_chunkCount;
  stats.chunkSize = pool.m_chunkSize;
  // Counted by the free chunk count but never laid out: the chunk aligning
  // the segment cost.
  stats.lostChunks = pool.m_segment != 0 ? pool.m_countedChunks - pool.m_laidOutChunks : 0;
  stats.freeChunks = pool.m_freeChunkCount;
  stats.lowestFreeChunks = pool.m_counters.LowestFreeChunks(pool.m_freeChunkCount);
  stats.exhaustedRequests = pool.m_counters.ExhaustedRequests();
  stats.largeRequests = pool.m_counters.LargeRequests();
  if (pool.m_classChunks == 0) {
    return;
  }
  uint32_t classes =
      pool.m_classCount < pool.m_classTableEntries ? pool.m_classCount : pool.m_classTableEntries;
  if (classes > QD_HEAP_STATS_CLASSES) {
    classes = QD_HEAP_STATS_CLASSES;
  }
  ChunkHeader* deferred = pool.DeferredChunk();
  for (uint32_t index = 0; index < classes; ++index) {
    QDHeapClassStats& entry = stats.classes[index];
    entry.blockSize = (index + 1) * 8;
    for (ChunkHeader* chunk = pool.m_classChunks[index]; chunk != 0; chunk = chunk->nextChunk) {
      if (chunk == deferred) {
        continue;
      }
      entry.chunks += 1;
      entry.usedBlocks += chunk->usedBlocks;
      entry.blockCapacity += (chunk->chunkBytes - kChunkHeaderSize) / entry.blockSize;
    }
  }
  stats.classCount = classes;
}

}  // namespace Heap
}  // namespace Quendal

#endif
