#include "latency_plans.h"

#include <math.h>

#include <utility>

namespace QuendalLatency {
namespace {

const uint64_t kSeed = 0x5eed0f1a7e9c3b21ULL;
const uint32_t kIndexBlockSize = 16;
const uint32_t kLargestLargeSize = 16384;

// SplitMix64: the same numbers on every platform and standard library.
class Random {
 public:
  explicit Random(uint64_t seed) : m_state(seed) {}

  uint64_t Next() {
    m_state += 0x9e3779b97f4a7c15ULL;
    uint64_t value = m_state;
    value = (value ^ (value >> 30)) * 0xbf58476d1ce4e5b9ULL;
    value = (value ^ (value >> 27)) * 0x94d049bb133111ebULL;
    return value ^ (value >> 31);
  }

  // Uniform in 0 .. bound - 1.
  uint32_t Below(uint32_t bound) {
    return static_cast<uint32_t>(((Next() >> 32) * static_cast<uint64_t>(bound)) >> 32);
  }

  // Uniform in [0, 1).
  double Unit() { return static_cast<double>(Next() >> 11) * (1.0 / 9007199254740992.0); }

 private:
  uint64_t m_state;
};

// 8 to 1024 bytes with the logarithm uniform: as many requests of 8 to 16
// bytes as of 512 to 1024.
uint32_t PooledSize(Random& random) {
  uint32_t rounded = static_cast<uint32_t>(lround(8.0 * exp2(7.0 * random.Unit())));
  return rounded < 8 ? 8 : (rounded > kLargestPooledSize ? kLargestPooledSize : rounded);
}

uint32_t RandomSize(Random& random) {
  if (random.Below(100) < 5) {
    return kLargestPooledSize + 1 + random.Below(kLargestLargeSize - kLargestPooledSize);
  }
  return PooledSize(random);
}

// Slot numbers for new blocks: the one freed last, else a new one.
class Slots {
 public:
  uint32_t Take() {
    if (!m_free.empty()) {
      uint32_t slot = m_free.back();
      m_free.pop_back();
      return slot;
    }
    return m_count++;
  }
  void Give(uint32_t slot) { m_free.push_back(slot); }
  uint32_t Count() const { return m_count; }

 private:
  MappedVector<uint32_t> m_free;
  uint32_t m_count = 0;
};

// The live slots, any of them drawn and removed in constant time.
class LiveSet {
 public:
  void Add(uint32_t slot, uint32_t size) {
    if (slot >= m_where.size()) {
      m_where.resize(slot + 1);
      m_size.resize(slot + 1);
    }
    m_where[slot] = static_cast<uint32_t>(m_live.size());
    m_size[slot] = size;
    m_live.push_back(slot);
  }
  uint32_t Draw(Random& random) const {
    return m_live[random.Below(static_cast<uint32_t>(m_live.size()))];
  }
  void Remove(uint32_t slot) {
    uint32_t last = m_live.back();
    m_live[m_where[slot]] = last;
    m_where[last] = m_where[slot];
    m_live.pop_back();
  }
  uint32_t SizeOf(uint32_t slot) const { return m_size[slot]; }
  void Resize(uint32_t slot, uint32_t size) { m_size[slot] = size; }
  bool Empty() const { return m_live.empty(); }

