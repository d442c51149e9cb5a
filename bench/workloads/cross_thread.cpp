// Blocks of random sizes released on threads other than the ones that
// allocated them: every thread owns an array of slots for a round, replaces
// random slots' blocks (freeing, or reallocating, what another thread may
// have allocated), and at each round's end the arrays move on to the next
// thread. Every block carries a pattern that is checked when it is freed or
// reallocated; a damaged block makes the program exit with status 1.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "workload_common.h"

namespace {

using QuendalWorkload::CheckPattern;
using QuendalWorkload::FillPattern;
using QuendalWorkload::MixSeed;
using QuendalWorkload::Random;

enum Kind { kMalloc, kCalloc, kNewArray };

struct Slot {
  void* block = nullptr;
  size_t size = 0;
  uint64_t tag = 0;
  Kind kind = kMalloc;
  size_t owner = 0;
};

struct Counts {
  uint64_t allocations = 0;
  uint64_t reallocations = 0;
  uint64_t frees = 0;
  uint64_t frees_on_other_threads = 0;
  uint64_t bytes = 0;
  uint64_t checksum = 0;
  uint64_t corrupt = 0;
  uint64_t failed = 0;

  void Add(const Counts& other) {
    allocations += other.allocations;
    reallocations += other.reallocations;
    frees += other.frees;
    frees_on_other_threads += other.frees_on_other_threads;
    bytes += other.bytes;
    checksum += other.checksum;
    corrupt += other.corrupt;
    failed += other.failed;
  }
};

// All threads leave a round together, so the array a thread works on in a
// round is no longer touched by the thread that had it before.
class Barrier {
 public:
  explicit Barrier(size_t count) : count_(count) {}

  void Wait() {
    std::unique_lock<std::mutex> lock(mutex_);
    uint64_t generation = generation_;
    if (++waiting_ == count_) {
      waiting_ = 0;
      ++generation_;
      all_here_.notify_all();
      return;
    }
    all_here_.wait(lock, [this, generation] { return generation_ != generation; });
  }

