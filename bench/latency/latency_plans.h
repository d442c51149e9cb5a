// The workloads of the latency driver as plans: a list of operations that
// prepares the state (run once, untimed) and the list whose every call is
// timed. A plan depends only on the pool's geometry and a fixed seed, so
// every allocator gets exactly the same sequence of sizes and operations.
#ifndef QUENDAL_BENCH_LATENCY_PLANS_H
#define QUENDAL_BENCH_LATENCY_PLANS_H

#include <stddef.h>
#include <stdint.h>

#include "mapped_vector.h"

namespace QuendalLatency {

// Classes of the pool: 8 to 1024 bytes in steps of 8.
const uint32_t kClassCount = 128;
const uint32_t kLargestPooledSize = 1024;

// What the pool of this executable looks like, as measured by a probe of
// the heap (never assumed): the CHUNKS of the ".mem", the chunk size, the
// offset of a chunk's first block (its header, padded), and the blocks one
// chunk of each class holds (0 for a class no request size lands in, such
// as 24 bytes where requests are rounded to 16).
struct Geometry {
  uint32_t chunkCount;
  uint32_t chunkSize;
  uint32_t headerBytes;
  uint32_t blocksPerChunk[kClassCount];

  uint32_t PerChunk(uint32_t size) const { return blocksPerChunk[(size + 7) / 8 - 1]; }
  // The share of a chunk one block of size takes in the class the pool
  // serves it from; 0 above the largest pooled size.
  double ChunkShare(uint32_t size) const {
    for (uint32_t index = (size + 7) / 8 - 1; index < kClassCount; ++index) {
      if (blocksPerChunk[index] != 0) {
        return 1.0 / blocksPerChunk[index];
      }
    }
    return 0;
  }
  // Chunks every pool of this chunk count has: aligning the segment may
  // cost one.
  uint32_t UsableChunks() const { return chunkCount > 1 ? chunkCount - 1 : 0; }
};

enum OpKind : uint32_t { kAlloc, kFree, kReAlloc, kStats, kOpKinds };

const char* OpName(uint32_t kind);

// Alloc puts a block of size into slot; Free releases the block of slot
// (size: the block's, for the report); ReAlloc resizes it to size; Stats
// takes a snapshot of the heap.
struct Op {
  uint32_t kind;
  uint32_t slot;
  uint32_t size;
};

struct Plan {
  MappedVector<Op> prepare;
  MappedVector<Op> timed;
  // Slots the operations use: 0 .. slots - 1.
  uint32_t slots = 0;
  // When not 0: the prepared blocks, in slot order, fill fillChunks chunks
  // of fillPerChunk blocks each, one chunk after the other.
  uint32_t fillChunks = 0;
  uint32_t fillPerChunk = 0;
  // Whether a second thread hammers the heap while the timed list runs.
  bool hammer = false;
};

// The index's worst case: every usable chunk filled with 16-byte blocks;
// timed, a hole punched in each chunk in list order, then the holes filled.
Plan IndexPlan(const Geometry& geometry);

// Random sizes (95% 8 to 1024 bytes, more of them small; 5% 1025 to 16384)
// with blocks that would fill about 70% of the chunks packed tight live, then steps random
// allocations, releases and (one in ten) reallocations around that level.
// threaded: the same with the hammer thread.
Plan RandomPlan(const Geometry& geometry, size_t steps, bool threaded);

// Pooled sizes whose blocks, packed tight, would fill a quarter more chunks
// than the pool has, then
// everything freed in a random order; all timed.
Plan DrainPlan(const Geometry& geometry);

// Batches of one to three chunks' worth of one class, the class drawn at
// random among all, the oldest batches released (in random order) so that
// about 60% of the chunks stay in use: emptied chunks go back to the free
// chunk list and on to other classes. At least ops timed operations.
Plan ChurnPlan(const Geometry& geometry, size_t ops);

// About 97% of the chunks in use by full chunks of seven classes (16 to
// 1024 bytes); calls heap snapshots.
Plan StatsPlan(const Geometry& geometry, size_t calls);

}  // namespace QuendalLatency

#endif
