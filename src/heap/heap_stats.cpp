// The exported statistics entries and their text.
#include <stddef.h>
#include <string.h>

#include "heap/heap_init.h"
#include "heap/heap_stats_text.h"
#include "heap/pool_geometry.h"
#include "heap/pool_stats.h"
#include "heap/the_heap.h"
#include "heap/thread_cached_blocks.h"
#include "quendal/heap.h"
#include "quendal/heap_stats.h"
#include "util/compiler.h"

namespace Quendal {
namespace Heap {

namespace {

// Takes the snapshot under the heap's lock, and why the pool lacks chunks.
struct StatsReader {
  explicit StatsReader(QDHeapStats& stats) : m_stats(stats), m_cause(kLostToAlignment) {}
  void operator()(const Pool& pool) {
    ReadPoolStats(pool, m_stats);
    m_cause = CauseOfLostChunks(pool);
  }
  QDHeapStats& m_stats;
  LostChunksCause m_cause;
};

CachedBlocksCounter cachedBlocksCounter = 0;

// The caches are counted after the heap's lock is left: their own lock is
// never taken under it.
LostChunksCause TakeSnapshot(QDHeapStats& stats) {
  StatsReader reader(stats);
  TheHeap::getInstance(true)->Inspect(reader);
  CachedBlocksCounter counter = __atomic_load_n(&cachedBlocksCounter, __ATOMIC_ACQUIRE);
  if (counter != 0) {
    counter(&stats.threadCachedBlocks, &stats.threadCachedBytes);
  }
  return reader.m_cause;
}

// FilledBytes relies on this layout: no padding anywhere before classes.
typedef char WideFieldsStartOnAMultipleOf8[offsetof(QDHeapStats, exhaustedRequests) == 24 ? 1 : -1];
typedef char ClassesFollowClassCount[offsetof(QDHeapStats, classes) == 44 ? 1 : -1];

// The fields behind classes are 4 bytes wide and follow it without a gap.
typedef char TailFollowsClasses[offsetof(QDHeapStats, extraHeapBlocks) ==
                                        offsetof(QDHeapStats, classes) +
                                            QD_HEAP_STATS_CLASSES * sizeof(QDHeapClassStats)
                                    ? 1
                                    : -1];
const size_t kTailEnd = offsetof(QDHeapStats, threadCachedBytes) + sizeof(uint32_t);

// The end of the last field that lies wholly within the first size bytes;
// size is at least the end of chunkCount. The fields before classes are all
// 4 or 8 bytes wide and the 8-byte ones start on a multiple of 8.
size_t FilledBytes(uint32_t size) {
  const size_t classesStart = offsetof(QDHeapStats, classes);
  const size_t tailStart = offsetof(QDHeapStats, extraHeapBlocks);
  if (size >= tailStart) {
    size_t end = tailStart + (size - tailStart) / 4 * 4;
    return end < kTailEnd ? end : kTailEnd;
  }
  if (size >= classesStart) {
    size_t entries = (size - classesStart) / sizeof(QDHeapClassStats);
    return classesStart + entries * sizeof(QDHeapClassStats);
  }
  const size_t wideStart = offsetof(QDHeapStats, exhaustedRequests);
  const size_t wideEnd = offsetof(QDHeapStats, classCount);
  if (size > wideStart && size < wideEnd) {
    return wideStart + (size - wideStart) / 8 * 8;
  }
  return static_cast<size_t>(size) / 4 * 4;
}

// The most chunks the classes held at one time.
uint32_t PeakChunksUsed(const QDHeapStats& stats) {
  return stats.chunkCount - stats.lostChunks - stats.lowestFreeChunks;
}

}  // namespace

// A pool that lacked chunks for any cause needs one more than its peak:
// the next segment is as likely to lose one to its alignment.
uint32_t ChunksForPeak(const QDHeapStats& stats) {
  return PeakChunksUsed(stats) + (stats.lostChunks != 0 ? 1 : 0);
}

uint32_t ChunksNeeded(const QDHeapStats& stats) {
  if (stats.exhaustedRequests == 0) {
    return ChunksForPeak(stats);
  }
  return stats.peakChunksNeeded + (stats.lostChunks != 0 ? 1 : 0);
}

uint32_t ChunksToTry(const QDHeapStats& stats) {
  if (stats.exhaustedRequests == 0) {
    return ChunksForPeak(stats);
  }
  return stats.peakChunksNeededAtMost + (stats.lostChunks != 0 ? 1 : 0);
}

void WriteHeapStatsText(FILE* stream, const QDHeapStats& stats, LostChunksCause cause) {
  unsigned long peak = static_cast<unsigned long>(PeakChunksUsed(stats));
  unsigned long chunkCount = static_cast<unsigned long>(stats.chunkCount);
  unsigned long chunkSize = static_cast<unsigned long>(stats.chunkSize);
  unsigned long lost = static_cast<unsigned long>(stats.lostChunks);
  unsigned long limit = static_cast<unsigned long>(ChunkLimit(stats.chunkSize));
  fprintf(stream, "libQuendal heap statistics\n");
  if (cause == kLostWithoutSegment) {
    fprintf(stream, "chunks:           %lu of %lu bytes, %lu of them lost: the pool has no segment",
            chunkCount, chunkSize, lost);
  } else if (cause == kLostToSegmentSize) {
    fprintf(stream,
            "chunks:           %lu of %lu bytes, %lu of them lost: the segment holds only %lu",
            chunkCount, chunkSize, lost, chunkCount - lost);
  } else {
    fprintf(stream, "chunks:           %lu of %lu bytes, %lu of them lost to aligning the segment",
            chunkCount, chunkSize, lost);
  }
  // Past the limit the pool has far fewer chunks than CHUNKS, or none,
  // whatever the C library grants: the count itself is what to fix.
  if (stats.chunkCount > limit) {
    fprintf(stream, "; CHUNKS is above the pool's limit of %lu chunks", limit);
  }
  fprintf(stream, "\n");
  fprintf(stream, "free chunks:      %lu now, %lu at the fewest\n",
          static_cast<unsigned long>(stats.freeChunks),
          static_cast<unsigned long>(stats.lowestFreeChunks));
  fprintf(stream, "peak chunks used: %lu\n", peak);
  fprintf(stream,
          "to the extra heap: %llu requests of pooled size with no chunk left, %llu above the "
          "pooled size\n",
          static_cast<unsigned long long>(stats.exhaustedRequests),
          static_cast<unsigned long long>(stats.largeRequests));
  if (stats.threadCachedBlocks != 0) {
    fprintf(stream, "thread caches:    %lu blocks of %lu bytes in use, held for their threads\n",
            static_cast<unsigned long>(stats.threadCachedBlocks),
            static_cast<unsigned long>(stats.threadCachedBytes));
  }
  fprintf(stream, "class  block bytes  chunks  blocks in use  block capacity\n");
  uint32_t rows = 0;
  for (uint32_t index = 0; index < stats.classCount; ++index) {
    const QDHeapClassStats& entry = stats.classes[index];
    if (entry.chunks == 0) {
      continue;
    }
    ++rows;
    fprintf(stream, "%5lu  %11lu  %6lu  %13lu  %14lu\n", static_cast<unsigned long>(index),
            static_cast<unsigned long>(entry.blockSize), static_cast<unsigned long>(entry.chunks),
            static_cast<unsigned long>(entry.usedBlocks),
            static_cast<unsigned long>(entry.blockCapacity));
  }
  if (rows == 0) {
    fprintf(stream, "(no class holds a chunk now)\n");
  }
  // One line, the value for CHUNKS its second word. A pool that ran out
  // adds what the extra heap held instead, as far as it was followed.
  unsigned long needed = static_cast<unsigned long>(ChunksNeeded(stats));
  unsigned long suggested = needed;
  if (stats.exhaustedRequests == 0) {
    fprintf(stream, "CHUNKS %lu would have held the peak of this run", needed);
  } else if (stats.unfollowedBlocks == 0) {
    fprintf(stream,
            "CHUNKS %lu would have held the peak of this run, by estimate: the pool ran out of "
            "chunks",
            needed);
  } else {
    suggested = static_cast<unsigned long>(ChunksToTry(stats));
    fprintf(stream,
            "CHUNKS %lu to try: the pool ran out of chunks and this run needed at least %lu",
            suggested, needed);
  }
  // A value past the limit would give a broken pool, not a larger one.
  if (suggested > limit) {
    fprintf(stream, "; that is above the pool's limit of %lu chunks", limit);
  }
  fprintf(stream, "\n");
}

void CountCachedBlocksWith(CachedBlocksCounter counter) {
  __atomic_store_n(&cachedBlocksCounter, counter, __ATOMIC_RELEASE);
}

}  // namespace Heap
}  // namespace Quendal

