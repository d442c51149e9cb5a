// The statistics as text for a person to read (QDHeapWriteStats), from a
// snapshot, so that tests can write the snapshot of a pool of their own.
#ifndef QUENDAL_HEAP_HEAP_STATS_TEXT_H
#define QUENDAL_HEAP_HEAP_STATS_TEXT_H

#include <stdint.h>
#include <stdio.h>

#include "heap/pool_stats.h"
#include "quendal/heap_stats.h"

namespace Quendal {
namespace Heap {

// The CHUNKS value that would have held the peak of chunks in use: the peak,
// plus one for the chunk that aligning the segment may cost whenever this
// pool lacked any chunk.
uint32_t ChunksForPeak(const QDHeapStats& stats);

// The CHUNKS value of the sizing line. With no request of pooled size sent
// to the extra heap, ChunksForPeak. Else the estimated peak of chunks needed
// plus the aligning chunk: ChunksNeeded counts the blocks of the extra heap
// the library followed, a lower bound when some could not be followed;
// ChunksToTry counts those as never released, an upper bound.
uint32_t ChunksNeeded(const QDHeapStats& stats);
uint32_t ChunksToTry(const QDHeapStats& stats);

// Writes with fprintf only; allocates nothing. cause is the snapshot pool's
// CauseOfLostChunks.
void WriteHeapStatsText(FILE* stream, const QDHeapStats& stats, LostChunksCause cause);

}  // namespace Heap
}  // namespace Quendal

#endif
