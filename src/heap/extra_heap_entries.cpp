// The exported entries that reach the extra heap directly, bypassing the pool
// and its lock.
#include "heap/heap_init.h"
#include "heap/the_heap.h"
#include "quendal/extra_heap.h"
#include "quendal/heap.h"
#include "util/compiler.h"

extern "C" void* QDExtraHeapAlloc(size_t size) QD_NOTHROW {
  Quendal::Heap::EnsureHeapInitialized();
  if (size == 0) {
    return 0;
  }
  return Quendal::Heap::ExtraHeapAllocator::Alloc(size);
}

extern "C" void* QDExtraHeapReAlloc(void* pointer, size_t size) QD_NOTHROW {
  Quendal::Heap::EnsureHeapInitialized();
  // Called even for size 0, so the C library releases the block; the caller
  // gets null whatever realloc returned.
  void* block = Quendal::Heap::ExtraHeapAllocator::ReAlloc(pointer, size);
  return size != 0 ? block : 0;
}

extern "C" void QDExtraHeapFree(void* pointer) QD_NOTHROW {
  Quendal::Heap::EnsureHeapInitialized();
  if (pointer == 0) {
    return;
  }
  Quendal::Heap::ExtraHeapAllocator::Free(pointer);
}
