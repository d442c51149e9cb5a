// The statistics as text for a person to read (QDHeapWriteStats), from a
// snapshot, so that tests can write the snapshot of a pool of their own.
#ifndef QUENDAL_HEAP_HEAP_STATS_TEXT_H
#define QUENDAL_HEAP_HEAP_STATS_TEXT_H

#include <stdint.h>
#include <stdio.h>

#include "quendal/heap_stats.h"

namespace Quendal {
namespace Heap {

// The CHUNKS value that would have held the peak of chunks in use: the free
// chunk count starts at CHUNKS even when aligning the segment cost a chunk,
// so that chunk is added back.
uint32_t ChunksForPeak(const QDHeapStats& stats);

// Writes with fprintf only; allocates nothing.
void WriteHeapStatsText(FILE* stream, const QDHeapStats& stats);

}  // namespace Heap
}  // namespace Quendal

#endif
