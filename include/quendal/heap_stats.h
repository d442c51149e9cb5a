/* Statistics of the heap: how many chunks the pool has, how few were ever
 * free, what each size class holds, and how many requests the extra heap
 * served instead of the pool. Compiles as C and as C++. How to read them and
 * how to size CHUNKS from them: docs/statistics.md. */
#ifndef QUENDAL_HEAP_STATS_H
#define QUENDAL_HEAP_STATS_H

#include <stdint.h>
#include <stdio.h>

#include "quendal/export.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Entries of QDHeapStats.classes: the 128 classes of 8 to 1024 bytes that
 * every process's pool has. */
#define QD_HEAP_STATS_CLASSES 128

/* Results of QDHeapGetStats. */
#define QD_HEAP_STATS_OK 0
#define QD_HEAP_STATS_NULL_POINTER 1
#define QD_HEAP_STATS_UNKNOWN_SIZE 2

/* One size class, counted over the chunks on its list when the snapshot was
 * taken. */
typedef struct QDHeapClassStats {
  /* The class's block size in bytes: (index + 1) * 8. */
  uint32_t blockSize;
  /* Chunks the class holds. */
  uint32_t chunks;
  /* Blocks handed out and not yet released. */
  uint32_t usedBlocks;
  /* Blocks its chunks hold in all, used or free. */
  uint32_t blockCapacity;
} QDHeapClassStats;

/* A snapshot of the heap. The structure grows only at its end: a caller
 * built against an older, shorter version sets size to its own
 * sizeof(QDHeapStats) and gets the fields it knows. Every counter runs from
 * the heap's first initialisation. */
typedef struct QDHeapStats {
  /* Set by the caller before the call: sizeof(QDHeapStats). Never written. */
  uint32_t size;
  /* The CHUNKS of the .mem file (default 650; 0 counts as 1), and the chunk
   * size, 2048. */
  uint32_t chunkCount;
  uint32_t chunkSize;
  /* Chunks of chunkCount the pool does not have, which no request can get:
   * 1 when aligning the segment to the chunk size cost its last chunk, else
   * 0; more when the segment holds fewer chunks (chunkCount * chunkSize
   * wraps 32 bits or reaches 2 GiB), and all of them while the pool has no
   * segment. */
  uint32_t lostChunks;
  /* Chunks a request can still get now, and the fewest there ever were
   * since the pool got its segment (the low-water mark). chunkCount =
   * lostChunks + freeChunks + the chunks the classes hold. Peak chunks in
   * use = chunkCount - lostChunks - lowestFreeChunks. */
  uint32_t freeChunks;
  uint32_t lowestFreeChunks;
  /* Requests of pooled size the extra heap served because no chunk was
   * left for their class (or the pool has no segment). */
  uint64_t exhaustedRequests;
  /* Requests above the largest pooled size (1024 bytes), all served by the
   * extra heap. A reallocation of a block outside the pool counts in
   * neither: it stays in the extra heap by rule. */
  uint64_t largeRequests;
  /* Entries of classes written: the pool's classes (128), or fewer when
   * size leaves room for fewer entries; 0 while the pool has no segment,
   * and 1 for a pool built by a heap call made while the heap was
   * initialising. Entry k is the class of (k + 1) * 8 bytes. */
  uint32_t classCount;
  QDHeapClassStats classes[QD_HEAP_STATS_CLASSES];
  /* Blocks of pooled size the extra heap holds now because no chunk was
   * left for them, of those the library follows to their release. */
  uint32_t extraHeapBlocks;
  /* Blocks of pooled size that went to the extra heap for want of a chunk
   * and that the library could not follow to their release: beyond the
   * 6144 it follows at once, or of a class past the 128 counted ones. */
  uint32_t unfollowedBlocks;
  /* The most chunks this run would have used at one time had the pool never
   * run out, by estimate: the chunks in use plus, per class, the chunks the
   * followed blocks of the extra heap would have filled. The peak chunks in
   * use when exhaustedRequests is 0. */
  uint32_t peakChunksNeeded;
  /* peakChunksNeeded counting every unfollowed block as never released (and
   * in a chunk of its own where its class is past the counted ones): equal
   * to peakChunksNeeded while unfollowedBlocks is 0, else larger. */
  uint32_t peakChunksNeededAtMost;
  /* Blocks, and their bytes, that libQuendalMalloc.so's per-thread caches
   * hold for their threads' next requests: in use for the pool (counted in
   * usedBlocks), free for the program. 0 in libQuendal.so. */
  uint32_t threadCachedBlocks;
  uint32_t threadCachedBytes;
} QDHeapStats;

/* Fills stats with a consistent snapshot taken under the heap's lock,
 * initialising the heap first when no heap entry has yet. Only the fields
 * that lie wholly within the first stats->size bytes are written (so only
 * the class entries that fit, classCount telling how many); the others keep
 * their values. Returns QD_HEAP_STATS_OK, QD_HEAP_STATS_NULL_POINTER for a
 * null stats, or QD_HEAP_STATS_UNKNOWN_SIZE when size is below the end of
 * chunkCount or above sizeof(QDHeapStats) (nothing is written then). Calls
 * no allocator once the heap is initialised. */
QD_EXPORT int QDHeapGetStats(QDHeapStats* stats) QD_NOTHROW;

/* Writes the same snapshot as text for a person to read: a header, the
 * counters, a table of the classes that hold chunks, and last a line that
 * starts "CHUNKS <n> ", n being the value to give CHUNKS: "CHUNKS <n> would
 * have held the peak of this run", with ", by estimate: the pool ran out of
 * chunks" added when it did, or "CHUNKS <n> to try: ..." when only a lower
 * bound is known. A null stream is ignored. Writes with fprintf only and
 * allocates nothing itself. */
QD_EXPORT void QDHeapWriteStats(FILE* stream) QD_NOTHROW;

#ifdef __cplusplus
}
#endif

#endif
