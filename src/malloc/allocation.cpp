#include "malloc/allocation.h"

#include <errno.h>
#include <stdint.h>
#include <string.h>

#include "heap/heap_init.h"
#include "heap/pooled_blocks.h"
#include "heap/the_heap.h"
#include "malloc/block_request.h"
#include "malloc/own_work_depth.h"
#include "malloc/thread_cache.h"
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

// A request the pool never serves goes where the heap would send it, the C
// library, without the heap's lock; the heap counts it all the same.
QD_NOINLINE void* AllocateUnpooled(size_t request) {
  Heap::CountLargeRequest();
  void* block = Platform::CLibraryMalloc(request);
  return block != 0 ? block : OutOfMemory();
}

// calloc's: zeroed by the C library, which knows its fresh pages are.
QD_NOINLINE void* AllocateUnpooledCleared(size_t request) {
  Heap::CountLargeRequest();
  void* block = Platform::CLibraryCalloc(1, request);
  return block != 0 ? block : OutOfMemory();
}

// A request of the ready heap that no thread cache serves: the pool's, or
// the C library's for a size the pool never serves.
QD_NOINLINE void* AllocateUncached(size_t request) {
  Heap::LockedPool* heap = Heap::TheHeap::ReadyInstance();
  if (request > heap->UnpooledAbove()) {
    return AllocateUnpooled(request);
  }
  void* block = heap->Alloc(request);
  return block != 0 ? block : OutOfMemory();
}

// The thread's cache had no block for the request: its first request, an
// empty list, or a size it does not cache.
QD_NOINLINE void* AllocateCacheMissed(ThreadCache* cache, size_t request) {
  if (cache == 0) {
    cache = StartThreadCache();
  }
  if (request <= cache->cachedUpTo) {
    void* block = TakeCachedBlock(cache, request);
    if (block == 0) {
      block = RefillAndTake(cache, request);
    }
    return block != 0 ? block : OutOfMemory();
  }
  return AllocateUncached(request);
}

// A request (a class size, never 0) of the ready heap.
QD_ALWAYS_INLINE void* AllocateRequest(size_t request) {
  ThreadCache* cache = threadCache;
  if (QD_LIKELY(cache != 0) && QD_LIKELY(request <= cache->cachedUpTo)) {
    void* block = TakeCachedBlock(cache, request);
    if (QD_LIKELY(block != 0)) {
      return block;
    }
  }
  return AllocateCacheMissed(cache, request);
}

// The class size of a block of the pool that the program holds: its chunk's
// header does not change while the block is in use.
QD_ALWAYS_INLINE uint32_t ClassSizeOfHeldBlock(const Heap::Pool& pool, const void* pointer) {
  return pool.ChunkOf(pointer)->blockSize;
}

// realloc of a pool block while the thread caches: a block of the same
// class stays, others move through the cache.
QD_NOINLINE void* ReallocateCached(void* pointer, size_t request) {
  uint32_t oldSize = ClassSizeOfHeldBlock(Heap::TheHeap::ReadyInstance()->GetPool(), pointer);
  if (oldSize == request) {
    return pointer;
  }
  void* block = AllocateRequest(request);
  if (block == 0) {
    return OutOfMemory();
  }
  memcpy(block, pointer, oldSize < request ? oldSize : request);
  Release(pointer);
  return block;
}

// A thread whose first request is a release (a consumer of blocks other
// threads allocate) caches too, once the heap is ready.
QD_NOINLINE ThreadCache* CacheForFirstRelease() {
  return Heap::HeapIsReady() ? StartThreadCache() : 0;
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
  if (QD_LIKELY(Heap::HeapIsReady())) {
    return AllocateRequest(request);
  }
  void* block = AllocateStarting(request);
  return block != 0 ? block : OutOfMemory();
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
  ThreadCache* cache = threadCache;
  if (cache != 0 && request <= cache->cachedUpTo) {
    void* block = TakeCachedBlock(cache, request);
    if (block == 0) {
      block = RefillAndTake(cache, request);
    }
    if (block == 0) {
      return OutOfMemory();
    }
    memset(block, 0, request);
    return block;
  }
  if (request > Heap::TheHeap::getInstance(true)->UnpooledAbove()) {
    return AllocateUnpooledCleared(request);
  }
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
  // A thread has a record only once the pool has its segment.
  ThreadCache* cache = threadCache;
  if (QD_UNLIKELY(cache == 0)) {
    cache = CacheForFirstRelease();
  }
  if (QD_LIKELY(cache != 0)) {
    const Heap::Pool& pool = Heap::TheHeap::ReadyInstance()->GetPool();
    if (QD_LIKELY(pool.Owns(pointer))) {
      uint32_t classSize = ClassSizeOfHeldBlock(pool, pointer);
      if (QD_LIKELY(classSize - 1 < cache->cachedUpTo)) {
        if (QD_UNLIKELY(!PutCachedBlock(cache, pointer, classSize))) {
          ReleaseIntoFullCache(cache, pointer, classSize);
        }
        return;
      }
    }
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
  ThreadCache* cache = threadCache;
  if (cache != 0 && cache->cachedUpTo != 0) {
    return ReallocateCached(pointer, request);
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
