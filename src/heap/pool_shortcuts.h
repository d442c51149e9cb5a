// Which shortcuts a pool is built with. Each shortcut keeps every address
// the pool hands out, every call into its backing heaps and the order in
// which blocks and chunks are reused exactly as the plain algorithm gives
// them; it changes only how the pool finds them. A pool with none is the
// plain algorithm itself, the reference the others are checked against.
#ifndef QUENDAL_HEAP_POOL_SHORTCUTS_H
#define QUENDAL_HEAP_POOL_SHORTCUTS_H

namespace Quendal {
namespace Heap {

template <bool lazyBuilding, bool deferredReturn, bool firstFreeIndex, bool carveRecord,
          bool releaseWindow = false>
struct PoolShortcutSet {
  // lazy_chunk_building.h
  static const bool kLazyBuilding = lazyBuilding;
  // deferred_chunk_return.h
  static const bool kDeferredReturn = deferredReturn;
  // first_free_index.h
  static const bool kFirstFreeIndex = firstFreeIndex;
  // carve_record.h
  static const bool kCarveRecord = carveRecord;
  // release_window.h
  static const bool kReleaseWindow = releaseWindow;
};

typedef PoolShortcutSet<true, true, true, true, true> AllPoolShortcuts;
typedef PoolShortcutSet<false, false, false, false, false> NoPoolShortcuts;

}  // namespace Heap
}  // namespace Quendal

#endif
