// Resident bytes per live block: QUENDAL_BENCH_LIVE_BLOCKS blocks of
// QUENDAL_BENCH_BLOCK_SIZE bytes are allocated and written, and the growth
// of resident anonymous memory is divided by their number.
//
//   quendal_bench_memory_<size> qd|malloc
//
// "qd" allocates through QDHeapAlloc; the pool's whole set-up (segment,
// class table, reading the ".mem" beside this program) falls inside the
// measurement, as it happens at the first heap call. "malloc" allocates with
// whichever malloc the process has (LD_PRELOAD selects a peer); its own
// start-up happened before main and is not counted.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "quendal/heap.h"
#include "rss.h"

namespace {

const size_t kBlockSize = QUENDAL_BENCH_BLOCK_SIZE;
const size_t kLiveBlocks = QUENDAL_BENCH_LIVE_BLOCKS;

// Static, and touched before the first reading, so that the table of
// pointers is not counted.
void* blocks[kLiveBlocks];

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 || (strcmp(argv[1], "qd") != 0 && strcmp(argv[1], "malloc") != 0)) {
    fprintf(stderr, "usage: %s qd|malloc\n", argv[0]);
    return 2;
  }
  bool pool = strcmp(argv[1], "qd") == 0;
  memset(blocks, 0, sizeof blocks);
  long before = QuendalBench::ResidentBytes();
  for (size_t index = 0; index < kLiveBlocks; ++index) {
    void* block = pool ? QDHeapAlloc(kBlockSize) : malloc(kBlockSize);
    if (block == nullptr) {
      fprintf(stderr, "allocation %zu failed\n", index);
      return 1;
    }
    memset(block, 0xA5, kBlockSize);
    blocks[index] = block;
  }
  long after = QuendalBench::ResidentBytes();
  printf(
      "{\"heap\": \"%s\", \"block_size\": %zu, \"blocks\": %zu, \"rss_before\": %ld, "
      "\"rss_after\": %ld, \"bytes_per_block\": %.2f}\n",
      argv[1], kBlockSize, kLiveBlocks, before, after,
      static_cast<double>(after - before) / static_cast<double>(kLiveBlocks));
  for (size_t index = 0; index < kLiveBlocks; ++index) {
    if (pool) {
      QDHeapFree(blocks[index]);
    } else {
      free(blocks[index]);
    }
  }
  return 0;
}