 private:
  size_t count_;
  size_t waiting_ = 0;
  uint64_t generation_ = 0;
  std::mutex mutex_;
  std::condition_variable all_here_;
};

// Mostly small blocks, a fifth up to the pool's largest class, the rest a
// few KiB and, rarely, tens of KiB.
size_t RandomSize(Random& random) {
  uint64_t pick = random.Next() % 100;
  if (pick < 60) {
    return random.Between(8, 128);
  }
  if (pick < 80) {
    return random.Between(129, 1024);
  }
  if (pick < 99) {
    return random.Between(1025, 4096);
  }
  return random.Between(4097, 32768);
}

struct Shared {
  size_t threads;
  uint64_t rounds;
  uint64_t steps;
  uint64_t seed;
  std::vector<std::vector<Slot> > arrays;
  Barrier* barrier;
};

void ReportCorrupt(const char* what, size_t thread, const Slot& slot) {
  fprintf(stderr, "corrupt block at %s: %zu bytes allocated by thread %zu, checked by thread %zu\n",
          what, slot.size, slot.owner, thread);
}

void Release(Slot& slot, size_t thread, Counts& counts) {
  if (!CheckPattern(slot.block, slot.size, slot.tag, &counts.checksum)) {
    ++counts.corrupt;
    ReportCorrupt("free", thread, slot);
  }
  if (slot.kind == kNewArray) {
    delete[] static_cast<unsigned char*>(slot.block);
  } else {
    free(slot.block);
  }
  ++counts.frees;
  if (slot.owner != thread) {
    ++counts.frees_on_other_threads;
  }
  slot = Slot();
}

void Allocate(Slot& slot, size_t thread, Random& random, Counts& counts) {
  slot.size = RandomSize(random);
  slot.tag = random.Next();
  slot.kind = static_cast<Kind>(random.Next() % 3);
  slot.owner = thread;
  if (slot.kind == kNewArray) {
    slot.block = new unsigned char[slot.size];
  } else if (slot.kind == kCalloc) {
    slot.block = calloc(1, slot.size);
    const unsigned char* bytes = static_cast<const unsigned char*>(slot.block);
    for (size_t i = 0; slot.block != nullptr && i < slot.size; ++i) {
      if (bytes[i] != 0) {
        ++counts.corrupt;
        ReportCorrupt("calloc", thread, slot);
        break;
      }
    }
  } else {
    slot.block = malloc(slot.size);
  }
  if (slot.block == nullptr) {
    ++counts.failed;
    slot = Slot();
    return;
  }
  FillPattern(slot.block, slot.size, slot.tag);
  ++counts.allocations;
  counts.bytes += slot.size;
}

// A C-heap block grows or shrinks in place of being freed: the bytes both
// sizes share must survive, whichever thread allocated it.
void Reallocate(Slot& slot, size_t thread, Random& random, Counts& counts) {
  size_t size = RandomSize(random);
  size_t kept = size < slot.size ? size : slot.size;
  void* moved = realloc(slot.block, size);
  if (moved == nullptr) {
    ++counts.failed;
    return;
  }
  slot.block = moved;
  if (!CheckPattern(moved, kept, slot.tag, &counts.checksum)) {
    ++counts.corrupt;
    ReportCorrupt("realloc", thread, slot);
  }
  slot.size = size;
  slot.tag = random.Next();
  FillPattern(moved, size, slot.tag);
  ++counts.reallocations;
  counts.bytes += size;
}

void Work(Shared* shared, size_t thread, Counts* counts) {
  for (uint64_t round = 0; round < shared->rounds; ++round) {
    std::vector<Slot>& slots = shared->arrays[(thread + round) % shared->threads];
    Random random(MixSeed(shared->seed, thread * shared->rounds + round));
    for (uint64_t step = 0; step < shared->steps; ++step) {
      Slot& slot = slots[random.Between(0, slots.size() - 1)];
      if (slot.block != nullptr && slot.kind != kNewArray && random.Next() % 8 == 0) {
        Reallocate(slot, thread, random, *counts);
        continue;
      }
      if (slot.block != nullptr) {
        Release(slot, thread, *counts);
      }
      Allocate(slot, thread, random, *counts);
    }
    shared->barrier->Wait();
  }
  for (Slot& slot : shared->arrays[(thread + shared->rounds) % shared->threads]) {
    if (slot.block != nullptr) {
      Release(slot, thread, *counts);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  QuendalWorkload::Options options;
  options.Declare("threads", 4, "threads, each with an array of slots");
  options.Declare("rounds", 100, "rounds; the arrays change hands after each");
  options.Declare("slots", 2000, "slots per array");
  options.Declare("steps", 2000, "blocks replaced per thread and round");
  options.Declare("seed", 1, "seed of the size sequences");
  if (!options.Parse(argc, argv) || options.Get("threads") == 0 || options.Get("slots") == 0) {
    options.PrintUsage(argv[0]);
    return 2;
  }
  Shared shared;
  shared.threads = options.Get("threads");
  shared.rounds = options.Get("rounds");
  shared.steps = options.Get("steps");
  shared.seed = options.Get("seed");
  shared.arrays.assign(shared.threads, std::vector<Slot>(options.Get("slots")));
  Barrier barrier(shared.threads);
  shared.barrier = &barrier;

  Counts total = QuendalWorkload::RunOnThreads<Counts>(
      shared.threads, [&shared](size_t t, Counts* counts) { Work(&shared, t, counts); });
  printf(
      "cross_thread threads=%zu rounds=%llu allocations=%llu reallocations=%llu frees=%llu "
      "frees_on_other_threads=%llu bytes=%llu checksum=%016llx corrupt=%llu\n",
      shared.threads, static_cast<unsigned long long>(shared.rounds),
      static_cast<unsigned long long>(total.allocations),
      static_cast<unsigned long long>(total.reallocations),
      static_cast<unsigned long long>(total.frees),
      static_cast<unsigned long long>(total.frees_on_other_threads),
      static_cast<unsigned long long>(total.bytes), static_cast<unsigned long long>(total.checksum),
      static_cast<unsigned long long>(total.corrupt));
  if (total.failed != 0) {
    fprintf(stderr, "%llu allocations failed\n", static_cast<unsigned long long>(total.failed));
  }
  if (total.allocations != total.frees) {
    fprintf(stderr, "%llu blocks allocated, %llu freed\n",
            static_cast<unsigned long long>(total.allocations),
            static_cast<unsigned long long>(total.frees));
  }
  return total.corrupt == 0 && total.failed == 0 && total.allocations == total.frees ? 0 : 1;
}
