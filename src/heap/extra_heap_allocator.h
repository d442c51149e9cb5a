// The pool's backing-heap policy in the library: forwards to the ExtraHeap
// singleton.
#ifndef QUENDAL_HEAP_EXTRA_HEAP_ALLOCATOR_H
#define QUENDAL_HEAP_EXTRA_HEAP_ALLOCATOR_H

#include <stddef.h>
#include <stdlib.h>

#include "heap/overflow_tally.h"
#include "platform/extra_heap_block_size.h"
#include "platform/memory_checker.h"
#include "quendal/extra_heap.h"

namespace Quendal {
namespace Heap {

// QDHeapDeInit may release the instance while the pool still routes requests
// to it. The instance's members only forward to the C library, so without an
// instance the C library is called the same way instead of through null.
struct ExtraHeapAllocator {
  static void* Alloc(size_t size) {
    ExtraHeap* instance = ExtraHeap::GetInstance();
    return instance != 0 ? instance->Alloc(size) : malloc(size);
  }
  static void* ReAlloc(void* pointer, size_t size) {
    ExtraHeap* instance = ExtraHeap::GetInstance();
    return instance != 0 ? instance->ReAlloc(pointer, size) : realloc(pointer, size);
  }
  // The instance has no zeroing entry; it would only forward to the C
  // library as this does.
  static void* AllocCleared(size_t size) { return calloc(1, size); }
  static void Free(void* pointer) {
    ExtraHeap* instance = ExtraHeap::GetInstance();
    if (instance != 0) {
      instance->Free(pointer);
    } else {
      free(pointer);
    }
  }
};

// In the drop-in the extra heap's blocks are the C library's, which tells
// their size; the library on its own does not know it.
template <>
struct OverflowBlockSize<ExtraHeapAllocator> {
  static size_t Of(const void* block) { return Platform::ExtraHeapBlockSize(block); }
};

}  // namespace Heap

// The library's pool: its segment is a block of the C library's heap, which
// a memory checker watches, and its blocks are the program's allocations.
namespace Platform {
template <>
struct ShowsBlocksToMemoryCheckers<Heap::ExtraHeapAllocator> {
  static const bool kValue = true;
};
}  // namespace Platform

}  // namespace Quendal

#endif
