// The pool's shape: its three configured parameters, the segment as laid out
// in chunks, and what routing a request and finding a block's chunk derive
// from them. A value: the pool keeps one and changes it only when it is
// configured and when it gets its segment.
#ifndef QUENDAL_HEAP_POOL_GEOMETRY_H
#define QUENDAL_HEAP_POOL_GEOMETRY_H

#include <stddef.h>
#include <stdint.h>

#include "heap/chunk_header.h"
#include "heap/size_class.h"

namespace Quendal {
namespace Heap {

// The largest chunk count a pool of chunkSize-byte chunks can use: its
// segment request must stay below 2 GiB once aligning took a chunk off, and
// the C library's segments are not chunk-aligned (an aligned one of exactly
// this count keeps its first chunk only). A larger count builds one chunk at
// most, or a pool of whatever its 32-bit request wrapped to.
inline uint32_t ChunkLimit(uint32_t chunkSize) {
  return chunkSize == 0 ? 0 : 0x80000000u / chunkSize;
}

struct PoolGeometry {
  // The smallest working pool: one 16-byte chunk serving 8-byte requests.
  // Configure replaces these in every configured process.
  PoolGeometry()
      : chunkCount(1),
        chunkSize(16),
        maxBlockSize(8),
        classCount(1),
        configured(0),
        segment(0),
        alignedSegment(0),
        segmentBytes(0),
        laidOutChunks(0),
        countedChunks(0),
        classTableEntries(0),
        pooledLimit(0),
        chunkMask(0),
        chunkShift(0) {
    Derive(false);
  }

  // Adopts the three parameters once; false when they were adopted before.
  // A chunk count of 0 becomes 1, a chunk size below 16 becomes 16, a
  // largest pooled size below 8 becomes 8 with one class. The largest size
  // is not rounded: with 20 there are two classes and 17 to 20 bytes go to
  // the overflow heap.
  bool Configure(uint32_t chunks, uint32_t bytesPerChunk, uint32_t largestBlock) {
    if (configured) {
      return false;
    }
    chunkCount = chunks != 0 ? chunks : 1;
    chunkSize = bytesPerChunk > 15 ? bytesPerChunk : 16;
    maxBlockSize = largestBlock;
    configured = 1;
    if (maxBlockSize > 7) {
      classCount = maxBlockSize >> 3;
    } else {
      classCount = 1;
      maxBlockSize = 8;
    }
    return true;
  }

  // The bytes the segment is asked for; 32 bits, so it may wrap.
  uint32_t SegmentRequest() const { return chunkCount * chunkSize; }

  // The segment of bytes bytes at start is cut into chunks at multiples of
  // the chunk size: when it is not aligned, its last chunk is given up to
  // the alignment. A segment shorter than one chunk keeps no usable bytes
  // rather than a wrapped count.
  void LayOut(void* start, uint32_t bytes) {
    segment = start;
    segmentBytes = bytes;
    uintptr_t address = reinterpret_cast<uintptr_t>(start);
    alignedSegment = (address + chunkSize - 1) / chunkSize * chunkSize;
    if (alignedSegment != address) {
      segmentBytes = segmentBytes >= chunkSize ? segmentBytes - chunkSize : 0;
    }
    laidOutChunks = BuildableChunks();
    countedChunks = chunkCount;
  }

  // Back to no segment, after a segment that could not be used.
  void Abandon() {
    segment = 0;
    segmentBytes = 0;
  }

  // Recomputes the derived fields; hasClassTable tells whether the pool has
  // its class table of classTableEntries entries.
  void Derive(bool hasClassTable) {
    bool powerOfTwo = (chunkSize & (chunkSize - 1)) == 0;
    chunkMask = powerOfTwo ? ~static_cast<uintptr_t>(chunkSize - 1) : 0;
    chunkShift = 0;
    while (powerOfTwo && (static_cast<uint32_t>(1) << chunkShift) < chunkSize) {
      ++chunkShift;
    }
    size_t limit = 0;
    if (segment != 0 && hasClassTable && chunkSize >= kChunkHeaderSize) {
      limit = static_cast<size_t>(ServedClasses()) * kClassGranule;
      if (maxBlockSize < limit) {
        limit = maxBlockSize;
      }
      // A chunk too small for one block of a class must not serve it: the
      // block would reach into the next chunk or past the segment.
      size_t fitting = (chunkSize - kChunkHeaderSize) & ~(kClassGranule - 1);
      if (fitting < limit) {
        limit = fitting;
      }
    }
    pooledLimit = limit;
  }

  // The classes that have a class list: classes at or past the table's
  // entries have none, even if Configure raised the class count afterwards.
  uint32_t ServedClasses() const {
    return classCount < classTableEntries ? classCount : classTableEntries;
  }

  // True when the classes serve size, so that only a missing chunk sends it
  // to the overflow heap; without a segment, when the configuration would
  // pool it.
  bool IsPooledSize(size_t size) const {
    if (segment == 0) {
      return size - 1 < maxBlockSize;
    }
    return size - 1 < pooledLimit;
  }

  // True when pointer lies inside the usable part of the aligned segment.
  bool Owns(const void* pointer) const {
    return segment != 0 && reinterpret_cast<uintptr_t>(pointer) - alignedSegment < segmentBytes;
  }

  ChunkHeader* ChunkOf(const void* pointer) const {
    uintptr_t address = reinterpret_cast<uintptr_t>(pointer);
    if (chunkMask != 0) {
      return ChunkAt(address & chunkMask);
    }
    return ChunkAt(address / chunkSize * chunkSize);
  }

  // The chunk number of the segment's chunks, from 0.
  ChunkHeader* ChunkNumbered(uint32_t number) const {
    return ChunkAt(alignedSegment + static_cast<uintptr_t>(number) * chunkSize);
  }

  // Only whole chunks that lie inside the segment and can hold their header
  // are built, and only at addresses where a header may be written: with
  // CHUNKS 1 and a misaligned segment, a wrapped segment size or a chunk
  // smaller than its header the pool has no chunk and serves nothing. The
  // byte count is compared as a signed 32-bit value: a segment of 2 GiB or
  // more builds its first chunk only.
  uint32_t BuildableChunks() const {
    if (chunkSize < kChunkHeaderSize || chunkSize > segmentBytes ||
        chunkSize % __alignof__(ChunkHeader) != 0) {
      return 0;
    }
    if (static_cast<int32_t>(segmentBytes) < 0) {
      return 1;
    }
    return segmentBytes / chunkSize;
  }

  // Configured.
  uint32_t chunkCount;
  uint32_t chunkSize;
  uint32_t maxBlockSize;
  uint32_t classCount;
  uint8_t configured;

  // Laid out. The segment as the segment heap returned it, its first chunk
  // and its usable bytes from there; the chunks laid out in it, and the
  // chunk count as it was then (a Configure after the segment was laid out
  // changes the count, not the segment).
  void* segment;
  uintptr_t alignedSegment;
  uint32_t segmentBytes;
  uint32_t laidOutChunks;
  uint32_t countedChunks;
  // Entries the class table was allocated with.
  uint32_t classTableEntries;

  // Derived. The largest size a class serves: the smaller of maxBlockSize,
  // the classes the table holds and the largest block that fits a chunk
  // behind its header; 0 while nothing can be pooled, so one comparison
  // routes a request.
  size_t pooledLimit;
  // ~(chunkSize - 1) for a power-of-two chunk size, else 0 (divide).
  uintptr_t chunkMask;
  // log2 of a power-of-two chunk size, else 0.
  uint32_t chunkShift;
};

}  // namespace Heap
}  // namespace Quendal

#endif
