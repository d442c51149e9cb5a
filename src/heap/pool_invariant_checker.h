// The pool's invariant checker: every built chunk is on exactly one list with
// links that agree both ways, class chunks hold their class, used counts
// match the free lists, free blocks lie on block boundaries inside their
// chunk, the free chunk count adds up, each shortcut's own invariant holds
// (lazy_chunk_building.h, deferred_chunk_return.h, first_free_index.h,
// carve_record.h, release_window.h), and so do the statistics' class counts (pool_counters.h).
// It reads the whole pool: tests and fuzzers call it after each step, the
// library never does.
#ifndef QUENDAL_HEAP_POOL_INVARIANT_CHECKER_H
#define QUENDAL_HEAP_POOL_INVARIANT_CHECKER_H

#include <stddef.h>
#include <stdint.h>

#include "heap/chunk_header.h"
#include "heap/pool_view.h"

namespace Quendal {
namespace Heap {

// Null when the pool is consistent, else what is wrong.
template <class Pool>
const char* CheckPoolInvariants(const Pool& pool) {
  PoolView<Pool> view(pool);
  const PoolGeometry& geometry = view.Geometry();
  const FreeChunkList<typename Pool::ShortcutSet>& freeChunks = view.FreeChunks();
  const ClassLists<typename Pool::ShortcutSet>& classLists = view.Classes();
  const FirstFreeIndex& firstFree = classLists.Index();
  const DeferredChunkReturn& deferral = freeChunks.Deferral();
  const CarveRecord& carveRecord = view.Carved();
  bool indexed = classLists.Indexed();
  const ReleaseWindow& window = view.Window();
  bool windowOpens = Pool::ShortcutSet::kReleaseWindow && geometry.segment != 0 &&
                     classLists.Table() != 0 && geometry.chunkMask != 0 && !view.CheckerWatches();
  if (!windowOpens && window.Span() != 0) {
    return "the release window is open over a pool it cannot serve";
  }
  if (geometry.segment == 0) {
    return freeChunks.Head() == 0 ? 0 : "chunks without a segment";
  }
  uint32_t buildable = geometry.laidOutChunks;
  uint32_t built = buildable;
  if (Pool::ShortcutSet::kLazyBuilding) {
    const LazyChunkBuilding& building = freeChunks.Building();
    built = static_cast<uint32_t>((building.Next() - geometry.alignedSegment) / geometry.chunkSize);
    if (built > buildable || building.Unbuilt() != buildable - built) {
      return "the chunks still to build are not the segment's last ones";
    }
  }
  uintptr_t builtEnd = geometry.alignedSegment + static_cast<uintptr_t>(built) * geometry.chunkSize;
  if (windowOpens && (window.Base() != geometry.alignedSegment ||
                      window.Span() != builtEnd - geometry.alignedSegment ||
                      window.Mask() != geometry.chunkMask)) {
    return "the release window does not span the built chunks";
  }
  ChunkHeader* deferred = freeChunks.Deferred();
  bool deferredSeen = false;
  uint32_t listed = 0;
  uint32_t freeListed = 0;

  uint32_t classes = geometry.ServedClasses();
  for (uint32_t list = 0; list <= classes; ++list) {
    // List 0 is the free chunk list, list k the class list of k * 8 bytes.
    size_t index = list - 1;
    uint32_t blockSize = list * 8;
    ChunkHeader* previous = 0;
    ChunkHeader* firstWithFreeBlock = 0;
    uint64_t lastJoin = 0;
    long members = 0;
    uint32_t classChunks = 0;
    uint64_t usedBlocks = 0;
    ChunkHeader* head = list == 0 ? freeChunks.Head() : classLists.Head(index);
    for (ChunkHeader* chunk = head; chunk != 0; chunk = chunk->nextChunk) {
      uintptr_t address = reinterpret_cast<uintptr_t>(chunk);
      if (address < geometry.alignedSegment || address >= builtEnd ||
          (address - geometry.alignedSegment) % geometry.chunkSize != 0) {
        return "a listed chunk is not a built chunk of the segment";
      }
      if (++listed > built) {
        return "a chunk is listed twice or a list loops";
      }
      if (chunk->prevChunk != previous) {
        return "a chunk's prevChunk does not name the chunk before it";
      }
      if (chunk->chunkBytes != geometry.chunkSize || chunk->blockSize != blockSize) {
        return "a chunk's size or class does not match its list";
      }
      previous = chunk;
      if (list == 0) {
        ++freeListed;
        if (chunk->usedBlocks != 0) {
          return "a free chunk counts used blocks";
        }
        continue;
      }
      size_t capacity = (chunk->chunkBytes - kChunkHeaderSize) / blockSize;
      size_t freeCount = 0;
      for (void* block = chunk->freeBlocks; block != 0; block = NextFreeBlock(block)) {
        uintptr_t offset = reinterpret_cast<uintptr_t>(block) - address;
        if (offset < kChunkHeaderSize || (offset - kChunkHeaderSize) % blockSize != 0 ||
            (offset - kChunkHeaderSize) / blockSize >= capacity) {
          return "a chunk lists a block that is not one of its own";
        }
        if (++freeCount > capacity) {
          return "a chunk's free list loops";
        }
      }
      if ((capacity - freeCount) % 65536 != chunk->usedBlocks) {
        return "a chunk's used count does not match its free list";
      }
      usedBlocks += capacity - freeCount;
      ++classChunks;
      if (chunk == deferred) {
        deferredSeen = true;
        if (deferral.ClassIndex() != index || chunk->usedBlocks != 0) {
          return "the deferred chunk is not an empty chunk of its class";
        }
        if (indexed && firstFree.Contains(chunk) != deferral.Parked()) {
          return "the first-free index holds the deferred chunk unless it is parked";
        }
        if (deferral.Parked()) {
          // Joined last, it comes after any chunk of the class that got a
          // free block since, as the free chunk it stands for would.
          if (chunk->nextChunk != 0 || !carveRecord.ReadsAsCarved(chunk, blockSize) ||
              firstFree.JoinNumber(chunk) <= lastJoin) {
            return "a parked chunk is not its class's last chunk, as carved";
          }
          if (firstWithFreeBlock == 0) {
            firstWithFreeBlock = chunk;
          }
          members += 1;
        }
        continue;
      }
      if (firstWithFreeBlock == 0 && chunk->freeBlocks != 0) {
        firstWithFreeBlock = chunk;
      }
      if (indexed) {
        if (firstFree.Contains(chunk) != (chunk->freeBlocks != 0)) {
          return "the first-free index and a chunk's free list disagree";
        }
        members += firstFree.Contains(chunk) ? 1 : 0;
        if (firstFree.JoinNumber(chunk) <= lastJoin) {
          return "join numbers do not increase along a class list";
        }
        lastJoin = firstFree.JoinNumber(chunk);
      }
    }
    if (list != 0 && index < PoolCounters::kCountedClasses &&
        (classLists.Chunks(index) != classChunks ||
         view.Counters().UsedBlocks(index) != usedBlocks)) {
      return "the class counts of the statistics do not match the class list";
    }
    if (list != 0 && indexed) {
      if (firstFree.Tail(index) != previous) {
        return "the first-free index names a wrong tail";
      }
      if (firstFree.First(index) != firstWithFreeBlock) {
        return "the first-free index names a wrong first chunk";
      }
      if (firstFree.CountMembers(index) != members) {
        return "the first-free index holds other chunks than the class's";
      }
    }
  }
  if (listed != built) {
    return "a built chunk is on no list";
  }
  if (deferred != 0 && !deferredSeen) {
    return "the deferred chunk is not on its class list";
  }
  uint32_t lost = geometry.countedChunks - buildable;
  uint32_t unbuilt = buildable - built;
  if (freeChunks.Count() != freeListed + unbuilt + (deferred != 0 ? 1 : 0) + lost) {
    return "the free chunk count does not add up";
  }

  ChunkHeader* carved = carveRecord.Chunk();
  if (Pool::ShortcutSet::kCarveRecord && carved != 0) {
    uintptr_t address = reinterpret_cast<uintptr_t>(carved);
    if (address < geometry.alignedSegment || address >= builtEnd) {
      return "the carve record names a chunk that is not built";
    }
    uint32_t blockSize = carveRecord.BlockSize();
    void* block = carved->freeBlocks;
    if (block != 0) {
      while (NextFreeBlock(block) != 0) {
        if (NextFreeBlock(block) != static_cast<unsigned char*>(block) + blockSize) {
          return "the carve record's chunk no longer reads as carved";
        }
        block = NextFreeBlock(block);
      }
      if (block != carveRecord.Last()) {
        return "the carve record's chunk ends its list elsewhere";
      }
    }
  }
  return 0;
}

}  // namespace Heap
}  // namespace Quendal

#endif
