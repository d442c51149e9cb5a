// The drop-in's allocation paths shared by its C and C++ entries: C
// semantics on top of the heap's own (errno, unique blocks for size 0,
// alignment, zeroing). None throws, so the entries reach them by a jump.
#ifndef QUENDAL_MALLOC_ALLOCATION_H
#define QUENDAL_MALLOC_ALLOCATION_H

#include <stddef.h>

#include "quendal/export.h"

namespace Quendal {
namespace DropIn {

// malloc: a block of at least size bytes aligned for any object that fits
// in it, or null with errno ENOMEM.
void* Allocate(size_t size) QD_NOTHROW;

// calloc's block of count * size zero bytes, or null with errno ENOMEM
// (also when the product overflows).
void* AllocateCleared(size_t count, size_t size) QD_NOTHROW;

// realloc with glibc's edge cases: a null pointer allocates, size 0 frees
// and returns null; on failure the block stays and errno is ENOMEM.
void* Reallocate(void* pointer, size_t size) QD_NOTHROW;

// Releases a block of the heap, of the pool or of the C library; keeps
// errno.
void Release(void* pointer) QD_NOTHROW;

// Release for the library's own calls of free and delete, which may come
// from inside the heap's lock (the extra heap's release): the heap's count
// of the extra heap's blocks has seen those already.
void ReleaseForLibrary(void* pointer) QD_NOTHROW;

// memalign for an alignment that is a power of two: pool blocks serve
// alignments up to malloc's own, the C library's allocator larger ones.
void* AllocateAligned(size_t alignment, size_t size) QD_NOTHROW;

}  // namespace DropIn
}  // namespace Quendal

#endif
