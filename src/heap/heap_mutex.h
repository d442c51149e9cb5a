// The heap's lock.
#ifndef QUENDAL_HEAP_HEAP_MUTEX_H
#define QUENDAL_HEAP_HEAP_MUTEX_H

#include "platform/mutex.h"

namespace Quendal {
namespace Heap {

// No path takes the heap's lock twice on one thread, so it need not be
// recursive: the normal type measured cheapest, and under two threads
// contending it kept the most throughput (docs/BENCHMARKS.md). It is still
// created with an explicit type, as the heap has always created its lock.
typedef Platform::PersistentMutex<Platform::kNormalMutex> Mutex;

}  // namespace Heap
}  // namespace Quendal

#endif
