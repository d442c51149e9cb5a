// A server's pattern of allocation: each thread handles requests that
// allocate blocks of 8 to 4096 bytes, keeps the most recent ones alive in a
// window and retires the oldest as new ones come in. A share of the retired
// blocks is handed to the next thread, as a reply handed to a writer thread
// would be, and that thread checks and frees them. Every block carries a
// pattern that is checked when it is freed; a damaged block makes the
// program exit with status 1.
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <atomic>
#include <mutex>
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
  bool from_new = false;
};

struct Counts {
  uint64_t allocations = 0;
  uint64_t frees = 0;
  uint64_t handed = 0;
  uint64_t bytes = 0;
  uint64_t checksum = 0;
  uint64_t corrupt = 0;
  uint64_t failed = 0;

  void Add(const Counts& other) {
    allocations += other.allocations;
    frees += other.frees;
    handed += other.handed;
    bytes += other.bytes;
    checksum += other.checksum;
    corrupt += other.corrupt;
    failed += other.failed;
  }
};

// Blocks handed to a thread, taken in batches so that the handing itself
// costs little beside the allocator's work.
class Inbox {
 public:
  void Put(std::vector<Block>& batch) {
    std::lock_guard<std::mutex> lock(mutex_);
    blocks_.insert(blocks_.end(), batch.begin(), batch.end());
    batch.clear();
  }

  void TakeAll(std::vector<Block>& out) {
    std::lock_guard<std::mutex> lock(mutex_);
    out.swap(blocks_);
  }

 private:
  std::mutex mutex_;
  std::vector<Block> blocks_;
};

// Mostly headers and small records, a third up to the pool's largest
// class, some buffers of a few KiB.
size_t RequestSize(Random& random) {
  uint64_t pick = random.Next() % 100;
  if (pick < 60) {
    return random.Between(8, 128);
  }
  if (pick < 90) {
    return random.Between(129, 1024);
  }
  return random.Between(1025, 4096);
}

void Release(Block& block, Counts& counts) {
  if (!CheckPattern(block.data, block.size, block.tag, &counts.checksum)) {
    ++counts.corrupt;
  }
  if (block.from_new) {
    delete[] static_cast<unsigned char*>(block.data);
  } else {
    free(block.data);
  }
  ++counts.frees;
  block = Block();
}

bool Allocate(Block& block, Random& random, Counts& counts) {
  block.size = RequestSize(random);
  block.tag = random.Next();
  block.from_new = random.Next() % 4 == 0;
  if (block.from_new) {
    block.data = new unsigned char[block.size];
  } else {
    block.data = malloc(block.size);
  }
  if (block.data == nullptr) {
    ++counts.failed;
    block = Block();
    return false;
  }
  FillPattern(block.data, block.size, block.tag);
  ++counts.allocations;
  counts.bytes += block.size;
  return true;
}

void FreeInbox(Inbox& inbox, std::vector<Block>& taken, Counts& counts) {
  inbox.TakeAll(taken);
  for (Block& block : taken) {
    Release(block, counts);
  }
  taken.clear();
}

struct Shared {
  size_t threads;
  uint64_t requests;
  size_t window;
  uint64_t handoff_percent;
  uint64_t seed;
  std::vector<Inbox> inboxes;
  std::atomic<size_t> finished{0};
};

const size_t kBatch = 32;

void Serve(Shared* shared, size_t thread, Counts* counts) {
  Random random(MixSeed(shared->seed, thread));
  Inbox& own = shared->inboxes[thread];
  Inbox& next = shared->inboxes[(thread + 1) % shared->threads];
  std::vector<Block> window(shared->window);
  std::vector<Block> outgoing;
  std::vector<Block> taken;
  size_t oldest = 0;
  for (uint64_t request = 0; request < shared->requests; ++request) {
    Block& slot = window[oldest];
    oldest = (oldest + 1) % window.size();
    if (slot.data != nullptr) {
      if (random.Next() % 100 < shared->handoff_percent) {
        outgoing.push_back(slot);
        slot = Block();
        ++counts->handed;
        if (outgoing.size() == kBatch) {
          next.Put(outgoing);
        }
      } else {
        Release(slot, *counts);
      }
    }
    Allocate(slot, random, *counts);
    if (request % kBatch == kBatch - 1) {
      FreeInbox(own, taken, *counts);
    }
  }
  next.Put(outgoing);
  for (Block& block : window) {
    if (block.data != nullptr) {
      Release(block, *counts);
    }
  }
  // Blocks keep arriving until every thread has handed its last batch.
  shared->finished.fetch_add(1);
  while (shared->finished.load() < shared->threads) {
    FreeInbox(own, taken, *counts);
    std::this_thread::yield();
  }
  FreeInbox(own, taken, *counts);
}

}  // namespace

int main(int argc, char** argv) {
  QuendalWorkload::Options options;
  options.Declare("threads", 2, "server threads; each hands blocks to the next");
  options.Declare("requests", 1000000, "blocks allocated per thread");
  options.Declare("window", 1000, "live blocks a thread keeps");
  options.Declare("handoff", 25, "percent of retired blocks the next thread frees");
  options.Declare("seed", 1, "seed of the size sequences");
  if (!options.Parse(argc, argv) || options.Get("threads") == 0 || options.Get("window") == 0 ||
      options.Get("handoff") > 100) {
    options.PrintUsage(argv[0]);
    return 2;
  }
  Shared shared;
  shared.threads = options.Get("threads");
  shared.requests = options.Get("requests");
  shared.window = options.Get("window");
  shared.handoff_percent = options.Get("handoff");
  shared.seed = options.Get("seed");
  shared.inboxes = std::vector<Inbox>(shared.threads);

  Counts total = QuendalWorkload::RunOnThreads<Counts>(
      shared.threads, [&shared](size_t t, Counts* counts) { Serve(&shared, t, counts); });
  printf(
      "server threads=%zu allocations=%llu handed_to_next_thread=%llu bytes=%llu "
      "checksum=%016llx corrupt=%llu\n",
      shared.threads, static_cast<unsigned long long>(total.allocations),
      static_cast<unsigned long long>(total.handed), static_cast<unsigned long long>(total.bytes),
      static_cast<unsigned long long>(total.checksum),
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
