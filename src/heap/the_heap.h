// The process-wide heap behind the exported entries, and the lazy
// initialisation flag they test.
#ifndef QUENDAL_HEAP_THE_HEAP_H
#define QUENDAL_HEAP_THE_HEAP_H

#include <stdint.h>

#include "heap/extra_heap_allocator.h"
#include "heap/heap_mutex.h"
#include "heap/locked_allocator.h"
#include "heap/pool_chunk_allocator.h"
#include "heap/singleton_allocator.h"

namespace Quendal {
namespace Heap {

typedef ConfigPoolChunkAllocator<ExtraHeapAllocator, ExtraHeapAllocator> Pool;
typedef LockedAllocator<Mutex, Pool> LockedPool;
typedef SingletonAllocator<LockedPool> TheHeap;

// Non-zero until QDHeapInit starts, and again after my_unload: the next call
// of any exported heap or query entry initialises the heap first.
extern uint8_t initNeeded;

}  // namespace Heap
}  // namespace Quendal

#endif
