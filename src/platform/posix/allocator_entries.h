// A C allocator's entries found by name with dlsym: the C library's behind
// the drop-in, or the process's when the drop-in's are not the ones it
// calls.
#ifndef QUENDAL_PLATFORM_POSIX_ALLOCATOR_ENTRIES_H
#define QUENDAL_PLATFORM_POSIX_ALLOCATOR_ENTRIES_H

#include <dlfcn.h>
#include <stddef.h>

namespace Quendal {
namespace Platform {

struct AllocatorEntries {
  typedef void* (*MallocFunction)(size_t);
  typedef void* (*CallocFunction)(size_t, size_t);
  typedef void* (*ReAllocFunction)(void*, size_t);
  typedef void (*FreeFunction)(void*);
  typedef void* (*MemalignFunction)(size_t, size_t);
  typedef int (*PosixMemalignFunction)(void**, size_t, size_t);
  typedef size_t (*UsableSizeFunction)(void*);

  MallocFunction malloc;
  CallocFunction calloc;
  ReAllocFunction realloc;
  FreeFunction free;
  MemalignFunction memalign;
  PosixMemalignFunction posixMemalign;
  UsableSizeFunction usableSize;

  // Looks every entry up under handle (RTLD_NEXT, RTLD_DEFAULT); true when
  // the four an allocator cannot do without are there.
  bool Find(void* handle) {
    malloc = Symbol<MallocFunction>(handle, "malloc");
    calloc = Symbol<CallocFunction>(handle, "calloc");
    realloc = Symbol<ReAllocFunction>(handle, "realloc");
    free = Symbol<FreeFunction>(handle, "free");
    memalign = Symbol<MemalignFunction>(handle, "memalign");
    posixMemalign = Symbol<PosixMemalignFunction>(handle, "posix_memalign");
    usableSize = Symbol<UsableSizeFunction>(handle, "malloc_usable_size");
    return malloc != 0 && calloc != 0 && realloc != 0 && free != 0;
  }

  // memalign, or posix_memalign where there is no memalign; null when
  // neither is there or the allocator fails.
  void* Memalign(size_t alignment, size_t size) const {
    if (memalign != 0) {
      return memalign(alignment, size);
    }
    void* block = 0;
    if (posixMemalign != 0 &&
        posixMemalign(&block, alignment < sizeof(void*) ? sizeof(void*) : alignment, size) == 0) {
      return block;
    }
    return 0;
  }

  // 0 when the allocator cannot tell.
  size_t UsableSize(void* block) const { return usableSize != 0 ? usableSize(block) : 0; }

 private:
  template <class Function>
  static Function Symbol(void* handle, const char* name) {
    union {
      void* symbol;
      Function function;
    } found;
    found.symbol = dlsym(handle, name);
    return found.function;
  }
};

}  // namespace Platform
}  // namespace Quendal

#endif
