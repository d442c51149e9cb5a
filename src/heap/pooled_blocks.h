// What the heap tells the layers above it about its blocks beyond the
// exported entries: the drop-in allocator sizes, zeroes and moves blocks
// with them.
#ifndef QUENDAL_HEAP_POOLED_BLOCKS_H
#define QUENDAL_HEAP_POOLED_BLOCKS_H

#include <stddef.h>

#include "heap/the_heap.h"
#include "util/compiler.h"

namespace Quendal {
namespace Heap {

// True when pointer is a block of the pool's segment. No lock: the segment
// is fixed once built.
bool IsPooledBlock(const void* pointer);

// The class size of a block of the pool's segment (0 when its chunk is
// free), read under the heap's lock.
size_t PooledBlockSize(const void* pointer);

// Releases pointer when it is a block of the pool's segment, without
// initialising the heap again after my_unload; false, doing nothing, for
// any other pointer. Inline: it is the drop-in's free.
QD_ALWAYS_INLINE bool ReleaseIfPooled(void* pointer) {
  LockedPool* heap = TheHeap::getStartedInstance();
  if (heap == 0 || !heap->GetPool().Owns(pointer)) {
    return false;
  }
  heap->Free(pointer);
  return true;
}

// Counts a request above the pool's classes that the drop-in served from
// the C library itself (LockedPool::UnpooledAbove), as the heap counts the
// ones it passes to the extra heap.
void CountLargeRequest();

// Resizes a block of the pool's segment to size (> 0) bytes for a C
// caller: in place when its class already fits, else moved; null, with the
// block kept, when no new block can be had.
void* ResizePooledBlock(void* pointer, size_t size);

// True once the heap counts the blocks of pooled size the extra heap holds
// (it ran out of chunks): the drop-in then tells it of every block of the C
// library it releases or reallocates itself, by the two calls below. No
// lock.
bool FollowsExtraHeapBlocks();

// pointer, a block of the C library, is released or about to be moved;
// returns the token FollowMovedExtraHeapBlock takes.
size_t StopFollowingExtraHeapBlock(void* pointer);

// The C library moved pointer to block (null when it could not), now of
// size bytes as the heap would have been asked.
void FollowMovedExtraHeapBlock(void* pointer, void* block, size_t size, size_t followed);

// QDHeapAlloc whose block reads as zeroes; a request the pool can never
// serve goes to the extra heap already zeroed, so that fresh pages of the C
// library stay untouched.
void* AllocCleared(size_t size);

}  // namespace Heap
}  // namespace Quendal

#endif
