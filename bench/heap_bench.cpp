// Every family runs twice in the same process, once through the exported
// pool heap ("QD") and once through malloc, so each figure has its
// counterpart measured under the same conditions. Names read
// family/heap/arguments; bench/compare pairs the rows by that name.
#include <benchmark/benchmark.h>
#include <stdint.h>
#include <string.h>

#include <string>
#include <thread>
#include <vector>

#include "bench_workloads.h"
#include "heap/biased_lock.h"
#include "heap_api.h"

namespace QuendalBench {
namespace {

// Blocks of the batch family: 31 fit a 2048-byte chunk behind its header, so
// the default pool of 650 chunks (649 once the segment is aligned) holds
// 20 119 of them; the largest batch overflows it into the extra heap.
const size_t kBatchBlockSize = 64;
const int64_t kBatchCounts[] = {256, 4096, 16384, 32768};

const int kDeepLiveBlocks = 50000;
const uint32_t kMixedSlots = 4096;
const size_t kMixedSteps = 1 << 16;
const size_t kChurnLiveBlocks = 256;

// Makes the process multi-threaded for good (as the C library sees it), so
// that the heap takes its lock from here on.
void StartASecondThreadOnce() {
  static bool started = false;
  if (!started) {
    std::thread([] {}).join();
    started = true;
  }
}

template <class Heap>
void Pair(benchmark::State& state) {
  size_t size = static_cast<size_t>(state.range(0));
  for (auto _ : state) {
    void* block = Heap::Alloc(size);
    benchmark::DoNotOptimize(block);
    Heap::Free(block);
  }
  state.SetItemsProcessed(state.iterations());
}

// The same pair while one other block of the size stays live, as in a
// process that uses the size elsewhere: the pool's chunk then stays with its
// class instead of going back to the free chunk list at every release.
template <class Heap>
void WarmPair(benchmark::State& state) {
  size_t size = static_cast<size_t>(state.range(0));
  void* resident = Heap::Alloc(size);
  Pair<Heap>(state);
  Heap::Free(resident);
}

enum FreeOrder { kLifo, kFifo, kRandom };

template <class Heap, FreeOrder order>
void Batch(benchmark::State& state) {
  size_t count = static_cast<size_t>(state.range(0));
  std::vector<void*> blocks(count);
  std::vector<uint32_t> shuffled = RandomOrder(count);
  for (auto _ : state) {
    for (size_t index = 0; index < count; ++index) {
      blocks[index] = Heap::Alloc(kBatchBlockSize);
    }
    benchmark::DoNotOptimize(blocks.data());
    if (order == kLifo) {
      for (size_t index = count; index-- > 0;) {
        Heap::Free(blocks[index]);
      }
    } else if (order == kFifo) {
      for (size_t index = 0; index < count; ++index) {
        Heap::Free(blocks[index]);
      }
    } else {
      for (size_t index = 0; index < count; ++index) {
        Heap::Free(blocks[shuffled[index]]);
      }
    }
  }
  state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(count));
}

// Pairs of one size while 50 000 blocks of it stay live: in the pool, every
// allocation walks the class's full chunks from its head.
template <class Heap>
void DeepClass(benchmark::State& state) {
  size_t size = static_cast<size_t>(state.range(0));
  std::vector<void*> live(kDeepLiveBlocks);
  for (void*& block : live) {
    block = Heap::Alloc(size);
  }
  for (auto _ : state) {
    void* block = Heap::Alloc(size);
    benchmark::DoNotOptimize(block);
    Heap::Free(block);
  }
  for (void* block : live) {
    Heap::Free(block);
  }
  state.SetItemsProcessed(state.iterations());
}

// One block grown from 8 to 4096 bytes in 8-byte steps, then released.
template <class Heap>
void ReallocGrowth(benchmark::State& state) {
  for (auto _ : state) {
    void* block = Heap::Alloc(8);
    for (size_t size = 16; size <= 4096; size += 8) {
      block = Heap::ReAlloc(block, size);
      static_cast<char*>(block)[size - 1] = 1;
    }
    benchmark::DoNotOptimize(block);
    Heap::Free(block);
  }
  state.SetItemsProcessed(state.iterations() * ((4096 - 16) / 8 + 1));
}

// A working set of 4096 live blocks; each step replaces one of them by a
// block of the next size of the seeded distribution and writes its first
// bytes.
template <class Heap>
void Mixed(benchmark::State& state) {
  static const std::vector<MixedStep> steps = MixedSteps(kMixedSteps, kMixedSlots);
  std::vector<void*> slots(kMixedSlots);
  for (uint32_t slot = 0; slot < kMixedSlots; ++slot) {
    slots[slot] = Heap::Alloc(steps[slot].size);
  }
  size_t next = 0;
  for (auto _ : state) {
    const MixedStep& step = steps[next];
    next = (next + 1) & (kMixedSteps - 1);
    Heap::Free(slots[step.slot]);
    void* block = Heap::Alloc(step.size);
    memset(block, 0, 16);
    slots[step.slot] = block;
  }
  for (void* block : slots) {
    Heap::Free(block);
  }
  state.SetItemsProcessed(state.iterations());
}

// Each thread keeps 256 live blocks of 16 to 128 bytes and replaces the
// oldest one per step. Throughput (items per second of wall time) with two
// threads against one shows what the heap lock costs under contention; the
// one-thread run takes the lock too, so only contention differs.
template <class Heap>
void Churn(benchmark::State& state) {
  if (state.thread_index() == 0) {
    StartASecondThreadOnce();
  }
  std::vector<void*> ring(kChurnLiveBlocks);
  for (size_t index = 0; index < kChurnLiveBlocks; ++index) {
    ring[index] = Heap::Alloc(16 + (index & 7) * 16);
  }
  size_t next = 0;
  for (auto _ : state) {
    size_t slot = next & (kChurnLiveBlocks - 1);
    Heap::Free(ring[slot]);
    void* block = Heap::Alloc(16 + (next & 7) * 16);
    *static_cast<char*>(block) = 1;
    ring[slot] = block;
    ++next;
  }
  for (void* block : ring) {
    Heap::Free(block);
  }
  state.SetItemsProcessed(state.iterations());
}

// Pair latency in a process where a second thread has existed, so the heap
// lock is always taken.
template <class Heap>
void ThreadedPair(benchmark::State& state) {
  StartASecondThreadOnce();
  Pair<Heap>(state);
}

// The warm pair with the lock taken: the pool's own allocate-and-free cost
// in a multi-threaded process.
template <class Heap>
void ThreadedWarmPair(benchmark::State& state) {
  StartASecondThreadOnce();
  WarmPair<Heap>(state);
}

// What one lock costs a pair by itself: a heap whose allocation and release
// do nothing but enter and leave a lock of the heap's kind (its own, so the
// heap's state plays no part). Its ratio to the C library's pair is the
// floor of any heap that takes one lock per call.
struct LockOnlyHeap {
  static constexpr const char* kName = "QD";
  static Quendal::Heap::BiasedLock lock;
  static char block[16];
  static void* Alloc(size_t) {
    lock.Leave(lock.Enter());
    return block;
  }
  static void Free(void*) { lock.Leave(lock.Enter()); }
};
Quendal::Heap::BiasedLock LockOnlyHeap::lock;
char LockOnlyHeap::block[16];

template <class Heap>
void RegisterPair(int64_t size) {
  benchmark::RegisterBenchmark(Name<Heap>("pair").c_str(), Pair<Heap>)->Arg(size);
}

template <FreeOrder order>
void RegisterBatch(const char* family, int64_t count) {
  benchmark::RegisterBenchmark(Name<PoolHeap>(family).c_str(), Batch<PoolHeap, order>)->Arg(count);
  benchmark::RegisterBenchmark(Name<CHeap>(family).c_str(), Batch<CHeap, order>)->Arg(count);
}

// QD and malloc rows alternate, so each pair is measured moments apart. The
// families that start a thread come last: everything before them runs in a
// single-threaded process, where the heap skips its lock.
void RegisterAll() {
  const int64_t pairSizes[] = {8, 16, 64, 256, 1024, 2048};
  for (int64_t size : pairSizes) {
    RegisterPair<PoolHeap>(size);
    RegisterPair<CHeap>(size);
  }
  // The pooled sizes, from the smallest class to the largest.
  const int64_t pooledSizes[] = {8, 16, 64, 256, 1024};
  for (int64_t size : pooledSizes) {
    benchmark::RegisterBenchmark(Name<PoolHeap>("pair_warm").c_str(), WarmPair<PoolHeap>)
        ->Arg(size);
    benchmark::RegisterBenchmark(Name<CHeap>("pair_warm").c_str(), WarmPair<CHeap>)->Arg(size);
  }
  for (int64_t count : kBatchCounts) {
    RegisterBatch<kLifo>("batch_lifo", count);
    RegisterBatch<kFifo>("batch_fifo", count);
    RegisterBatch<kRandom>("batch_random", count);
  }
  const int64_t deepSizes[] = {16, 24};
  for (int64_t size : deepSizes) {
    benchmark::RegisterBenchmark(Name<PoolHeap>("deep_class").c_str(), DeepClass<PoolHeap>)
        ->Arg(size);
    benchmark::RegisterBenchmark(Name<CHeap>("deep_class").c_str(), DeepClass<CHeap>)->Arg(size);
  }
  benchmark::RegisterBenchmark(Name<PoolHeap>("realloc_growth").c_str(), ReallocGrowth<PoolHeap>);
  benchmark::RegisterBenchmark(Name<CHeap>("realloc_growth").c_str(), ReallocGrowth<CHeap>);
  benchmark::RegisterBenchmark(Name<PoolHeap>("mixed").c_str(), Mixed<PoolHeap>);
  benchmark::RegisterBenchmark(Name<CHeap>("mixed").c_str(), Mixed<CHeap>);
  for (int threads = 1; threads <= 2; ++threads) {
    benchmark::RegisterBenchmark(Name<PoolHeap>("churn").c_str(), Churn<PoolHeap>)
        ->Threads(threads)
        ->UseRealTime();
    benchmark::RegisterBenchmark(Name<CHeap>("churn").c_str(), Churn<CHeap>)
        ->Threads(threads)
        ->UseRealTime();
  }
  for (int64_t size : pooledSizes) {
    benchmark::RegisterBenchmark(Name<PoolHeap>("pair_threaded").c_str(), ThreadedPair<PoolHeap>)
        ->Arg(size);
    benchmark::RegisterBenchmark(Name<CHeap>("pair_threaded").c_str(), ThreadedPair<CHeap>)
        ->Arg(size);
  }
  benchmark::RegisterBenchmark(Name<LockOnlyHeap>("lock_floor").c_str(), ThreadedPair<LockOnlyHeap>)
      ->Arg(16);
  benchmark::RegisterBenchmark(Name<CHeap>("lock_floor").c_str(), ThreadedPair<CHeap>)->Arg(16);
  for (int64_t size : pooledSizes) {
    benchmark::RegisterBenchmark(Name<PoolHeap>("pair_warm_threaded").c_str(),
                                 ThreadedWarmPair<PoolHeap>)
        ->Arg(size);
    benchmark::RegisterBenchmark(Name<CHeap>("pair_warm_threaded").c_str(), ThreadedWarmPair<CHeap>)
        ->Arg(size);
  }
}

}  // namespace
}  // namespace QuendalBench

int main(int argc, char** argv) {
  // The pool is set up before any family runs, so no row pays for it.
  QDHeapFree(QDHeapAlloc(8));
  QuendalBench::RegisterAll();
  return QuendalBench::RunRegisteredBenchmarks(argc, argv);
}
