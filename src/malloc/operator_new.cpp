// Every replaceable form of C++'s operator new and delete, on the heap. new
// throws std::bad_alloc only after the new-handler, if one is installed, has
// had its chance to free memory; the nothrow forms return null instead.
// Sized and aligned forms exist from C++14 and C++17: the drop-in is built
// with at least C++17 so that it replaces every form a program may call.
#include <stddef.h>

#include <new>

#include "malloc/allocation.h"
#include "quendal/export.h"

// C++03 declares the throwing forms with a dynamic exception specification.
#if __cplusplus >= 201103L
#define QD_THROWS_BAD_ALLOC
#else
#define QD_THROWS_BAD_ALLOC throw(std::bad_alloc)
#endif

using Quendal::DropIn::Allocate;
using Quendal::DropIn::AllocateAligned;
using Quendal::DropIn::Release;

namespace {

std::new_handler CurrentNewHandler() {
#if __cplusplus >= 201103L
  return std::get_new_handler();
#else
  std::new_handler handler = std::set_new_handler(0);
  std::set_new_handler(handler);
  return handler;
#endif
}

// alignment 0 asks for malloc's own alignment.
void* NewBlock(size_t size, size_t alignment) {
  for (;;) {
    void* block = alignment == 0 ? Allocate(size) : AllocateAligned(alignment, size);
    if (block != 0) {
      return block;
    }
    std::new_handler handler = CurrentNewHandler();
    if (handler == 0) {
      throw std::bad_alloc();
    }
    handler();
  }
}

void* NewBlockOrNull(size_t size, size_t alignment) QD_NOTHROW {
  try {
    return NewBlock(size, alignment);
  } catch (...) {
    return 0;
  }
}

}  // namespace

QD_EXPORT void* operator new(size_t size) QD_THROWS_BAD_ALLOC {
  return NewBlock(size, 0);
}

QD_EXPORT void* operator new[](size_t size) QD_THROWS_BAD_ALLOC {
  return NewBlock(size, 0);
}

QD_EXPORT void* operator new(size_t size, const std::nothrow_t&) QD_NOTHROW {
  return NewBlockOrNull(size, 0);
}

QD_EXPORT void* operator new[](size_t size, const std::nothrow_t&) QD_NOTHROW {
  return NewBlockOrNull(size, 0);
}

QD_EXPORT void operator delete(void* block) QD_NOTHROW {
  Release(block);
}

QD_EXPORT void operator delete[](void* block) QD_NOTHROW {
  Release(block);
}

QD_EXPORT void operator delete(void* block, const std::nothrow_t&) QD_NOTHROW {
  Release(block);
}

QD_EXPORT void operator delete[](void* block, const std::nothrow_t&) QD_NOTHROW {
  Release(block);
}

#if __cpp_sized_deallocation >= 201309L || __cplusplus >= 201402L
QD_EXPORT void operator delete(void* block, size_t) QD_NOTHROW {
  Release(block);
}

QD_EXPORT void operator delete[](void* block, size_t) QD_NOTHROW {
  Release(block);
}
#endif

#if __cpp_aligned_new >= 201606L
QD_EXPORT void* operator new(size_t size, std::align_val_t alignment) {
  return NewBlock(size, static_cast<size_t>(alignment));
}

QD_EXPORT void* operator new[](size_t size, std::align_val_t alignment) {
  return NewBlock(size, static_cast<size_t>(alignment));
}

QD_EXPORT void* operator new(size_t size, std::align_val_t alignment,
                             const std::nothrow_t&) QD_NOTHROW {
  return NewBlockOrNull(size, static_cast<size_t>(alignment));
}

QD_EXPORT void* operator new[](size_t size, std::align_val_t alignment,
                               const std::nothrow_t&) QD_NOTHROW {
  return NewBlockOrNull(size, static_cast<size_t>(alignment));
}

QD_EXPORT void operator delete(void* block, std::align_val_t) QD_NOTHROW {
  Release(block);
}

QD_EXPORT void operator delete[](void* block, std::align_val_t) QD_NOTHROW {
  Release(block);
}

QD_EXPORT void operator delete(void* block, size_t, std::align_val_t) QD_NOTHROW {
  Release(block);
}

QD_EXPORT void operator delete[](void* block, size_t, std::align_val_t) QD_NOTHROW {
  Release(block);
}

QD_EXPORT void operator delete(void* block, std::align_val_t, const std::nothrow_t&) QD_NOTHROW {
  Release(block);
}

QD_EXPORT void operator delete[](void* block, std::align_val_t, const std::nothrow_t&) QD_NOTHROW {
  Release(block);
}
#endif
