// The allocator's fastest path under threads: each thread mallocs and frees
// small blocks in a tight loop, a few of them alive at a time, and writes
// and checks a word in each. The threads share nothing, so two threads can
// do twice the work of one when the allocator lets them: run it with
// --threads 1 and --threads 2 and compare the operations per second that it
// prints on standard error (standard output is the same for every run with
// the same arguments).
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <chrono>
#include <thread>
#include <vector>

#include "workload_common.h"

namespace {

using QuendalWorkload::MixSeed;

// A power of two: the ring index is a mask.
const size_t kLive = 8;

struct Counts {
  uint64_t operations = 0;
  uint64_t checksum = 0;
  uint64_t corrupt = 0;
  uint64_t failed = 0;
};

uint64_t WordOf(const void* block) {
  uint64_t word;
  memcpy(&word, block, sizeof word);
  return word;
}

void Loop(uint64_t seed, uint64_t operations, Counts* counts) {
  void* live[kLive] = {};
  uint64_t tags[kLive] = {};
  // A cheap sequence of sizes from 16 to 256 bytes: the loop measures the
  // allocator, not a generator.
  uint64_t state = seed | 1;
  for (uint64_t i = 0; i < operations; ++i) {
    size_t slot = i & (kLive - 1);
    if (live[slot] != nullptr) {
      if (WordOf(live[slot]) != tags[slot]) {
        ++counts->corrupt;
      }
      counts->checksum += tags[slot];
      free(live[slot]);
    }
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    size_t size = 16 + (state & 15) * 16;
    void* block = malloc(size);
    live[slot] = block;
    if (block == nullptr) {
      ++counts->failed;
      continue;
    }
    tags[slot] = state;
    memcpy(block, &state, sizeof state);
    ++counts->operations;
  }
  for (size_t slot = 0; slot < kLive; ++slot) {
    if (live[slot] != nullptr) {
      if (WordOf(live[slot]) != tags[slot]) {
        ++counts->corrupt;
      }
      counts->checksum += tags[slot];
      free(live[slot]);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  QuendalWorkload::Options options;
  options.Declare("threads", 2, "threads, each with its own loop");
  options.Declare("ops", 20000000, "malloc and free pairs per thread");
  options.Declare("seed", 1, "seed of the size sequences");
  if (!options.Parse(argc, argv) || options.Get("threads") == 0) {
    options.PrintUsage(argv[0]);
    return 2;
  }
  size_t threads = options.Get("threads");
  std::vector<Counts> counts(threads);
  std::vector<std::thread> workers;
  auto start = std::chrono::steady_clock::now();
  for (size_t t = 0; t < threads; ++t) {
    workers.emplace_back(Loop, MixSeed(options.Get("seed"), t), options.Get("ops"), &counts[t]);
  }
  for (std::thread& worker : workers) {
    worker.join();
  }
  double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  Counts total;
  for (const Counts& c : counts) {
    total.operations += c.operations;
    total.checksum += c.checksum;
    total.corrupt += c.corrupt;
    total.failed += c.failed;
  }
  printf("alloc_free threads=%zu operations=%llu checksum=%016llx corrupt=%llu\n", threads,
         static_cast<unsigned long long>(total.operations),
         static_cast<unsigned long long>(total.checksum),
         static_cast<unsigned long long>(total.corrupt));
  fprintf(stderr, "alloc_free threads=%zu: %.1f M operations/s\n", threads,
          seconds > 0 ? static_cast<double>(total.operations) / seconds / 1e6 : 0.0);
  if (total.failed != 0) {
    fprintf(stderr, "%llu allocations failed\n", static_cast<unsigned long long>(total.failed));
  }
  return total.corrupt == 0 && total.failed == 0 ? 0 : 1;
}
