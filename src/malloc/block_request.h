// What the drop-in asks the heap for when a C or C++ caller asks for size
// bytes: malloc's blocks must be aligned for any object that fits in them.
// A pool block is aligned to the largest power of two dividing its class
// size, up to the fundamental alignment (chunks are aligned and headers
// padded to it), so every request above 8 bytes is rounded up to a
// multiple of that alignment: 16 bytes on x86-64 and i386, 8 on 32-bit ARM.
// Objects of 8 bytes or less need no more than 8.
#ifndef QUENDAL_MALLOC_BLOCK_REQUEST_H
#define QUENDAL_MALLOC_BLOCK_REQUEST_H

#include <stddef.h>
#include <stdint.h>

#include "util/max_align.h"

namespace Quendal {
namespace DropIn {

static const size_t kMallocAlignment = kMaxAlign;

// The size to ask the heap for; 8 for 0, so that every malloc(0) gets a
// block of its own. 0 when size cannot be rounded without wrapping.
inline size_t BlockRequest(size_t size) {
  if (size <= 8) {
    return 8;
  }
  if (size > SIZE_MAX - (kMallocAlignment - 1)) {
    return 0;
  }
  return (size + kMallocAlignment - 1) & ~(kMallocAlignment - 1);
}

}  // namespace DropIn
}  // namespace Quendal

#endif
