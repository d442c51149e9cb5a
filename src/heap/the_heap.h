// The process-wide heap behind the exported entries.
#ifndef QUENDAL_HEAP_THE_HEAP_H
#define QUENDAL_HEAP_THE_HEAP_H

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

}  // namespace Heap
}  // namespace Quendal

#endif