 private:
  MappedVector<uint32_t> m_live;
  MappedVector<uint32_t> m_where;
  MappedVector<uint32_t> m_size;
};

void Push(MappedVector<Op>& ops, uint32_t kind, uint32_t slot, uint32_t size) {
  Op op;
  op.kind = kind;
  op.slot = slot;
  op.size = size;
  ops.push_back(op);
}

// Fisher-Yates over values.
void Shuffle(MappedVector<uint32_t>& values, Random& random) {
  for (size_t index = values.size(); index > 1; --index) {
    uint32_t other = random.Below(static_cast<uint32_t>(index));
    std::swap(values[index - 1], values[other]);
  }
}

}  // namespace

const char* OpName(uint32_t kind) {
  static const char* const kNames[kOpKinds] = {"alloc", "free", "realloc", "stats"};
  return kind < kOpKinds ? kNames[kind] : "?";
}

Plan IndexPlan(const Geometry& geometry) {
  Plan plan;
  uint32_t perChunk = geometry.PerChunk(kIndexBlockSize);
  uint32_t chunks = geometry.UsableChunks();
  plan.slots = chunks * perChunk;
  plan.fillChunks = chunks;
  plan.fillPerChunk = perChunk;
  plan.prepare.reserve(plan.slots);
  for (uint32_t slot = 0; slot < plan.slots; ++slot) {
    Push(plan.prepare, kAlloc, slot, kIndexBlockSize);
  }
  plan.timed.reserve(2 * static_cast<size_t>(chunks));
  // The hole sits mid-chunk; each chunk gets one, in the order the chunks
  // joined the class.
  for (uint32_t chunk = 0; chunk < chunks; ++chunk) {
    Push(plan.timed, kFree, chunk * perChunk + perChunk / 2, kIndexBlockSize);
  }
  for (uint32_t chunk = 0; chunk < chunks; ++chunk) {
    Push(plan.timed, kAlloc, chunk * perChunk + perChunk / 2, kIndexBlockSize);
  }
  return plan;
}

Plan RandomPlan(const Geometry& geometry, size_t steps, bool threaded) {
  Plan plan;
  plan.hammer = threaded;
  Random random(kSeed ^ 2);
  Slots slots;
  LiveSet live;
  double target = 0.7 * geometry.UsableChunks();
  double liveChunks = 0;
  while (liveChunks < target) {
    uint32_t size = RandomSize(random);
    uint32_t slot = slots.Take();
    Push(plan.prepare, kAlloc, slot, size);
    live.Add(slot, size);
    liveChunks += geometry.ChunkShare(size);
  }
  plan.timed.reserve(steps);
  for (size_t step = 0; step < steps; ++step) {
    uint32_t draw = random.Below(100);
    if (draw < 10 && !live.Empty()) {
      uint32_t slot = live.Draw(random);
      uint32_t size = RandomSize(random);
      liveChunks += geometry.ChunkShare(size) - geometry.ChunkShare(live.SizeOf(slot));
      live.Resize(slot, size);
      Push(plan.timed, kReAlloc, slot, size);
      continue;
    }
    // A little more likely to allocate below the level than above it.
    uint32_t allocateBelow = liveChunks < target ? 55 : 45;
    if (draw - 10 < allocateBelow * 90 / 100 || live.Empty()) {
      uint32_t size = RandomSize(random);
      uint32_t slot = slots.Take();
      Push(plan.timed, kAlloc, slot, size);
      live.Add(slot, size);
      liveChunks += geometry.ChunkShare(size);
    } else {
      uint32_t slot = live.Draw(random);
      uint32_t size = live.SizeOf(slot);
      liveChunks -= geometry.ChunkShare(size);
      live.Remove(slot);
      slots.Give(slot);
      Push(plan.timed, kFree, slot, size);
    }
  }
  plan.slots = slots.Count();
  return plan;
}

Plan DrainPlan(const Geometry& geometry) {
  Plan plan;
  Random random(kSeed ^ 3);
  double target = 1.25 * geometry.UsableChunks();
  double chunks = 0;
  MappedVector<uint32_t> order;
  MappedVector<uint32_t> sizes;
  while (chunks < target) {
    uint32_t size = PooledSize(random);
    Push(plan.timed, kAlloc, plan.slots, size);
    order.push_back(plan.slots++);
    sizes.push_back(size);
    chunks += geometry.ChunkShare(size);
  }
  Shuffle(order, random);
  for (uint32_t slot : order) {
    Push(plan.timed, kFree, slot, sizes[slot]);
  }
  return plan;
}

Plan ChurnPlan(const Geometry& geometry, size_t ops) {
  Plan plan;
  Random random(kSeed ^ 4);
  Slots slots;
  MappedVector<uint32_t> classes;
  for (uint32_t size = 8; size <= kLargestPooledSize; size += 8) {
    if (geometry.PerChunk(size) != 0) {
      classes.push_back(size);
    }
  }
  // One long-lived block in every class keeps a partly used chunk in each.
  for (uint32_t size : classes) {
    Push(plan.prepare, kAlloc, slots.Take(), size);
  }
  // The live batches are those from head on, oldest first; each is a run
  // of allocated, which lists the slots of all batches in allocation order.
  struct Batch {
    size_t first;
    uint32_t blocks;
    uint32_t chunks;
    uint32_t size;
  };
  MappedVector<Batch> batches;
  MappedVector<uint32_t> allocated;
  MappedVector<uint32_t> releasing;
  size_t head = 0;
  uint32_t liveChunks = 0;
  uint32_t target = geometry.UsableChunks() * 6 / 10;
  MappedVector<Op>* list = &plan.prepare;
  while (list == &plan.prepare || plan.timed.size() < ops) {
    // Preparing ends when the level is first reached.
    if (list == &plan.prepare && liveChunks >= target) {
      list = &plan.timed;
    }
    uint32_t size = classes[random.Below(static_cast<uint32_t>(classes.size()))];
    Batch batch;
    batch.first = allocated.size();
    batch.chunks = 1 + random.Below(3);
    batch.size = size;
    batch.blocks = batch.chunks * geometry.PerChunk(size);
    for (uint32_t block = 0; block < batch.blocks; ++block) {
      uint32_t slot = slots.Take();
      Push(*list, kAlloc, slot, size);
      allocated.push_back(slot);
    }
    liveChunks += batch.chunks;
    batches.push_back(batch);
    while (liveChunks > target) {
      const Batch& oldest = batches[head++];
      releasing.assign(allocated.begin() + static_cast<ptrdiff_t>(oldest.first),
                       allocated.begin() + static_cast<ptrdiff_t>(oldest.first + oldest.blocks));
      Shuffle(releasing, random);
      for (uint32_t slot : releasing) {
        Push(*list, kFree, slot, oldest.size);
        slots.Give(slot);
      }
      liveChunks -= oldest.chunks;
    }
  }
  plan.slots = slots.Count();
  return plan;
}

Plan StatsPlan(const Geometry& geometry, size_t calls) {
  Plan plan;
  static const uint32_t kSizes[] = {16, 48, 64, 128, 256, 512, 1024};
  uint32_t chunks = geometry.chunkCount - geometry.chunkCount * 3 / 100;
  if (chunks > geometry.UsableChunks()) {
    chunks = geometry.UsableChunks();
  }
  for (uint32_t chunk = 0; chunk < chunks; ++chunk) {
    uint32_t size = kSizes[chunk % (sizeof kSizes / sizeof kSizes[0])];
    for (uint32_t block = 0; block < geometry.PerChunk(size); ++block) {
      Push(plan.prepare, kAlloc, plan.slots++, size);
    }
  }
  for (size_t call = 0; call < calls; ++call) {
    Push(plan.timed, kStats, 0, 0);
  }
  return plan;
}

}  // namespace QuendalLatency
