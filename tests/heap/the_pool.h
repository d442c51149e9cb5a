// The process's one pool, for tests that look inside the heap behind the
// exported entries.
#ifndef QUENDAL_TESTS_HEAP_THE_POOL_H
#define QUENDAL_TESTS_HEAP_THE_POOL_H

#include "heap/the_heap.h"

namespace QuendalTest {

inline Quendal::Heap::Pool& ThePool() {
  return Quendal::Heap::TheHeap::getInstance(false)->GetPool();
}

}  // namespace QuendalTest

#endif
