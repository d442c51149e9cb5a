#include "malloc/allocation.h"

#include <errno.h>
#include <stdint.h>

#include "heap/heap_init.h"
#include "heap/pooled_blocks.h"
#include "heap/the_heap.h"
#include "malloc/block_request.h"
#include "malloc/own_work_depth.h"
#include "platform/c_library_heap.h"
#include "platform/extra_heap_block_size.h"
#include "quendal/heap.h"
#include "util/compiler.h"

namespace Quendal {
namespace DropIn {

namespace {

// The first call of the process, and the first after my_unload, reads the
// ".mem" file; the caller's errno survives it, and the pool's start.
QD_NOINLINE void InitializeKeepingErrno() {
  int saved = errno;
  Heap::EnsureHeapInitializedOutOfLine();
  Heap::TheHeap::getInstance(true);
  errno = saved;
}

// QDHeapAlloc of a heap that is not ready, for a size that is not 0.
QD_NOINLINE void* AllocateStarting(size_t size) {
  InitializeKeepingErrno();
  return QDHeapAlloc(size);
}

QD_ALWAYS_INLINE void EnsureInitialized() {
  if (QD_UNLIKELY(!Heap::HeapIsReady())) {
    InitializeKeepingErrno();
  }
}

void* OutOfMemory() {
  errno = ENOMEM;
  return 0;
}

}  // namespace

void* Allocate(size_t size) QD_NOTHROW {
  if (InOwnWork()) {
    return Platform::CLibraryMalloc(size);
  }
  size_t request = BlockRequest(size);
  if (request == 0) {
    return OutOfMemory();
  }
  // QDHeapAlloc inline: the request is never 0.
  void* block = QD_LIKELY(Heap::HeapIsReady()) ? Heap::TheHeap::ReadyInstance()->Alloc(request)
                                               : AllocateStarting(request);
  return QD_LIKELY(block != 0) ? block : OutOfMemory();
}

void* AllocateCleared(size_t count, size_t size) QD_NOTHROW {
  if (size != 0 && count > SIZE_MAX / size) {
    return OutOfMemory();
  }
  if (InOwnWork()) {
    return Platform::CLibraryCalloc(count, size);
  }
  size_t request = BlockRequest(count * size);
  if (request == 0) {
    return OutOfMemory();
  }
  EnsureInitialized();
  void* block = Heap::AllocCleared(request);
  return block != 0 ? block : OutOfMemory();
}

void ReleaseForLibrary(void* pointer) QD_NOTHROW {
  if (pointer == 0) {
    return;
  }
  if (Heap::ReleaseIfPooled(pointer)) {
    return;
  }
  // Everything else came from the C library's allocator: the extra heap,
  // the library's own work, over-aligned blocks, blocks from before the
  // pool was built. Straight back to it, without the heap's lock.
  int saved = errno;
  Platform::CLibraryFree(pointer);
  errno = saved;
}

void Release(void* pointer) QD_NOTHROW {
  if (pointer == 0) {
    return;
  }
  if (Heap::ReleaseIfPooled(pointer)) {
    return;
  }
  int saved = errno;
  // Once the pool ran out, the heap counts the C library's blocks of
  // pooled sizes that the program holds.
  if (QD_UNLIKELY(Heap::FollowsExtraHeapBlocks())) {
    Heap::StopFollowingExtraHeapBlock(pointer);
  }
  Platform::CLibraryFree(pointer);
  errno = saved;
}

void* Reallocate(void* pointer, size_t size) QD_NOTHROW {
  if (pointer == 0) {
    return Allocate(size);
  }
  if (size == 0) {
    Release(pointer);
    return 0;
  }
  if (!Heap::IsPooledBlock(pointer)) {
    // A block of the C library stays there, as the heap's own reallocation
    // keeps it; the C library keeps it too when it cannot grow it.
    if (QD_UNLIKELY(Heap::FollowsExtraHeapBlocks())) {
      size_t followed = Heap::StopFollowingExtraHeapBlock(pointer);
      void* block = Platform::CLibraryReAlloc(pointer, size);
      Heap::FollowMovedExtraHeapBlock(pointer, block, BlockRequest(size), followed);
      return block != 0 ? block : OutOfMemory();
    }
    void* block = Platform::CLibraryReAlloc(pointer, size);
    return block != 0 ? block : OutOfMemory();
  }
  size_t request = BlockRequest(size);
  if (request == 0) {
    return OutOfMemory();
  }
  void* block = Heap::ResizePooledBlock(pointer, request);
  return block != 0 ? block : OutOfMemory();
}

void* AllocateAligned(size_t alignment, size_t size) QD_NOTHROW {
  if (alignment <= kMallocAlignment) {
    // A block of at least alignment bytes is aligned to it.
    return Allocate(size < alignment ? alignment : size);
  }
  void* block = Platform::CLibraryMemalign(alignment, size);
  if (QD_UNLIKELY(Heap::FollowsExtraHeapBlocks())) {
    // Counted as its release will be.
    Heap::FollowMovedExtraHeapBlock(0, block, size, 0);
  }
  return block != 0 ? block : OutOfMemory();
}

}  // namespace DropIn

// The extra heap's blocks are the C library's: they tell their size.
size_t Platform::ExtraHeapBlockSize(const void* block) {
  return CLibraryUsableSize(const_cast<void*>(block));
}

}  // namespace Quendal
