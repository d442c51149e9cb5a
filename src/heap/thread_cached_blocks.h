// The blocks that caches above the heap hold: for the pool they are in use,
// for the program free. The drop-in's per-thread caches tell the statistics
// about them through the counter they register; libQuendal.so has none.
#ifndef QUENDAL_HEAP_THREAD_CACHED_BLOCKS_H
#define QUENDAL_HEAP_THREAD_CACHED_BLOCKS_H

#include <stdint.h>

namespace Quendal {
namespace Heap {

// Adds the blocks the caches hold, and their bytes, to the two counts.
// Called without the heap's lock.
typedef void (*CachedBlocksCounter)(uint32_t* blocks, uint32_t* bytes);

// Registers the counter every snapshot of the statistics calls.
void CountCachedBlocksWith(CachedBlocksCounter counter);

}  // namespace Heap
}  // namespace Quendal

#endif
