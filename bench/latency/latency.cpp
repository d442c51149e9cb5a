// Per-call latency of the heap (QDHeapAlloc, QDHeapFree, QDHeapReAlloc) and
// of malloc, free and realloc (the C library's, or whichever allocator is
// LD_PRELOADed), for callers that care about the slowest call:
//
//   quendal_bench_latency_<chunks> qd|malloc WORKLOAD [--repetitions R] [--steps N]
//       [--calls N] [--fifo 0|1]
//
// WORKLOAD is index, random, drain, churn, threaded or stats (qd only); see
// latency_plans.h. CMake writes a ".mem" with CHUNKS <chunks> beside each
// program. The plan's preparation runs once; then, R times, a child forked
// from the prepared state locks its memory (or touches every writable page)
// and times each call of the plan. RAW is the first child's figure of each
// call; REPLAYED the smallest of the R figures of the call, as the same
// call found the same state in every child: interrupts, preemption and
// cache misses of other programs drop out and the allocator's own cost
// stays. With --fifo 1 the timed threads run SCHED_FIFO (when permitted), so
// that other programs of the machine cannot preempt them. One line of JSON
// on standard output; bench/latency/run runs every allocator and writes
// docs/BENCHMARKS.md.
#include <fcntl.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <string>

#include "latency_clock.h"
#include "latency_plans.h"
#include "mapped_vector.h"
#include "quendal/heap.h"
#include "quendal/heap_stats.h"

