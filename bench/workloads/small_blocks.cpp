// Many small short-lived blocks: each thread keeps a small live set and, in a
// tight loop, releases a random member and puts a new block of a mixed small
// size in its place, through malloc, new[] and std::string by turns.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>
#include <thread>
#include <vector>

#include "workload_common.h"

namespace {

using QuendalWorkload::CheckPattern;
using QuendalWorkload::FillPattern;
using QuendalWorkload::Random;

enum Kind { kMalloc, kNewArray, kString };

struct Slot {
  void* block = nullptr;
  std::string* text = nullptr;
  size_t size = 0;
  uint64_t tag = 0;
  Kind kind = kMalloc;
};

using ThreadResult = QuendalWorkload::BlockTally;

// Small sizes the way programs ask for them: mostly a few words, some
// strings and nodes, a few buffers up to 512 bytes.
size_t SmallSize(Random& random) {
  uint64_t pick = random.Next() % 100;
  if (pick < 50) {
    return random.Between(1, 32);
  }
  if (pick < 85) {
    return random.Between(33, 128);
  }
  return random.Between(129, 512);
}

void Release(Slot& slot, ThreadResult& result) {
  bool intact = true;
  if (slot.kind == kString) {
    intact = CheckPattern(slot.text->data(), slot.size, slot.tag, &result.checksum);
    delete slot.text;
  } else {
    intact = CheckPattern(slot.block, slot.size, slot.tag, &result.checksum);
    if (slot.kind == kNewArray) {
      delete[] static_cast<unsigned char*>(slot.block);
    } else {
      free(slot.block);
    }
  }
  if (!intact) {
    ++result.corrupt;
  }
  slot = Slot();
}

bool Fill(Slot& slot, Random& random, uint64_t tag) {
  slot.size = SmallSize(random);
  slot.tag = tag;
  slot.kind = static_cast<Kind>(random.Next() % 3);
  if (slot.kind == kString) {
    slot.text = new std::string(slot.size, '\0');
    FillPattern(&(*slot.text)[0], slot.size, tag);
    return true;
  }
  if (slot.kind == kNewArray) {
    slot.block = new unsigned char[slot.size];
  } else {
    slot.block = malloc(slot.size);
    if (slot.block == nullptr) {
      slot = Slot();
      return false;
    }
  }
  FillPattern(slot.block, slot.size, tag);
  return true;
}

void Run(uint64_t seed, uint64_t operations, size_t live, ThreadResult* result) {
  Random random(seed);
  std::vector<Slot> slots(live);
  for (uint64_t i = 0; i < operations; ++i) {
    Slot& slot = slots[random.Between(0, live - 1)];
    if (slot.size != 0) {
      Release(slot, *result);
    }
    if (Fill(slot, random, seed ^ i)) {
      ++result->blocks;
      result->bytes += slot.size;
    } else {
      ++result->failed;
    }
  }
  for (Slot& slot : slots) {
    if (slot.size != 0) {
      Release(slot, *result);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  QuendalWorkload::Options options;
  options.Declare("threads", 2, "threads, each with its own live set");
  options.Declare("ops", 1000000, "allocations per thread");
  options.Declare("live", 64, "live blocks per thread");
  options.Declare("seed", 1, "seed of the size sequences");
  if (!options.Parse(argc, argv) || options.Get("threads") == 0 || options.Get("live") == 0) {
    options.PrintUsage(argv[0]);
    return 2;
  }
  size_t threads = options.Get("threads");
  std::vector<ThreadResult> results(threads);
  std::vector<std::thread> workers;
  for (size_t t = 0; t < threads; ++t) {
    workers.emplace_back(Run, QuendalWorkload::MixSeed(options.Get("seed"), t), options.Get("ops"),
                         options.Get("live"), &results[t]);
  }
  for (std::thread& worker : workers) {
    worker.join();
  }
  ThreadResult total;
  for (const ThreadResult& result : results) {
    total.Add(result);
  }
  return QuendalWorkload::ReportTally("small_blocks", threads, total);
}
