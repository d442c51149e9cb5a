// The C library's own allocator, reached past any malloc that replaces it in
// the process. The drop-in allocator serves from it what the pool does not
// hold: the library's own structures, the extra heap, over-aligned blocks.
// Only a C library that names its allocator's entries provides this file's
// functions (glibc on Linux); the library itself never calls them.
#ifndef QUENDAL_PLATFORM_C_LIBRARY_HEAP_H
#define QUENDAL_PLATFORM_C_LIBRARY_HEAP_H

#include <stddef.h>

namespace Quendal {
namespace Platform {

void* CLibraryMalloc(size_t size);
void* CLibraryCalloc(size_t count, size_t size);
void* CLibraryReAlloc(void* pointer, size_t size);
void CLibraryFree(void* pointer);
// alignment is a power of two.
void* CLibraryMemalign(size_t alignment, size_t size);
// The usable size of a block of the C library's allocator.
size_t CLibraryUsableSize(void* pointer);

// Sets the C library's allocator up for what the drop-in leaves it: the
// pool holds the small blocks, so its heap holds mostly large ones, and
// without small blocks pinning its top it would give memory back and take
// it again with nearly every large block. Called once, when the drop-in is
// loaded; a C library without such settings, or a process whose user set
// them, is left as it is.
void TuneCLibraryHeapForLargeBlocks();

}  // namespace Platform
}  // namespace Quendal

#endif