namespace QuendalLatency {
namespace {

const int kDefaultRepetitions = 20;
const size_t kDefaultSteps = 200000;
const size_t kDefaultStatsCalls = 200;
// Steps the hammer thread has taken before the timed calls begin.
const uint64_t kHammerWarmUp = 20000;
// Few blocks of few classes: the hammer contends for the heap, not for
// the pool's chunks.
const uint32_t kHammerBlocks = 64;
const uint32_t kHammerSizes = 241;

struct PoolHeap {
  static constexpr bool kIsPool = true;
  static void* Alloc(size_t size) { return QDHeapAlloc(size); }
  static void* ReAlloc(void* block, size_t size) { return QDHeapReAlloc(block, size); }
  static void Free(void* block) { QDHeapFree(block); }
};

struct CHeap {
  static constexpr bool kIsPool = false;
  static void* Alloc(size_t size) { return malloc(size); }
  static void* ReAlloc(void* block, size_t size) { return realloc(block, size); }
  static void Free(void* block) { free(block); }
};

void Fail(const char* message) {
  fprintf(stderr, "quendal_bench_latency: %s\n", message);
  exit(1);
}

QDHeapStats Snapshot() {
  QDHeapStats stats;
  memset(&stats, 0, sizeof stats);
  stats.size = sizeof stats;
  QDHeapGetStats(&stats);
  return stats;
}

// The pool's geometry, measured in a child so that this process's heap
// stays untouched: a malloc run never sets the pool up at all.
Geometry ProbeGeometry() {
  int channel[2];
  if (pipe(channel) != 0) {
    Fail("pipe failed");
  }
  pid_t child = fork();
  if (child < 0) {
    Fail("fork failed");
  }
  if (child == 0) {
    close(channel[0]);
    Geometry geometry;
    memset(&geometry, 0, sizeof geometry);
    QDHeapStats stats = Snapshot();
    geometry.chunkCount = stats.chunkCount;
    geometry.chunkSize = stats.chunkSize;
    // The first block of the first chunk lies right behind its header.
    void* first = QDHeapAlloc(16);
    geometry.headerBytes =
        static_cast<uint32_t>(reinterpret_cast<uintptr_t>(first) & (stats.chunkSize - 1));
    for (uint32_t size = 8; size <= kLargestPooledSize; size += 8) {
      QDHeapAlloc(size);
    }
    stats = Snapshot();
    for (uint32_t index = 0; index < kClassCount && index < stats.classCount; ++index) {
      const QDHeapClassStats& entry = stats.classes[index];
      geometry.blocksPerChunk[index] = entry.chunks == 0 ? 0 : entry.blockCapacity / entry.chunks;
    }
    ssize_t written = write(channel[1], &geometry, sizeof geometry);
    _exit(written == static_cast<ssize_t>(sizeof geometry) ? 0 : 1);
  }
  close(channel[1]);
  Geometry geometry;
  size_t received = 0;
  while (received < sizeof geometry) {
    ssize_t count =
        read(channel[0], reinterpret_cast<char*>(&geometry) + received, sizeof geometry - received);
    if (count <= 0) {
      Fail("the probe of the pool wrote no geometry");
    }
    received += static_cast<size_t>(count);
  }
  close(channel[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (geometry.chunkSize == 0 || geometry.headerBytes == 0 ||
      geometry.PerChunk(16) != (geometry.chunkSize - geometry.headerBytes) / 16) {
    Fail("the probe of the pool found no sensible geometry");
  }
  return geometry;
}

// The processors of the timed thread and of the hammer thread, when the
// process may run on two.
struct Processors {
  int timed = -1;
  int hammer = -1;
};

Processors ChooseProcessors() {
  Processors processors;
  cpu_set_t allowed;
  CPU_ZERO(&allowed);
  if (sched_getaffinity(0, sizeof allowed, &allowed) != 0 || CPU_COUNT(&allowed) < 2) {
    return processors;
  }
  for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
    if (CPU_ISSET(cpu, &allowed)) {
      if (processors.timed < 0) {
        processors.timed = cpu;
      } else {
        processors.hammer = cpu;
        break;
      }
    }
  }
  return processors;
}

// Binds the calling thread to cpu.
void PinTo(int cpu) {
  if (cpu < 0) {
    return;
  }
  cpu_set_t set;
  CPU_ZERO(&set);
  CPU_SET(cpu, &set);
  sched_setaffinity(0, sizeof set, &set);
}

// Without the right to lock memory: writes every private writable page of
// the process with its own value, which faults it in and gives the child
// its own copy. Reads /proc/self/maps with plain system calls, as stdio
// would allocate from the heap being measured.
void TouchWritableMappings() {
  MappedVector<char> maps;
  int file = open("/proc/self/maps", O_RDONLY);
  if (file < 0) {
    return;
  }
  char buffer[65536];
  ssize_t count = 0;
  while ((count = read(file, buffer, sizeof buffer)) > 0) {
    maps.insert(maps.end(), buffer, buffer + count);
  }
  close(file);
  maps.push_back('\0');
  long page = sysconf(_SC_PAGESIZE);
  const char* line = maps.data();
  while (*line != '\0') {
    char* end = nullptr;
    uintptr_t start = strtoull(line, &end, 16);
    uintptr_t stop = strtoull(end + 1, &end, 16);
    const char* permissions = end + 1;
    if (permissions[0] == 'r' && permissions[1] == 'w' && permissions[3] == 'p') {
      for (uintptr_t address = start; address < stop; address += static_cast<uintptr_t>(page)) {
        volatile char* byte = reinterpret_cast<volatile char*>(address);
        *byte = *byte;
      }
    }
    const char* next = strchr(line, '\n');
    if (next == nullptr) {
      break;
    }
    line = next + 1;
  }
}

struct HammerState {
  std::atomic<bool> stop{false};
  std::atomic<uint64_t> steps{0};
  int cpu = -1;
};

// Replaces a random one of its blocks of 16 to 256 bytes, over and over,
// until told to stop.
template <class Heap>
void* Hammer(void* argument) {
  HammerState* state = static_cast<HammerState*>(argument);
  PinTo(state->cpu);
  void* blocks[kHammerBlocks];
  uint64_t random = 0x2545f4914f6cdd1dULL;
  for (void*& block : blocks) {
    block = Heap::Alloc(16 + (random % kHammerSizes));
    random = random * 6364136223846793005ULL + 1442695040888963407ULL;
  }
  while (!state->stop.load(std::memory_order_relaxed)) {
    uint32_t slot = static_cast<uint32_t>(random >> 40) % kHammerBlocks;
    Heap::Free(blocks[slot]);
    blocks[slot] = Heap::Alloc(16 + ((random >> 20) % kHammerSizes));
    random = random * 6364136223846793005ULL + 1442695040888963407ULL;
    state->steps.fetch_add(1, std::memory_order_relaxed);
  }
  for (void* block : blocks) {
    Heap::Free(block);
  }
  return nullptr;
}

// A written block, as its caller would write it.
void Use(void* block, uint32_t size) {
  if (block != nullptr) {
    memset(block, 0x5a, size < 16 ? size : 16);
  }
}

template <class Heap>
void Execute(const MappedVector<Op>& ops, void** slots) {
  for (const Op& op : ops) {
    switch (op.kind) {
      case kAlloc:
        slots[op.slot] = Heap::Alloc(op.size);
        Use(slots[op.slot], op.size);
        break;
      case kFree:
        Heap::Free(slots[op.slot]);
        slots[op.slot] = nullptr;
        break;
      default:
        break;
    }
  }
}

// The calls of ops, each timed on its own; samples[i] gets the ticks of
// call i less the clock's own.
template <class Heap>
void Measure(const MappedVector<Op>& ops, void** slots, uint32_t* samples, uint64_t overhead) {
  static QDHeapStats snapshot;
  for (size_t index = 0; index < ops.size(); ++index) {
    const Op& op = ops[index];
    uint64_t start = 0;
    uint64_t stop = 0;
    switch (op.kind) {
      case kAlloc: {
        start = StartTicks();
        void* block = Heap::Alloc(op.size);
        stop = StopTicks();
        slots[op.slot] = block;
        Use(block, op.size);
        break;
      }
      case kFree: {
        void* block = slots[op.slot];
        start = StartTicks();
        Heap::Free(block);
        stop = StopTicks();
        slots[op.slot] = nullptr;
        break;
      }
      case kReAlloc: {
        void* block = slots[op.slot];
        start = StartTicks();
        void* moved = Heap::ReAlloc(block, op.size);
        stop = StopTicks();
        if (moved != nullptr) {
          slots[op.slot] = moved;
          Use(moved, op.size);
        }
        break;
      }
      default: {
        snapshot.size = sizeof snapshot;
        start = StartTicks();
        QDHeapGetStats(&snapshot);
        stop = StopTicks();
        break;
      }
    }
    uint64_t ticks = stop - start;
    ticks = ticks > overhead ? ticks - overhead : 0;
    samples[index] = ticks > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(ticks);
  }
}

// What the first child says besides its samples.
struct ChildReport {
  int lockedMemory;
  int realTime;
  QDHeapStats pool;
};

// One repetition: runs in a child forked from the prepared state and never
// returns.
template <class Heap>
void RunChild(const Plan& plan, void** slots, uint32_t* samples, ChildReport* report,
              const Processors& processors, uint64_t overhead, bool fifo) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  bool locked = mlockall(MCL_CURRENT | MCL_FUTURE) == 0;
  if (!locked) {
    TouchWritableMappings();
  }
  // The lowest real-time priority already keeps every ordinary process
  // off the processor; the hammer thread inherits it.
  bool realTime = false;
  if (fifo) {
    sched_param parameters;
    memset(&parameters, 0, sizeof parameters);
    parameters.sched_priority = sched_get_priority_min(SCHED_FIFO);
    realTime = sched_setscheduler(0, SCHED_FIFO, &parameters) == 0;
  }
  HammerState hammer;
  hammer.cpu = processors.hammer;
  pthread_t thread;
  if (plan.hammer) {
    if (pthread_create(&thread, nullptr, Hammer<Heap>, &hammer) != 0) {
      _exit(3);
    }
    while (hammer.steps.load(std::memory_order_relaxed) < kHammerWarmUp) {
      sched_yield();
    }
  }
  Measure<Heap>(plan.timed, slots, samples, overhead);
  if (plan.hammer) {
    hammer.stop.store(true, std::memory_order_relaxed);
    pthread_join(thread, nullptr);
  }
  if (report != nullptr) {
    report->lockedMemory = locked ? 1 : 0;
    report->realTime = realTime ? 1 : 0;
    if (Heap::kIsPool) {
      report->pool = Snapshot();
    }
  }
  _exit(0);
}

// Whether the prepared blocks, slot by slot, fill plan.fillChunks chunks one
// after the other, each with plan.fillPerChunk blocks: that the pool's
// chunks are what the plan says they are.
bool FillsChunks(const Plan& plan, void* const* slots, uint32_t chunkSize) {
  uintptr_t mask = ~static_cast<uintptr_t>(chunkSize - 1);
  MappedVector<uintptr_t> chunks;
  for (uint32_t chunk = 0; chunk < plan.fillChunks; ++chunk) {
    const size_t first = static_cast<size_t>(chunk) * plan.fillPerChunk;
    uintptr_t address = reinterpret_cast<uintptr_t>(slots[first]) & mask;
    for (uint32_t block = 1; block < plan.fillPerChunk; ++block) {
      if ((reinterpret_cast<uintptr_t>(slots[first + block]) & mask) != address) {
        return false;
      }
    }
    chunks.push_back(address);
  }
  std::sort(chunks.begin(), chunks.end());
  return std::adjacent_find(chunks.begin(), chunks.end()) == chunks.end();
}

struct Percentiles {
  double p50;
  double p99;
  double p999;
  double p9999;
  double max;
};

// Nearest-rank percentiles of the samples of one kind of call, in
// nanoseconds.
Percentiles Summarise(const MappedVector<Op>& ops, const MappedVector<uint32_t>& samples,
                      uint32_t kind, const Clock& clock, size_t* calls) {
  MappedVector<uint32_t> values;
  for (size_t index = 0; index < ops.size(); ++index) {
    if (ops[index].kind == kind) {
      values.push_back(samples[index]);
    }
  }
  *calls = values.size();
  Percentiles result = {0, 0, 0, 0, 0};
  if (values.empty()) {
    return result;
  }
  std::sort(values.begin(), values.end());
  auto at = [&](double fraction) {
    size_t rank = static_cast<size_t>(fraction * static_cast<double>(values.size()) + 0.999999);
    rank = rank == 0 ? 1 : (rank > values.size() ? values.size() : rank);
    return values[rank - 1] * clock.nanosecondsPerTick;
  };
  result.p50 = at(0.5);
  result.p99 = at(0.99);
  result.p999 = at(0.999);
  result.p9999 = at(0.9999);
  result.max = values.back() * clock.nanosecondsPerTick;
  return result;
}

// The three slowest calls of one kind, by their replayed figures: where
// they are in the timed list, their slot and size, and their time in
// nanoseconds.
void PrintSlowest(const MappedVector<Op>& ops, const MappedVector<uint32_t>& samples, uint32_t kind,
                  const Clock& clock) {
  const size_t kShown = 3;
  size_t slowest[kShown];
  size_t found = 0;
  for (size_t index = 0; index < ops.size(); ++index) {
    if (ops[index].kind != kind) {
      continue;
    }
    size_t place = found < kShown ? found++ : kShown;
    while (place > 0 && samples[slowest[place - 1]] < samples[index]) {
      if (place < kShown) {
        slowest[place] = slowest[place - 1];
      }
      --place;
    }
    if (place < kShown) {
      slowest[place] = index;
    }
  }
  printf("\"slowest\": [");
  for (size_t rank = 0; rank < found; ++rank) {
    const Op& op = ops[slowest[rank]];
    printf("%s{\"call\": %zu, \"slot\": %u, \"size\": %u, \"ns\": %.1f}", rank == 0 ? "" : ", ",
           slowest[rank], op.slot, op.size, samples[slowest[rank]] * clock.nanosecondsPerTick);
  }
  printf("]");
}

void PrintPercentiles(const char* name, const Percentiles& values) {
  printf("\"%s\": {\"p50\": %.1f, \"p99\": %.1f, \"p99.9\": %.1f, \"p99.99\": %.1f, \"max\": %.1f}",
         name, values.p50, values.p99, values.p999, values.p9999, values.max);
}

struct Options {
  bool pool = false;
  std::string workload;
  int repetitions = kDefaultRepetitions;
  size_t steps = kDefaultSteps;
  size_t calls = kDefaultStatsCalls;
  bool fifo = false;
};

void Usage(const char* program) {
  fprintf(stderr,
          "usage: %s qd|malloc index|random|drain|churn|threaded|stats "
          "[--repetitions R] [--steps N] [--calls N] [--fifo 0|1]\n",
          program);
  exit(2);
}

Options ParseOptions(int argc, char** argv) {
  Options options;
  if (argc < 3) {
    Usage(argv[0]);
  }
  std::string heap = argv[1];
  if (heap != "qd" && heap != "malloc") {
    Usage(argv[0]);
  }
  options.pool = heap == "qd";
  options.workload = argv[2];
  for (int index = 3; index + 1 < argc; index += 2) {
    std::string option = argv[index];
    long value = strtol(argv[index + 1], nullptr, 10);
    if (option == "--fifo" && (value == 0 || value == 1)) {
      options.fifo = value == 1;
      continue;
    }
    if (value <= 0) {
      Usage(argv[0]);
    }
    if (option == "--repetitions") {
      options.repetitions = static_cast<int>(value);
    } else if (option == "--steps") {
      options.steps = static_cast<size_t>(value);
    } else if (option == "--calls") {
      options.calls = static_cast<size_t>(value);
    } else {
      Usage(argv[0]);
    }
  }
  if ((argc - 3) % 2 != 0) {
    Usage(argv[0]);
  }
  if (options.workload == "stats" && !options.pool) {
    Fail("the stats workload measures the pool's snapshot: qd only");
  }
  return options;
}

Plan MakePlan(const Options& options, const Geometry& geometry) {
  if (options.workload == "index") {
    return IndexPlan(geometry);
  }
  if (options.workload == "random" || options.workload == "threaded") {
    return RandomPlan(geometry, options.steps, options.workload == "threaded");
  }
  if (options.workload == "drain") {
    return DrainPlan(geometry);
  }
  if (options.workload == "churn") {
    return ChurnPlan(geometry, options.steps);
  }
  if (options.workload == "stats") {
    return StatsPlan(geometry, options.calls);
  }
  Fail("unknown workload");
  return Plan();
}

template <class Heap>
int Run(const Options& options) {
  Geometry geometry = ProbeGeometry();
  Processors processors = ChooseProcessors();
  PinTo(processors.timed);
  Clock clock = CalibrateClock();
  Plan plan = MakePlan(options, geometry);
  // The pool is set up before the state is prepared: the first heap call
  // (the ".mem", the segment) is no workload's.
  if (Heap::kIsPool) {
    Snapshot();
  }
  MappedVector<void*> slots(plan.slots + 1, nullptr);
  Execute<Heap>(plan.prepare, slots.data());
  if (Heap::kIsPool && plan.fillChunks != 0 &&
      !FillsChunks(plan, slots.data(), geometry.chunkSize)) {
    Fail("the blocks do not fill the pool's chunks as planned (is the .mem beside the program?)");
  }

  size_t count = plan.timed.size();
  SharedArray<uint32_t> samples(count);
  SharedArray<ChildReport> report(1);
  memset(samples.data(), 0, count * sizeof(uint32_t));
  memset(report.data(), 0, sizeof(ChildReport));
  MappedVector<uint32_t> raw;
  MappedVector<uint32_t> best;
  for (int repetition = 0; repetition < options.repetitions; ++repetition) {
    fflush(nullptr);
    pid_t child = fork();
    if (child < 0) {
      Fail("fork failed");
    }
    if (child == 0) {
      RunChild<Heap>(plan, slots.data(), samples.data(), repetition == 0 ? report.data() : nullptr,
                     processors, clock.overheadTicks, options.fifo);
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
      Fail("a repetition failed");
    }
    if (repetition == 0) {
      raw.assign(samples.data(), samples.data() + count);
      best = raw;
    } else {
      for (size_t index = 0; index < count; ++index) {
        best[index] = std::min(best[index], samples[index]);
      }
    }
  }

  const ChildReport& first = report[0];
  printf(
      "{\"heap\": \"%s\", \"workload\": \"%s\", \"chunks\": %u, \"header_bytes\": %u, "
      "\"clock\": \"%s\", \"ns_per_tick\": %.5f, \"overhead_ns\": %.1f, \"memory\": \"%s\", "
      "\"pinned\": %s, \"fifo\": %s, \"repetitions\": %d, \"prepared_calls\": %zu, "
      "\"timed_calls\": %zu, "
      "\"ops\": {",
      options.pool ? "qd" : "malloc", options.workload.c_str(), geometry.chunkCount,
      geometry.headerBytes, ClockName(), clock.nanosecondsPerTick,
      static_cast<double>(clock.overheadTicks) * clock.nanosecondsPerTick,
      first.lockedMemory != 0 ? "locked" : "touched", processors.timed >= 0 ? "true" : "false",
      first.realTime != 0 ? "true" : "false", options.repetitions, plan.prepare.size(), count);
  bool separator = false;
  for (uint32_t kind = 0; kind < kOpKinds; ++kind) {
    size_t calls = 0;
    Percentiles rawFigures = Summarise(plan.timed, raw, kind, clock, &calls);
    Percentiles bestFigures = Summarise(plan.timed, best, kind, clock, &calls);
    if (calls == 0) {
      continue;
    }
    printf("%s\"%s\": {\"calls\": %zu, ", separator ? ", " : "", OpName(kind), calls);
    PrintPercentiles("raw", rawFigures);
    printf(", ");
    PrintPercentiles("replayed", bestFigures);
    printf(", ");
    PrintSlowest(plan.timed, best, kind, clock);
    printf("}");
    separator = true;
  }
  printf("}");
  if (Heap::kIsPool) {
    const QDHeapStats& pool = first.pool;
    printf(
        ", \"pool\": {\"chunk_count\": %u, \"lost_chunks\": %u, \"free_chunks\": %u, "
        "\"lowest_free_chunks\": %u, \"exhausted_requests\": %llu, \"large_requests\": %llu}",
        pool.chunkCount, pool.lostChunks, pool.freeChunks, pool.lowestFreeChunks,
        static_cast<unsigned long long>(pool.exhaustedRequests),
        static_cast<unsigned long long>(pool.largeRequests));
  }
  printf("}\n");
  return 0;
}

}  // namespace
}  // namespace QuendalLatency

int main(int argc, char** argv) {
  QuendalLatency::Options options = QuendalLatency::ParseOptions(argc, argv);
  if (options.pool) {
    return QuendalLatency::Run<QuendalLatency::PoolHeap>(options);
  }
  return QuendalLatency::Run<QuendalLatency::CHeap>(options);
}
