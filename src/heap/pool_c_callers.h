// The pool's operations for the drop-in allocator's C callers, beside the
// pool rather than in it: the heap's own entries never use them.
//
// AllocCleared is Alloc for a caller that needs the block zeroed. A size the
// classes never serve goes to the overflow heap's AllocCleared, which gets
// it zeroed without writing it; every other block is cleared here. Only
// calloc calls it, so OverflowHeap needs AllocCleared only there.
//
// Resize reallocates a block the pool owns to size (> 0) bytes. A block
// whose class is size's already stays where it is, unless a memory checker
// watches (it knows the block by the size first asked for); any other block
// moves as ReAlloc moves it, except that the old block stays when no new one
// can be had (null).
//
// TakeBatch is Alloc for many blocks of one class at once, for the drop-in's
// per-thread caches: only blocks of the pool's chunks.
//
// StopFollowing and FollowAgain keep the statistics' count of the overflow
// heap's blocks of pooled size (overflow_tally.h) while the drop-in releases
// or reallocates a block of the C library itself, without the pool.
#ifndef QUENDAL_HEAP_POOL_C_CALLERS_H
#define QUENDAL_HEAP_POOL_C_CALLERS_H

#include <stddef.h>
#include <string.h>

#include "heap/size_class.h"

namespace Quendal {
namespace Heap {

template <class Pool>
class PoolForCCallers {
 public:
  static void* AllocCleared(Pool& pool, size_t size) {
    if (pool.m_classes.Table() != 0 && !pool.m_geometry.IsPooledSize(size)) {
      pool.m_counters.Overflowed(false);
      return Pool::OverflowHeapType::AllocCleared(size);
    }
    void* block = pool.Alloc(size);
    if (block != 0) {
      memset(block, 0, size);
    }
    return block;
  }

  static void* Resize(Pool& pool, void* pointer, size_t size) {
    size_t oldSize = pool.BlockSizeOf(pointer);
    if (oldSize != 0 && oldSize == ClassSize(size) && !pool.m_checker.Active()) {
      return pointer;
    }
    void* block = pool.Alloc(size);
    if (block == 0) {
      return 0;
    }
    size_t copied = oldSize < size ? oldSize : size;
    pool.m_checker.BlockCopied(pointer, copied);
    memcpy(block, pointer, copied);
    pool.Free(pointer);
    return block;
  }

  // Up to count blocks of size's class, taken from the pool's chunks one by
  // one as Alloc takes them, into blocks; never from the overflow heap.
  // Returns how many: fewer when no chunk is left for the class.
  static size_t TakeBatch(Pool& pool, size_t size, size_t count, void** blocks) {
    if (pool.m_classes.Table() == 0 || !pool.m_geometry.IsPooledSize(size)) {
      return 0;
    }
    size_t taken = 0;
    while (taken < count) {
      void* block = pool.AllocFromClass(size);
      if (block == 0) {
        break;
      }
      blocks[taken] = block;
      ++taken;
    }
    return taken;
  }

  // The drop-in served a request above UnpooledAbove from the C library
  // itself: counted as the overflow heap's.
  static void CountLargeRequest(Pool& pool) { pool.m_counters.LargeRequestServed(); }

  // pointer, outside the pool, leaves the overflow heap: a token for
  // FollowMoved, 0 when the pool did not count it.
  static size_t StopFollowing(Pool& pool, void* pointer) {
    return pool.ForgetOverflowBlock(pointer);
  }

  // The C library reallocated pointer, which StopFollowing said followed
  // of, to block of size bytes (null when it could not).
  static void FollowMoved(Pool& pool, void* pointer, void* block, size_t size, size_t followed) {
    pool.FollowMovedOverflowBlock(reinterpret_cast<uintptr_t>(pointer), block, size, followed);
  }
};

}  // namespace Heap
}  // namespace Quendal

#endif
