// What the pool counts for its statistics (quendal/heap_stats.h): the fewest
// free chunks there ever were, and the requests it passed to its overflow
// heap, by why. Everything else the statistics show is read from the chunks
// when a snapshot is taken, so the allocation fast path (Alloc's inline
// path, TakeBlock, Release) counts nothing: only the slow paths that take a
// free chunk or route a request to the overflow heap call in here. Counting
// changes nothing the pool does.
#ifndef QUENDAL_HEAP_POOL_COUNTERS_H
#define QUENDAL_HEAP_POOL_COUNTERS_H

#include <stdint.h>

namespace Quendal {
namespace Heap {

class PoolCounters {
 public:
  PoolCounters() : m_lowestFreeChunks(0xFFFFFFFFu), m_exhaustedRequests(0), m_largeRequests(0) {}

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
      ++m_largeRequests;
    }
  }

  // The low-water mark, given the count now. The count only ever starts at
  // its highest, so a mark not yet set by a fall is the count itself.
  uint32_t LowestFreeChunks(uint32_t freeChunksNow) const {
    return freeChunksNow < m_lowestFreeChunks ? freeChunksNow : m_lowestFreeChunks;
  }
  uint64_t ExhaustedRequests() const { return m_exhaustedRequests; }
  uint64_t LargeRequests() const { return m_largeRequests; }

 private:
  uint32_t m_lowestFreeChunks;
  uint64_t m_exhaustedRequests;
  uint64_t m_largeRequests;
};

}  // namespace Heap
}  // namespace Quendal

#endif
