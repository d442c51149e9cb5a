// Many small blocks alive for long, a few large ones coming and going: each
// thread keeps a large set of small blocks, replaces random members of it,
// and every so often allocates a block of tens or hundreds of KiB and frees
// the oldest of the few it keeps. Under the drop-in the small blocks live in
// the pool and the C library's heap holds little but the large ones, so its
// top empties and refills with them: the program shows what that costs in
// calls that grow and shrink the heap. Every block carries a pattern that
// is checked when it is freed; a damaged block makes it exit with status 1.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <thread>
#include <vector>

#include "workload_common.h"

namespace {

using QuendalWorkload::CheckPattern;
using QuendalWorkload::FillPattern;
using QuendalWorkload::MixSeed;
using QuendalWorkload::Random;

struct Block {
  void* data = nullptr;
  size_t size = 0;
  uint64_t tag = 0;
};

using Counts = QuendalWorkload::BlockTally;

// Only a large block's first and last bytes carry its pattern: writing all
// of it would measure the memory, not the allocator.
const size_t kLargeEnds = 64;

void Release(Block& block, Counts& counts) {
  bool intact = true;
  if (block.size > 2 * kLargeEnds) {
    unsigned char* bytes = static_cast<unsigned char*>(block.data);
    intact =
        CheckPattern(bytes, kLargeEnds, block.tag, &counts.checksum) &&
        CheckPattern(bytes + block.size - kLargeEnds, kLargeEnds, ~block.tag, &counts.checksum);
  } else {
    intact = CheckPattern(block.data, block.size, block.tag, &counts.checksum);
  }
  if (!intact) {
    ++counts.corrupt;
  }
  free(block.data);
  block = Block();
}

bool Allocate(Block& block, size_t size, uint64_t tag, Counts& counts) {
  block.data = malloc(size);
  if (block.data == nullptr) {
    ++counts.failed;
    block = Block();
    return false;
  }
  block.size = size;
  block.tag = tag;
  if (size > 2 * kLargeEnds) {
    unsigned char* bytes = static_cast<unsigned char*>(block.data);
    FillPattern(bytes, kLargeEnds, tag);
    FillPattern(bytes + size - kLargeEnds, kLargeEnds, ~tag);
  } else {
    FillPattern(block.data, size, tag);
  }
  ++counts.blocks;
  counts.bytes += size;
  return true;
}

struct Plan {
  uint64_t steps;
  size_t small_live;
  size_t large_live;
  uint64_t large_every;
  size_t large_min;
  size_t large_max;
};

void Run(const Plan& plan, uint64_t seed, Counts* counts) {
  Random random(seed);
  std::vector<Block> small(plan.small_live);
  std::vector<Block> large(plan.large_live);
  for (Block& block : small) {
    Allocate(block, random.Between(8, 128), random.Next(), *counts);
  }
  size_t oldest = 0;
  for (uint64_t step = 0; step < plan.steps; ++step) {
    Block& block = small[random.Between(0, small.size() - 1)];
    if (block.data != nullptr) {
      Release(block, *counts);
    }
    Allocate(block, random.Between(8, 128), random.Next(), *counts);
    if (step % plan.large_every == plan.large_every - 1) {
      Block& big = large[oldest];
      oldest = (oldest + 1) % large.size();
      if (big.data != nullptr) {
        Release(big, *counts);
      }
      Allocate(big, random.Between(plan.large_min, plan.large_max), random.Next(), *counts);
    }
  }
  for (Block& block : large) {
    if (block.data != nullptr) {
      Release(block, *counts);
    }
  }
  for (Block& block : small) {
    if (block.data != nullptr) {
      Release(block, *counts);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  QuendalWorkload::Options options;
  options.Declare("threads", 1, "threads, each with its own blocks");
  options.Declare("steps", 2000000, "small blocks replaced per thread");
  options.Declare("small", 20000, "small blocks (8 to 128 bytes) alive per thread");
  options.Declare("large", 2, "large blocks alive per thread");
  options.Declare("every", 20, "steps between two large blocks");
  options.Declare("min", 16384, "smallest large block in bytes");
  options.Declare("max", 131072, "largest large block in bytes");
  options.Declare("seed", 1, "seed of the size sequences");
  if (!options.Parse(argc, argv) || options.Get("threads") == 0 || options.Get("small") == 0 ||
      options.Get("large") == 0 || options.Get("every") == 0 ||
      options.Get("min") <= 2 * kLargeEnds || options.Get("max") < options.Get("min")) {
    options.PrintUsage(argv[0]);
    return 2;
  }
  Plan plan;
  plan.steps = options.Get("steps");
  plan.small_live = options.Get("small");
  plan.large_live = options.Get("large");
  plan.large_every = options.Get("every");
  plan.large_min = options.Get("min");
  plan.large_max = options.Get("max");
  size_t threads = options.Get("threads");
  std::vector<Counts> counts(threads);
  // The main thread does the first share: the C library serves it from its
  // main heap, the one that grows and shrinks by brk.
  std::vector<std::thread> workers;
  for (size_t t = 1; t < threads; ++t) {
    workers.emplace_back(Run, plan, MixSeed(options.Get("seed"), t), &counts[t]);
  }
  Run(plan, MixSeed(options.Get("seed"), 0), &counts[0]);
  for (std::thread& worker : workers) {
    worker.join();
  }
  Counts total;
  for (const Counts& c : counts) {
    total.Add(c);
  }
  return QuendalWorkload::ReportTally("small_and_large", threads, total);
}
