// glibc exports its allocator under second names that no replacement of
// malloc takes over; malloc_usable_size has none and is looked up past the
// replacement once.
#include "platform/c_library_heap.h"

#include <dlfcn.h>

#include "platform/own_work.h"

extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* pointer, size_t size);
void __libc_free(void* pointer);
void* __libc_memalign(size_t alignment, size_t size);
}

namespace Quendal {
namespace Platform {

namespace {

typedef size_t (*UsableSizeFunction)(void*);

UsableSizeFunction usableSize = 0;

UsableSizeFunction FindUsableSize() {
  UsableSizeFunction found = __atomic_load_n(&usableSize, __ATOMIC_ACQUIRE);
  if (found == 0) {
    // dlsym may allocate for its own bookkeeping.
    OwnWorkScope ownWork;
    found = reinterpret_cast<UsableSizeFunction>(dlsym(RTLD_NEXT, "malloc_usable_size"));
    __atomic_store_n(&usableSize, found, __ATOMIC_RELEASE);
  }
  return found;
}

}  // namespace

void* CLibraryMalloc(size_t size) {
  return __libc_malloc(size);
}

void* CLibraryCalloc(size_t count, size_t size) {
  return __libc_calloc(count, size);
}

void* CLibraryReAlloc(void* pointer, size_t size) {
  return __libc_realloc(pointer, size);
}

void CLibraryFree(void* pointer) {
  __libc_free(pointer);
}

void* CLibraryMemalign(size_t alignment, size_t size) {
  return __libc_memalign(alignment, size);
}

size_t CLibraryUsableSize(void* pointer) {
  UsableSizeFunction function = FindUsableSize();
  return function != 0 ? function(pointer) : 0;
}

}  // namespace Platform
}  // namespace Quendal
