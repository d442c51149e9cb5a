#include "bench_workloads.h"

#include <algorithm>
#include <random>

namespace QuendalBench {

namespace {
const uint64_t kSeed = 20261123;
}

std::vector<uint32_t> RandomOrder(size_t count) {
  std::vector<uint32_t> order(count);
  for (size_t index = 0; index < count; ++index) {
    order[index] = static_cast<uint32_t>(index);
  }
  std::mt19937_64 random(kSeed + count);
  std::shuffle(order.begin(), order.end(), random);
  return order;
}

std::vector<uint32_t> RandomSlots(size_t steps, uint32_t slots) {
  std::mt19937_64 random(kSeed + slots);
  std::uniform_int_distribution<uint32_t> slot(0, slots - 1);
  std::vector<uint32_t> result(steps);
  for (uint32_t& value : result) {
    value = slot(random);
  }
  return result;
}

std::vector<MixedStep> MixedSteps(size_t steps, uint32_t slots) {
  std::mt19937_64 random(kSeed);
  std::uniform_int_distribution<uint32_t> slot(0, slots - 1);
  std::uniform_int_distribution<uint32_t> percent(0, 99);
  std::uniform_int_distribution<uint32_t> small(16, 64);
  std::uniform_int_distribution<uint32_t> medium(65, 128);
  std::uniform_int_distribution<uint32_t> pooledLarge(129, 1024);
  std::uniform_int_distribution<uint32_t> large(1025, 4096);
  std::vector<MixedStep> result(steps);
  for (MixedStep& step : result) {
    step.slot = slot(random);
    uint32_t draw = percent(random);
    if (draw < 55) {
      step.size = small(random);
    } else if (draw < 85) {
      step.size = medium(random);
    } else if (draw < 90) {
      step.size = pooledLarge(random);
    } else {
      step.size = large(random);
    }
  }
  return result;
}

}  // namespace QuendalBench
