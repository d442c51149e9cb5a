// What the pool counts for its statistics (quendal/heap_stats.h), kept as the
// pool works so that a snapshot costs what the classes cost, not what the
// chunks cost: per class, the blocks handed out (the class lists count their
// chunks, class_lists.h); the fewest free chunks there ever were; and the
// requests passed to the overflow heap, by why (those above the classes
// also counted without the lock).
//
// Invariant (checked by CheckPoolInvariants against a walk of the lists):
// for each of the first kCountedClasses classes, UsedBlocks() is the number
// of blocks its chunks have handed out and not taken back, counted without
// the 16-bit wrap of a chunk's own count. The classes past those share one
// entry that nothing reads. Counting changes nothing the pool does.
#ifndef QUENDAL_HEAP_POOL_COUNTERS_H
#define QUENDAL_HEAP_POOL_COUNTERS_H

#include <stddef.h>
#include <stdint.h>

#include "quendal/heap_stats.h"
#include "util/compiler.h"

namespace Quendal {
namespace Heap {

class PoolCounters {
 public:
  // The classes a snapshot can show.
  static const uint32_t kCountedClasses = QD_HEAP_STATS_CLASSES;

  PoolCounters() : m_lowestFreeChunks(0xFFFFFFFFu), m_exhaustedRequests(0), m_largeRequests(0) {
    for (uint32_t index = 0; index <= kCountedClasses; ++index) {
      m_usedBlocks[index] = 0;
    }
  }

  // The allocation and release fast paths: one addition each, and a
  // comparison for a class that may lie past the counted ones.
  // For an index known to be below kCountedClasses; the mask, a power of
  // two less one, only tells the compiler so.
  QD_ALWAYS_INLINE void CountedClassBlockTaken(size_t index) {
    ++m_usedBlocks[index & (kCountedClasses - 1)];
  }
  QD_ALWAYS_INLINE void BlockTaken(size_t index) { ++m_usedBlocks[Entry(index)]; }
  QD_ALWAYS_INLINE void BlockGivenBack(size_t index) { --m_usedBlocks[Entry(index)]; }

  // The free chunk count has just gone down to freeChunks.
  void FreeChunksFell(uint32_t freeChunks) {
    if (freeChunks < m_lowestFreeChunks) {
      m_lowestFreeChunks = freeChunks;
    }
  }

  // A request went to the overflow heap: of a size the classes serve (no
  // chunk was left for it), or above it.
  void Overflowed(bool pooledSize) {
    if (pooledSize) {
      ++m_exhaustedRequests;
    } else {
      LargeRequestServed();
    }
  }

  // A request above the classes, also counted without the pool's lock by
  // the drop-in, which takes those to the C library itself.
  void LargeRequestServed() {
#if defined(__GNUC__)
    __atomic_fetch_add(&m_largeRequests, 1, __ATOMIC_RELAXED);
#else
    ++m_largeRequests;
#endif
  }

  // The low-water mark, given the count now. The count only ever starts at
  // its highest, so a mark not yet set by a fall is the count itself.
  uint32_t LowestFreeChunks(uint32_t freeChunksNow) const {
    return freeChunksNow < m_lowestFreeChunks ? freeChunksNow : m_lowestFreeChunks;
  }
  uint64_t ExhaustedRequests() const {
    return m_exhaustedRequests;
  }
  uint64_t LargeRequests() const {
#if defined(__GNUC__)
    return __atomic_load_n(&m_largeRequests, __ATOMIC_RELAXED);
#else
    return m_largeRequests;
#endif
  }
  // For index below kCountedClasses.
  uint32_t UsedBlocks(size_t index) const {
    return m_usedBlocks[index];
  }

  // The entry of class index: its own, or the one the uncounted share.
  static size_t Entry(size_t index) {
    return index < kCountedClasses ? index : kCountedClasses;
  }

 private:
  QD_STATIC_ASSERT((kCountedClasses & (kCountedClasses - 1)) == 0);
  uint32_t m_usedBlocks[kCountedClasses + 1];
  uint32_t m_lowestFreeChunks;
  uint64_t m_exhaustedRequests;
  uint64_t m_largeRequests;
};

}  // namespace Heap
}  // namespace Quendal

#endif
