// The exported heap entries: initialise the heap when it is not ready, then
// forward to the one locked pool.
#include "heap/heap_init.h"
#include "heap/the_heap.h"
#include "quendal/heap.h"
#include "util/compiler.h"

using Quendal::Heap::EnsureHeapInitialized;
using Quendal::Heap::TheHeap;

extern "C" void* QDHeapAlloc(size_t size) QD_NOTHROW {
  EnsureHeapInitialized();
  if (size == 0) {
    return 0;
  }
  return TheHeap::getInstance(true)->Alloc(size);
}

extern "C" void QDHeapFree(void* pointer) QD_NOTHROW {
  EnsureHeapInitialized();
  if (pointer == 0) {
    return;
  }
  TheHeap::getInstance(true)->Free(pointer);
}

extern "C" void* QDHeapReAlloc(void* pointer, size_t size) QD_NOTHROW {
  EnsureHeapInitialized();
  void* block = TheHeap::getInstance(true)->ReAlloc(pointer, size);
  return size != 0 ? block : 0;
}
