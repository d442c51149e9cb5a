// Read-only access to the pool's parts, for the two readers that need more
// than its public interface: the statistics snapshot (pool_stats.h) and the
// invariant checker (pool_invariant_checker.h). Nothing here changes the
// pool.
#ifndef QUENDAL_HEAP_POOL_VIEW_H
#define QUENDAL_HEAP_POOL_VIEW_H

#include "heap/carve_record.h"
#include "heap/class_lists.h"
#include "heap/free_chunk_list.h"
#include "heap/overflow_tally.h"
#include "heap/pool_counters.h"
#include "heap/pool_geometry.h"
#include "heap/release_window.h"

namespace Quendal {
namespace Heap {

template <class Pool>
class PoolView {
 public:
  typedef typename Pool::ShortcutSet Shortcuts;

  explicit PoolView(const Pool& pool) : m_pool(pool) {}

  const PoolGeometry& Geometry() const { return m_pool.m_geometry; }
  const FreeChunkList<Shortcuts>& FreeChunks() const { return m_pool.m_free; }
  const ClassLists<Shortcuts>& Classes() const { return m_pool.m_classes; }
  const CarveRecord& Carved() const { return m_pool.m_carved; }
  const PoolCounters& Counters() const { return m_pool.m_counters; }
  const ReleaseWindow& Window() const { return m_pool.m_window; }
  bool CheckerWatches() const { return m_pool.m_checker.Active(); }
  const OverflowTally& Overflow() const { return m_pool.m_overflow; }

 private:
  const Pool& m_pool;
};

}  // namespace Heap
}  // namespace Quendal

#endif
