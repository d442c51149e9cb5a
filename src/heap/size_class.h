// The pool's 8-byte size classes: a request of n bytes is served by a block of
// n rounded up to a multiple of 8, class index rounded / 8 - 1.
#ifndef QUENDAL_HEAP_SIZE_CLASS_H
#define QUENDAL_HEAP_SIZE_CLASS_H

#include <stddef.h>

namespace Quendal {
namespace Heap {

static const size_t kClassGranule = 8;

inline size_t ClassSize(size_t size) {
  return (size & ~(kClassGranule - 1)) + ((size & (kClassGranule - 1)) != 0 ? kClassGranule : 0);
}

inline size_t ClassIndex(size_t classSize) {
  return classSize / kClassGranule - 1;
}

// ClassIndex(ClassSize(size)) for a size of at least 1, in one shift.
inline size_t ClassIndexOfRequest(size_t size) {
  return (size - 1) / kClassGranule;
}

}  // namespace Heap
}  // namespace Quendal

#endif
