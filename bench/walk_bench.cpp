// Free a random block, allocate one: 16-byte blocks filling N whole chunks
// of one class, N = 500 and 8000. Each item releases a block chosen by a
// seeded sequence among the live ones and allocates one in its slot, so
// releases land in random chunks and each allocation has to find the one
// free block of the class. QD(8000) / QD(500) shows how the pool's cost
// grows with the number of chunks in the class; each is also set beside
// malloc in the same process.
//
// The pool needs more than the default 650 chunks: CMake writes
// quendal_bench_walk.mem beside this program with CHUNKS for the largest N
// plus a few spare.
#include <benchmark/benchmark.h>
#include <stdint.h>
#include <stdio.h>

#include <map>
#include <string>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "bench_workloads.h"
#include "heap_api.h"

namespace QuendalBench {
namespace {

const size_t kBlockSize = 16;
const uintptr_t kChunkSize = 2048;
const int kLargestChunkCount = 8000;
const int kChunkCounts[] = {500, kLargestChunkCount};
static_assert(kLargestChunkCount <= QUENDAL_BENCH_WALK_MAX_CHUNKS,
              "the .mem beside the program is too small");

// Long enough that the sequence of slots does not keep revisiting a small
// part of the blocks.
const size_t kWalkSteps = size_t(1) << 20;

// Blocks of 16 bytes in one chunk, found by watching addresses (a block's
// chunk is its address rounded down to the chunk size) rather than by
// assuming a chunk header size: blocks are taken until one lands in another
// chunk. Only two chunks are touched, so the rows find the free chunk list
// close to the order of a fresh pool.
size_t BlocksPerChunk() {
  std::vector<void*> blocks;
  uintptr_t first = 0;
  for (size_t count = 0; count <= kChunkSize / kBlockSize; ++count) {
    void* block = QDHeapAlloc(kBlockSize);
    if (block == nullptr) {
      break;
    }
    blocks.push_back(block);
    uintptr_t chunk = reinterpret_cast<uintptr_t>(block) & ~(kChunkSize - 1);
    if (count == 0) {
      first = chunk;
    } else if (chunk != first) {
      break;
    }
  }
  for (void* block : blocks) {
    QDHeapFree(block);
  }
  return blocks.empty() ? 0 : blocks.size() - 1;
}

size_t& PerChunk() {
  static size_t perChunk = 0;
  return perChunk;
}

// Whether the pool's blocks fill exactly `chunks` chunks: not so when the
// pool ran out and overflowed to the C library (no ".mem" beside the
// program) or does not fill a chunk before taking the next.
bool FillsChunks(const std::vector<void*>& blocks, int chunks) {
  std::unordered_map<uintptr_t, size_t> perChunk;
  for (void* block : blocks) {
    ++perChunk[reinterpret_cast<uintptr_t>(block) & ~(kChunkSize - 1)];
  }
  if (perChunk.size() != static_cast<size_t>(chunks)) {
    return false;
  }
  for (const auto& entry : perChunk) {
    if (entry.second != PerChunk()) {
      return false;
    }
  }
  return true;
}

const std::vector<uint32_t>& WalkSlots(uint32_t blocks) {
  static std::map<uint32_t, std::vector<uint32_t> > cache;
  std::vector<uint32_t>& slots = cache[blocks];
  if (slots.empty()) {
    slots = RandomSlots(kWalkSteps, blocks);
  }
  return slots;
}

template <class Heap>
void RandomFreeWalk(benchmark::State& state) {
  int chunks = static_cast<int>(state.range(0));
  // Both heaps get the number of blocks that fills the pool's chunks.
  size_t blocks = static_cast<size_t>(chunks) * PerChunk();
  const std::vector<uint32_t>& steps = WalkSlots(static_cast<uint32_t>(blocks));
  std::vector<void*> live(blocks);
  for (void*& block : live) {
    block = Heap::Alloc(kBlockSize);
  }
  if (std::is_same<Heap, PoolHeap>::value && !FillsChunks(live, chunks)) {
    for (void* block : live) {
      Heap::Free(block);
    }
    state.SkipWithError(
        "the blocks do not fill the chunks (is quendal_bench_walk.mem beside "
        "the program?)");
    return;
  }
  size_t next = 0;
  for (auto _ : state) {
    uint32_t slot = steps[next];
    next = (next + 1) & (kWalkSteps - 1);
    Heap::Free(live[slot]);
    void* block = Heap::Alloc(kBlockSize);
    benchmark::DoNotOptimize(block);
    live[slot] = block;
  }
  for (void* block : live) {
    Heap::Free(block);
  }
  state.SetItemsProcessed(state.iterations());
  state.counters["blocks"] = static_cast<double>(blocks);
}

void RegisterAll() {
  for (int chunks : kChunkCounts) {
    benchmark::RegisterBenchmark(Name<PoolHeap>("random_free_walk").c_str(),
                                 RandomFreeWalk<PoolHeap>)
        ->Arg(chunks);
    benchmark::RegisterBenchmark(Name<CHeap>("random_free_walk").c_str(), RandomFreeWalk<CHeap>)
        ->Arg(chunks);
  }
}

}  // namespace
}  // namespace QuendalBench

int main(int argc, char** argv) {
  // Counted before any row runs; this also sets the pool up, so no row pays
  // for that.
  QuendalBench::PerChunk() = QuendalBench::BlocksPerChunk();
  if (QuendalBench::PerChunk() == 0) {
    fprintf(stderr, "the pool serves no 16-byte blocks\n");
    return 1;
  }
  QuendalBench::RegisterAll();
  return QuendalBench::RunRegisteredBenchmarks(argc, argv);
}
