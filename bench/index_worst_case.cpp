// The slowest single call when N full chunks of one class (N = 500, 8000,
// 64 000) each get one free block front to back, then fill again: the order
// in which a heap of the class's chunks keyed by list order would leave its
// first with N - 1 children, so that the allocation taking the first chunk
// would cost time linear in N. Each iteration frees the first block of every
// chunk in list order and allocates them back, timing every call; a call's
// figure is its fastest over the iterations (the state before it is the
// same each time), and the row's counters are the slowest of those:
// slowest_free_ns and slowest_alloc_ns. N = 64 000 against N = 500 shows
// how the worst call grows with the chunk count.
//
// The pool needs more than the default 650 chunks: CMake writes
// quendal_bench_index.mem beside this program with CHUNKS for the largest N
// plus a few spare.
#include <benchmark/benchmark.h>
#include <stdint.h>
#include <stdio.h>
#include <time.h>

#include <algorithm>
#include <map>
#include <type_traits>
#include <vector>

#include "heap_api.h"

namespace QuendalBench {
namespace {

// Three blocks to a 2048-byte chunk behind any of the chunk headers.
const size_t kBlockSize = 512;
const uintptr_t kChunkSize = 2048;
const int kLargestChunkCount = 64000;
const int kChunkCounts[] = {500, 8000, kLargestChunkCount};
static_assert(kLargestChunkCount <= QUENDAL_BENCH_INDEX_MAX_CHUNKS,
              "the .mem beside the program is too small");
const int64_t kIterations = 20;

int64_t Nanoseconds() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t(now.tv_sec) * 1000000000 + now.tv_nsec;
}

// The blocks of `chunks` chunks' worth of allocations, grouped by chunk in
// the order the chunks joined the class. For malloc, consecutive blocks
// stand for a chunk. Empty when the pool's blocks do not fill exactly that
// many chunks (no ".mem" beside the program).
template <class Heap>
std::vector<std::vector<void*> > FillChunks(int chunks, size_t perChunk) {
  std::vector<std::vector<void*> > groups;
  std::map<uintptr_t, size_t> groupOfChunk;
  bool pool = std::is_same<Heap, PoolHeap>::value;
  for (size_t count = 0; count < static_cast<size_t>(chunks) * perChunk; ++count) {
    void* block = Heap::Alloc(kBlockSize);
    uintptr_t key =
        pool ? reinterpret_cast<uintptr_t>(block) & ~(kChunkSize - 1) : count / perChunk;
    std::map<uintptr_t, size_t>::iterator found = groupOfChunk.find(key);
    if (found == groupOfChunk.end()) {
      found = groupOfChunk.insert(std::make_pair(key, groups.size())).first;
      groups.push_back(std::vector<void*>());
    }
    groups[found->second].push_back(block);
  }
  bool filled = groups.size() == static_cast<size_t>(chunks);
  for (const std::vector<void*>& group : groups) {
    filled = filled && group.size() == perChunk;
  }
  if (!filled) {
    for (const std::vector<void*>& group : groups) {
      for (void* block : group) {
        Heap::Free(block);
      }
    }
    groups.clear();
  }
  return groups;
}

// Blocks of kBlockSize in one pool chunk, found by watching addresses.
size_t BlocksPerChunk() {
  std::vector<void*> blocks;
  uintptr_t first = 0;
  for (size_t count = 0; count <= kChunkSize / kBlockSize; ++count) {
    void* block = QDHeapAlloc(kBlockSize);
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
  return blocks.size() - 1;
}

size_t& PerChunk() {
  static size_t perChunk = 0;
  return perChunk;
}

template <class Heap>
void IndexWorstCase(benchmark::State& state) {
  int chunks = static_cast<int>(state.range(0));
  std::vector<std::vector<void*> > groups = FillChunks<Heap>(chunks, PerChunk());
  if (groups.empty()) {
    state.SkipWithError(
        "the blocks do not fill the chunks (is quendal_bench_index.mem beside the program?)");
    return;
  }
  std::vector<int64_t> fastestFree(groups.size(), INT64_MAX);
  std::vector<int64_t> fastestAlloc(groups.size(), INT64_MAX);
  bool sameBlocks = true;
  for (auto _ : state) {
    for (size_t k = 0; k < groups.size(); ++k) {
      int64_t start = Nanoseconds();
      Heap::Free(groups[k].front());
      int64_t took = Nanoseconds() - start;
      fastestFree[k] = std::min(fastestFree[k], took);
    }
    for (size_t k = 0; k < groups.size(); ++k) {
      int64_t start = Nanoseconds();
      void* block = Heap::Alloc(kBlockSize);
      int64_t took = Nanoseconds() - start;
      fastestAlloc[k] = std::min(fastestAlloc[k], took);
      sameBlocks = sameBlocks && block == groups[k].front();
      groups[k].front() = block;
    }
  }
  for (const std::vector<void*>& group : groups) {
    for (void* block : group) {
      Heap::Free(block);
    }
  }
  if (std::is_same<Heap, PoolHeap>::value && !sameBlocks) {
    state.SkipWithError("the allocations did not take the freed blocks front to back");
    return;
  }
  state.SetItemsProcessed(state.iterations() * 2 * chunks);
  state.counters["slowest_free_ns"] =
      static_cast<double>(*std::max_element(fastestFree.begin(), fastestFree.end()));
  state.counters["slowest_alloc_ns"] =
      static_cast<double>(*std::max_element(fastestAlloc.begin(), fastestAlloc.end()));
}

void RegisterAll() {
  for (int chunks : kChunkCounts) {
    benchmark::RegisterBenchmark(Name<PoolHeap>("index_worst_case").c_str(),
                                 IndexWorstCase<PoolHeap>)
        ->Arg(chunks)
        ->Iterations(kIterations);
    benchmark::RegisterBenchmark(Name<CHeap>("index_worst_case").c_str(), IndexWorstCase<CHeap>)
        ->Arg(chunks)
        ->Iterations(kIterations);
  }
}

}  // namespace
}  // namespace QuendalBench

int main(int argc, char** argv) {
  // Counted before any row runs; this also sets the pool up, so no row pays
  // for that.
  QuendalBench::PerChunk() = QuendalBench::BlocksPerChunk();
  if (QuendalBench::PerChunk() < 2) {
    fprintf(stderr, "the pool does not serve %zu-byte blocks two to a chunk\n",
            QuendalBench::kBlockSize);
    return 1;
  }
  QuendalBench::RegisterAll();
  return QuendalBench::RunRegisteredBenchmarks(argc, argv);
}
