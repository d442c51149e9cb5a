// The pool's statistics snapshot (quendal/heap_stats.h), read from what the
// pool counts as it works (PoolCounters) and from its geometry: the cost of
// a snapshot grows with the classes, not with the chunks. As a caller sees
// them, a chunk whose return is deferred is free, not its class's, and
// chunks not yet built are free and on no list; the free chunk count already
// counts both.
#ifndef QUENDAL_HEAP_POOL_STATS_H
#define QUENDAL_HEAP_POOL_STATS_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include "heap/chunk_header.h"
#include "heap/overflow_tally.h"
#include "heap/pool_chunk_allocator.h"
#include "heap/pool_view.h"
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
  PoolView<Pool> view(pool);
  const PoolGeometry& geometry = view.Geometry();
  const PoolCounters& counters = view.Counters();
  uint32_t freeChunks = view.FreeChunks().Count();
  memset(&stats, 0, sizeof stats);
  stats.size = static_cast<uint32_t>(sizeof stats);
  stats.chunkCount = geometry.chunkCount;
  stats.chunkSize = geometry.chunkSize;
  stats.lostChunks = geometry.chunkCount;
  stats.exhaustedRequests = counters.ExhaustedRequests();
  stats.largeRequests = counters.LargeRequests();
  const OverflowTally& overflow = view.Overflow();
  stats.extraHeapBlocks = overflow.Followed();
  stats.unfollowedBlocks = overflow.Unfollowed();
  if (geometry.segment != 0) {
    uint32_t laidOut = geometry.laidOutChunks;
    uint32_t neverLaidOut = geometry.countedChunks - laidOut;
    stats.freeChunks = freeChunks - neverLaidOut;
    stats.lowestFreeChunks = counters.LowestFreeChunks(freeChunks) - neverLaidOut;
    // A segment sized before Configure raised the chunk count holds fewer
    // chunks than the count, never more.
    stats.lostChunks = geometry.chunkCount > laidOut ? geometry.chunkCount - laidOut : 0;
  }
  // Neither peak of the overflow heap's blocks can be below the peak in
  // use: both add to the chunks in use when the pool had no chunk left.
  uint32_t peakUsed = stats.chunkCount - stats.lostChunks - stats.lowestFreeChunks;
  stats.peakChunksNeeded = overflow.PeakFollowed() > peakUsed ? overflow.PeakFollowed() : peakUsed;
  stats.peakChunksNeededAtMost = overflow.PeakAtMost() > stats.peakChunksNeeded
                                     ? overflow.PeakAtMost()
                                     : stats.peakChunksNeeded;
  if (view.Classes().Table() == 0) {
    return;
  }
  uint32_t classes = geometry.ServedClasses();
  if (classes > QD_HEAP_STATS_CLASSES) {
    classes = QD_HEAP_STATS_CLASSES;
  }
  // Every chunk on a class list has the geometry's chunk size: a pool whose
  // segment was laid out before it was configured has no chunk at all (its
  // 16-byte chunks cannot hold a header).
  uint32_t blockBytes = geometry.chunkSize > kChunkHeaderSize
                            ? geometry.chunkSize - static_cast<uint32_t>(kChunkHeaderSize)
                            : 0;
  const DeferredChunkReturn& deferral = view.FreeChunks().Deferral();
  bool deferred = view.FreeChunks().Deferred() != 0;
  for (uint32_t index = 0; index < classes; ++index) {
    QDHeapClassStats& entry = stats.classes[index];
    entry.blockSize = (index + 1) * 8;
    entry.chunks = view.Classes().Chunks(index);
    if (deferred && deferral.ClassIndex() == index) {
      entry.chunks -= 1;
    }
    entry.usedBlocks = counters.UsedBlocks(index);
    entry.blockCapacity = entry.chunks * (blockBytes / entry.blockSize);
  }
  stats.classCount = classes;
}

}  // namespace Heap
}  // namespace Quendal

#endif
