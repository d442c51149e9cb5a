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

// Why the pool lacks the chunks a snapshot counts as lost; the text names it.
enum LostChunksCause {
  // None is lacking, or only the last one, given up to aligning the segment.
  kLostToAlignment,
  // The segment holds fewer chunks than that: the chunk count times the
  // chunk size wrapped 32 bits or reached 2 GiB, or the segment was sized
  // before the pool was configured.
  kLostToSegmentSize,
  // The pool has no segment: every chunk is lacking until a request gets one.
  kLostWithoutSegment
};

template <class Pool>
LostChunksCause CauseOfLostChunks(const Pool& pool) {
  if (pool.Segment() == 0) {
    return kLostWithoutSegment;
  }
  uint32_t aligning = pool.AlignedSegment() != reinterpret_cast<uintptr_t>(pool.Segment()) ? 1 : 0;
  uint32_t laidOut = pool.LaidOutChunks();
  uint32_t lacking = pool.ChunkCount() > laidOut ? pool.ChunkCount() - laidOut : 0;
  return lacking <= aligning ? kLostToAlignment : kLostToSegmentSize;
}

// Fills every field of stats (size becomes sizeof(QDHeapStats)). Reads the
// pool only; the caller holds the pool's lock. Only the chunks laid out in
// the segment count as free: the pool's own free chunk count starts at the
// count the segment was asked for, whatever it holds, so the chunks it never
// laid out are taken off it (and off its low-water mark) here.
template <class Pool>
void ReadPoolStats(const Pool& pool, QDHeapStats& stats) {
  memset(&stats, 0, sizeof stats);
  stats.size = static_cast<uint32_t>(sizeof stats);
  stats.chunkCount = pool.m_chunkCount;
  stats.chunkSize = pool.m_chunkSize;
  stats.lostChunks = pool.m_chunkCount;
  stats.exhaustedRequests = pool.m_counters.ExhaustedRequests();
  stats.largeRequests = pool.m_counters.LargeRequests();
  if (pool.m_segment != 0) {
    uint32_t laidOut = pool.m_laidOutChunks;
    uint32_t neverLaidOut = pool.m_countedChunks - laidOut;
    stats.freeChunks = pool.m_freeChunkCount - neverLaidOut;
    stats.lowestFreeChunks = pool.m_counters.LowestFreeChunks(pool.m_freeChunkCount) - neverLaidOut;
    // A segment sized before Configure raised the chunk count holds fewer
    // chunks than the count, never more.
    stats.lostChunks = pool.m_chunkCount > laidOut ? pool.m_chunkCount - laidOut : 0;
  }
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
