// The exported heap entries: initialise the heap when it is not ready, then
// forward to the one locked pool. A ready heap costs each entry one test of
// the lifecycle state and its own test of the argument; everything else
// waits out of line.
#include "heap/heap_init.h"
#include "heap/the_heap.h"
#include "quendal/heap.h"
#include "util/compiler.h"

using Quendal::Heap::EnsureHeapInitializedOutOfLine;
using Quendal::Heap::HeapIsReady;
using Quendal::Heap::TheHeap;

namespace {

QD_NOINLINE void* AllocStarting(size_t size) {
  EnsureHeapInitializedOutOfLine();
  if (size == 0) {
    return 0;
  }
  return TheHeap::getInstance(true)->Alloc(size);
}

QD_NOINLINE void FreeStarting(void* pointer) {
  EnsureHeapInitializedOutOfLine();
  if (pointer == 0) {
    return;
  }
  TheHeap::getInstance(true)->Free(pointer);
}

}  // namespace

extern "C" void* QDHeapAlloc(size_t size) QD_NOTHROW {
  if (QD_UNLIKELY(!HeapIsReady())) {
    return AllocStarting(size);
  }
  if (size == 0) {
    return 0;
  }
  return TheHeap::ReadyInstance()->Alloc(size);
}

extern "C" void QDHeapFree(void* pointer) QD_NOTHROW {
  if (QD_UNLIKELY(!HeapIsReady())) {
    FreeStarting(pointer);
    return;
  }
  if (pointer == 0) {
    return;
  }
  TheHeap::ReadyInstance()->Free(pointer);
}

extern "C" void* QDHeapReAlloc(void* pointer, size_t size) QD_NOTHROW {
  Quendal::Heap::EnsureHeapInitialized();
  void* block = TheHeap::getInstance(true)->ReAlloc(pointer, size);
  return size != 0 ? block : 0;
}
