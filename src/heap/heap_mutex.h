// The heap's lock.
#ifndef QUENDAL_HEAP_HEAP_MUTEX_H
#define QUENDAL_HEAP_HEAP_MUTEX_H

#include "platform/mutex.h"

namespace Quendal {
namespace Heap {

// Recursive, as the heap has always created it, although no path takes it
// twice on one thread.
typedef Platform::PersistentMutex<Platform::kRecursiveMutex> Mutex;

}  // namespace Heap
}  // namespace Quendal

#endif