extern "C" int QDHeapGetStats(QDHeapStats* stats) QD_NOTHROW {
  Quendal::Heap::EnsureHeapInitialized();
  if (stats == 0) {
    return QD_HEAP_STATS_NULL_POINTER;
  }
  uint32_t size = stats->size;
  if (size < offsetof(QDHeapStats, chunkCount) + sizeof stats->chunkCount ||
      size > sizeof(QDHeapStats)) {
    return QD_HEAP_STATS_UNKNOWN_SIZE;
  }
  QDHeapStats snapshot;
  Quendal::Heap::TakeSnapshot(snapshot);
  size_t filled = Quendal::Heap::FilledBytes(size);
  size_t room = filled > offsetof(QDHeapStats, classes)
                    ? (filled - offsetof(QDHeapStats, classes)) / sizeof(QDHeapClassStats)
                    : 0;
  if (room < snapshot.classCount) {
    snapshot.classCount = static_cast<uint32_t>(room);
  }
  const size_t first = offsetof(QDHeapStats, chunkCount);
  memcpy(reinterpret_cast<unsigned char*>(stats) + first,
         reinterpret_cast<const unsigned char*>(&snapshot) + first, filled - first);
  return QD_HEAP_STATS_OK;
}

extern "C" void QDHeapWriteStats(FILE* stream) QD_NOTHROW {
  Quendal::Heap::EnsureHeapInitialized();
  if (stream == 0) {
    return;
  }
  QDHeapStats snapshot;
  Quendal::Heap::LostChunksCause cause = Quendal::Heap::TakeSnapshot(snapshot);
  Quendal::Heap::WriteHeapStatsText(stream, snapshot, cause);
}
