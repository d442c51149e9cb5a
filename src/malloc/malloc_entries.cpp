// The C library's allocation entries, on the heap.
#include <errno.h>
#include <malloc.h>
#include <stdint.h>
#include <stdlib.h>

#include "heap/pooled_blocks.h"
#include "malloc/allocation.h"
#include "platform/c_library_heap.h"
#include "quendal/export.h"

using Quendal::DropIn::Allocate;
using Quendal::DropIn::AllocateCleared;
using Quendal::DropIn::Reallocate;
using Quendal::DropIn::Release;

extern "C" {

QD_EXPORT void* malloc(size_t size) QD_NOTHROW {
  return Allocate(size);
}

QD_EXPORT void free(void* pointer) QD_NOTHROW {
  Release(pointer);
}

QD_EXPORT void* calloc(size_t count, size_t size) QD_NOTHROW {
  return AllocateCleared(count, size);
}

QD_EXPORT void* realloc(void* pointer, size_t size) QD_NOTHROW {
  return Reallocate(pointer, size);
}

QD_EXPORT void* reallocarray(void* pointer, size_t count, size_t size) QD_NOTHROW {
  if (size != 0 && count > SIZE_MAX / size) {
    errno = ENOMEM;
    return 0;
  }
  return Reallocate(pointer, count * size);
}

// A pool block's usable size is its class size; the drop-in asks for whole
// classes, so it is also the size the block was allocated with.
QD_EXPORT size_t malloc_usable_size(void* pointer) QD_NOTHROW {
  if (pointer == 0) {
    return 0;
  }
  if (Quendal::Heap::IsPooledBlock(pointer)) {
    return Quendal::Heap::PooledBlockSize(pointer);
  }
  return Quendal::Platform::CLibraryUsableSize(pointer);
}

}  // extern "C"
