// The library's own calls of malloc, realloc, calloc, free and of the
// operator new and delete its containers use go to the C library's
// allocator, never to the drop-in's entries of the same names. The drop-in
// links the library's objects with those names wrapped (--wrap, see
// CMakeLists.txt), so the calls land here; libQuendal.so keeps calling the
// C library by name. What the library releases or resizes may also be a
// pool block that a caller handed it (QDExtraHeapFree of a malloc block):
// those go back to the pool, never to the C library.
#include <stddef.h>

#include <new>

#include "heap/pooled_blocks.h"
#include "malloc/allocation.h"
#include "platform/c_library_heap.h"

using Quendal::DropIn::ReleaseForLibrary;
using Quendal::Platform::CLibraryCalloc;
using Quendal::Platform::CLibraryMalloc;
using Quendal::Platform::CLibraryReAlloc;

// The Itanium C++ names of operator new and delete spell size_t's type.
#if __SIZEOF_SIZE_T__ == 8
#define QD_SIZE_T_CODE "m"
#else
#define QD_SIZE_T_CODE "j"
#endif

namespace {

void* LibraryNew(size_t size) {
  void* block = CLibraryMalloc(size != 0 ? size : 1);
  if (block == 0) {
    throw std::bad_alloc();
  }
  return block;
}

void* LibraryNewOrNull(size_t size) {
  return CLibraryMalloc(size != 0 ? size : 1);
}

}  // namespace

extern "C" {

void* WrappedMalloc(size_t size) __asm__("__wrap_malloc");
void* WrappedCalloc(size_t count, size_t size) __asm__("__wrap_calloc");
void* WrappedRealloc(void* pointer, size_t size) __asm__("__wrap_realloc");
void WrappedFree(void* pointer) __asm__("__wrap_free");
void* WrappedNew(size_t size) __asm__("__wrap__Znw" QD_SIZE_T_CODE);
void* WrappedNewArray(size_t size) __asm__("__wrap__Zna" QD_SIZE_T_CODE);
void* WrappedNewNoThrow(size_t size, const std::nothrow_t&) __asm__("__wrap__Znw" QD_SIZE_T_CODE
                                                                    "RKSt9nothrow_t");
void* WrappedNewArrayNoThrow(size_t size,
                             const std::nothrow_t&) __asm__("__wrap__Zna" QD_SIZE_T_CODE
                                                            "RKSt9nothrow_t");
void WrappedDelete(void* pointer) __asm__("__wrap__ZdlPv");
void WrappedDeleteArray(void* pointer) __asm__("__wrap__ZdaPv");
void WrappedSizedDelete(void* pointer, size_t size) __asm__("__wrap__ZdlPv" QD_SIZE_T_CODE);
void WrappedSizedDeleteArray(void* pointer, size_t size) __asm__("__wrap__ZdaPv" QD_SIZE_T_CODE);

}  // extern "C"

void* WrappedMalloc(size_t size) {
  return CLibraryMalloc(size);
}

void* WrappedCalloc(size_t count, size_t size) {
  return CLibraryCalloc(count, size);
}

void* WrappedRealloc(void* pointer, size_t size) {
  if (Quendal::Heap::IsPooledBlock(pointer)) {
    return Quendal::DropIn::Reallocate(pointer, size);
  }
  return CLibraryReAlloc(pointer, size);
}

void WrappedFree(void* pointer) {
  ReleaseForLibrary(pointer);
}

void* WrappedNew(size_t size) {
  return LibraryNew(size);
}

void* WrappedNewArray(size_t size) {
  return LibraryNew(size);
}

void* WrappedNewNoThrow(size_t size, const std::nothrow_t&) {
  return LibraryNewOrNull(size);
}

void* WrappedNewArrayNoThrow(size_t size, const std::nothrow_t&) {
  return LibraryNewOrNull(size);
}

void WrappedDelete(void* pointer) {
  ReleaseForLibrary(pointer);
}

void WrappedDeleteArray(void* pointer) {
  ReleaseForLibrary(pointer);
}

void WrappedSizedDelete(void* pointer, size_t) {
  ReleaseForLibrary(pointer);
}

void WrappedSizedDeleteArray(void* pointer, size_t) {
  ReleaseForLibrary(pointer);
}
