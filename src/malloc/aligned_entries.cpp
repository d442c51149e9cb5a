// The C library's aligned allocation entries, on the heap.
#include <errno.h>
#include <malloc.h>
#include <stdint.h>
#include <stdlib.h>

#include "malloc/allocation.h"
#include "platform/memory_map.h"
#include "quendal/export.h"

using Quendal::DropIn::AllocateAligned;

namespace {

bool IsPowerOfTwo(size_t value) {
  return value != 0 && (value & (value - 1)) == 0;
}

void* InvalidAlignment() {
  errno = EINVAL;
  return 0;
}

}  // namespace

extern "C" {

// glibc's memalign: an alignment that is not a power of two is raised to
// the next one; one that cannot be raised is invalid.
QD_EXPORT void* memalign(size_t alignment, size_t size) QD_NOTHROW {
  if (alignment > SIZE_MAX / 2 + 1) {
    return InvalidAlignment();
  }
  size_t powerOfTwo = 1;
  while (powerOfTwo < alignment) {
    powerOfTwo <<= 1;
  }
  return AllocateAligned(powerOfTwo, size);
}

QD_EXPORT int posix_memalign(void** block, size_t alignment, size_t size) QD_NOTHROW {
  if (!IsPowerOfTwo(alignment) || alignment % sizeof(void*) != 0) {
    return EINVAL;
  }
  void* aligned = AllocateAligned(alignment, size);
  if (aligned == 0) {
    return ENOMEM;
  }
  *block = aligned;
  return 0;
}

// C11 leaves an alignment that is not a power of two to the
// implementation; it fails here, as in later glibc.
QD_EXPORT void* aligned_alloc(size_t alignment, size_t size) QD_NOTHROW {
  if (!IsPowerOfTwo(alignment)) {
    return InvalidAlignment();
  }
  return AllocateAligned(alignment, size);
}

QD_EXPORT void* valloc(size_t size) QD_NOTHROW {
  return AllocateAligned(Quendal::Platform::PageSize(), size);
}

// A whole number of pages, at least one.
QD_EXPORT void* pvalloc(size_t size) QD_NOTHROW {
  const size_t page = Quendal::Platform::PageSize();
  if (size > SIZE_MAX - (page - 1)) {
    errno = ENOMEM;
    return 0;
  }
  size_t pages = size == 0 ? page : (size + page - 1) & ~(page - 1);
  return AllocateAligned(page, pages);
}

}  // extern "C"
