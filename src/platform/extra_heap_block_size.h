// The usable size of a block of the extra heap, where the allocator behind
// it tells: the drop-in's C library heap does (malloc/allocation.cpp); the
// library on its own says 0, unknown (extra_heap_sizes_unknown.cpp). The
// heap's statistics class by it the blocks the extra heap serves of pooled
// sizes, so that a release need not be looked up.
#ifndef QUENDAL_PLATFORM_EXTRA_HEAP_BLOCK_SIZE_H
#define QUENDAL_PLATFORM_EXTRA_HEAP_BLOCK_SIZE_H

#include <stddef.h>

namespace Quendal {
namespace Platform {

// Defined once per shared library.
size_t ExtraHeapBlockSize(const void* block);

}  // namespace Platform
}  // namespace Quendal

#endif
