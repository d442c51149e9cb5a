// QDHeapOwns and the heap's block queries for the layers above it.
#include "heap/pooled_blocks.h"

#include "heap/heap_init.h"
#include "heap/the_heap.h"
#include "quendal/heap.h"
#include "quendal/heap_owns.h"
#include "util/compiler.h"

namespace Quendal {
namespace Heap {

namespace {

struct BlockSizeReader {
  explicit BlockSizeReader(const void* pointer) : m_pointer(pointer), m_size(0) {}
  void operator()(const Pool& pool) { m_size = pool.BlockSizeOf(m_pointer); }
  const void* m_pointer;
  size_t m_size;
};

}  // namespace

bool IsPooledBlock(const void* pointer) {
  // Before the first initialising call there is no segment to look at, and
  // constructing the heap here would skip the ".mem" file.
  LockedPool* heap = TheHeap::getStartedInstance();
  return heap != 0 && heap->GetPool().Owns(pointer);
}

size_t PooledBlockSize(const void* pointer) {
  BlockSizeReader reader(pointer);
  TheHeap::getInstance(true)->Inspect(reader);
  return reader.m_size;
}

void* ResizePooledBlock(void* pointer, size_t size) {
  return TheHeap::getInstance(true)->Resize(pointer, size);
}

void CountLargeRequest() {
  TheHeap::getInstance(true)->CountLargeRequest();
}

bool FollowsExtraHeapBlocks() {
  LockedPool* heap = TheHeap::getStartedInstance();
  return heap != 0 && heap->FollowsOverflowBlocks();
}

size_t StopFollowingExtraHeapBlock(void* pointer) {
  return TheHeap::getInstance(true)->StopFollowing(pointer);
}

void FollowMovedExtraHeapBlock(void* pointer, void* block, size_t size, size_t followed) {
  TheHeap::getInstance(true)->FollowMoved(pointer, block, size, followed);
}

void* AllocCleared(size_t size) {
  Quendal::Heap::EnsureHeapInitialized();
  if (size == 0) {
    return 0;
  }
  return TheHeap::getInstance(true)->AllocCleared(size);
}

}  // namespace Heap
}  // namespace Quendal

extern "C" int QDHeapOwns(const void* pointer) QD_NOTHROW {
  return Quendal::Heap::IsPooledBlock(pointer) ? 1 : 0;
}
