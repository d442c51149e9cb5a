// Seeded inputs shared by the benchmark families, built once so that both
// heaps see exactly the same sequence of requests.
#ifndef QUENDAL_BENCH_BENCH_WORKLOADS_H
#define QUENDAL_BENCH_BENCH_WORKLOADS_H

#include <stddef.h>
#include <stdint.h>

#include <vector>

namespace QuendalBench {

// A permutation of 0 .. count - 1, the same for every run.
std::vector<uint32_t> RandomOrder(size_t count);

// steps slots drawn uniformly from 0 .. slots - 1, the same for every run.
std::vector<uint32_t> RandomSlots(size_t steps, uint32_t slots);

// One step of the mixed workload: replace the block in slot by one of size.
struct MixedStep {
  uint32_t slot;
  uint32_t size;
};

// Sizes typical of C++ objects: most between 16 and 128 bytes, a few up to
// the largest pooled size, and 10% from 1025 to 4096 bytes (the extra heap).
std::vector<MixedStep> MixedSteps(size_t steps, uint32_t slots);

}  // namespace QuendalBench

#endif
