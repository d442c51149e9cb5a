// The library's pool, and each of its shortcuts alone, run in lockstep with
// the plain algorithm (a pool without shortcuts) over seeded sequences of
// allocations, releases and reallocations. After every operation both must
// have returned the same block (the same offset in their segments, or the
// same overflow block), made the same calls into their backing heaps, and
// read the same to a caller, with the same statistics; both must pass the
// invariant checker, and every live block must still hold what was written
// into it.
#include <gtest/gtest.h>

#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "heap/pool_chunk_allocator.h"
#include "heap/pool_invariant_checker.h"
#include "heap/pool_stats.h"

namespace QuendalTest {
namespace {

using Quendal::Heap::CheckPoolInvariants;
using Quendal::Heap::ChunkHeader;
using Quendal::Heap::ConfigPoolChunkAllocator;
using Quendal::Heap::NoPoolShortcuts;
using Quendal::Heap::PoolShortcutSet;

// One backing heap's calls, with blocks named by the order in which the heap
// handed them out, so that two runs compare although their addresses differ.
struct HeapLog {
  std::vector<std::string> calls;
  std::map<void*, int> names;
  std::map<void*, void*> segmentBases;
  int nextName = 1;
  bool refusing = false;
  size_t segmentOffset = 0;
  // Segments start segmentOffset bytes past a multiple of the chunk size, so
  // that both pools lose the same chunks to alignment whatever addresses
  // the process hands out.
  size_t chunkSize = 1;

  int Name(void* pointer) {
    if (pointer == nullptr) {
      return 0;
    }
    auto found = names.find(pointer);
    return found != names.end() ? found->second : -1;
  }
  int Remember(void* pointer) {
    if (pointer == nullptr) {
      return 0;
    }
    names[pointer] = nextName;
    return nextName++;
  }
  void Record(const char* kind, size_t size, int in, int out) {
    std::ostringstream call;
    call << kind << "(" << size << ", #" << in << ") -> #" << out;
    calls.push_back(call.str());
  }
};

template <int side>
struct Backing {
  static HeapLog log;

  // Segment heap: chunk-aligned plus the scripted offset.
  struct Segment {
    static void* Alloc(size_t size) {
      void* base = nullptr;
      if (posix_memalign(&base, size_t(1) << 16, size + log.chunkSize + log.segmentOffset) != 0) {
        return nullptr;
      }
      uintptr_t start = reinterpret_cast<uintptr_t>(base);
      start += (log.chunkSize - start % log.chunkSize) % log.chunkSize;
      void* segment = reinterpret_cast<unsigned char*>(start) + log.segmentOffset;
      log.segmentBases[segment] = base;
      log.Record("segment", size, 0, log.Remember(segment));
      return segment;
    }
    static void Free(void* pointer) {
      log.Record("segment free", 0, log.Name(pointer), 0);
      free(log.segmentBases[pointer]);
      log.segmentBases.erase(pointer);
    }
    static void* ReAlloc(void*, size_t) { abort(); }
  };

  struct Overflow {
    static void* Alloc(size_t size) {
      void* block = log.refusing ? nullptr : malloc(size);
      log.Record("alloc", size, 0, log.Remember(block));
      return block;
    }
    static void* ReAlloc(void* pointer, size_t size) {
      int in = log.Name(pointer);
      void* block = log.refusing && size != 0 ? nullptr : realloc(pointer, size);
      if (block != nullptr || size == 0) {
        log.names.erase(pointer);
      }
      log.Record("realloc", size, in, log.Remember(block));
      return block;
    }
    static void Free(void* pointer) {
      log.Record("free", 0, log.Name(pointer), 0);
      log.names.erase(pointer);
      free(pointer);
    }
  };
};

template <int side>
HeapLog Backing<side>::log;

typedef Backing<0> ReferenceHeaps;
typedef Backing<1> FastHeaps;
typedef ConfigPoolChunkAllocator<ReferenceHeaps::Segment, ReferenceHeaps::Overflow, NoPoolShortcuts>
    ReferencePool;

struct Geometry {
  uint32_t chunks;
  uint32_t chunkSize;
  uint32_t largest;
  size_t segmentOffset;
};

struct LiveBlock {
  void* reference;
  void* fast;
  size_t size;
  uint8_t fill;
};

template <class Shortcuts>
class Lockstep {
 public:
  typedef ConfigPoolChunkAllocator<typename FastHeaps::Segment, typename FastHeaps::Overflow,
                                   Shortcuts>
      FastPool;

  explicit Lockstep(const Geometry& geometry) {
    ReferenceHeaps::log = HeapLog();
    FastHeaps::log = HeapLog();
    ReferenceHeaps::log.segmentOffset = geometry.segmentOffset;
    FastHeaps::log.segmentOffset = geometry.segmentOffset;
    ReferenceHeaps::log.chunkSize = geometry.chunkSize;
    FastHeaps::log.chunkSize = geometry.chunkSize;
    m_reference.Configure(geometry.chunks, geometry.chunkSize, geometry.largest);
    m_fast.Configure(geometry.chunks, geometry.chunkSize, geometry.largest);
  }

  ~Lockstep() {
    for (const LiveBlock& block : m_live) {
      Release(block);
    }
    free(m_reference.ClassTable());
    free(m_fast.ClassTable());
    for (auto& segment : ReferenceHeaps::log.segmentBases) {
      free(segment.second);
    }
    for (auto& segment : FastHeaps::log.segmentBases) {
      free(segment.second);
    }
  }

  // Runs steps seeded operations; sizes are drawn mostly from a few classes
  // so that chunks fill, empty and move between classes.
  void Run(uint64_t seed, size_t steps, size_t mostLive) {
    std::mt19937_64 random(seed);
    static const size_t kSizes[] = {1, 8, 9, 16, 24, 40, 64, 100, 200, 512, 1024, 1025, 3000};
    for (size_t step = 0; step < steps && !::testing::Test::HasFatalFailure(); ++step) {
      m_step = step;
      unsigned choice = static_cast<unsigned>(random() % 100);
      size_t size = random() % 4 == 0 ? random() % 1100 : kSizes[random() % 13];
      if (choice < 50 && m_live.size() < mostLive) {
        Alloc(size);
      } else if (choice < 85 || m_live.size() >= mostLive) {
        if (!m_live.empty()) {
          Free(random() % m_live.size(), random() % 3 == 0);
        }
      } else if (choice < 95) {
        if (!m_live.empty()) {
          ReAlloc(random() % m_live.size(), random() % 8 == 0 ? 0 : size);
        }
      } else if (choice < 97) {
        ReAllocNull(size);
      } else {
        bool refusing = random() % 2 == 0;
        ReferenceHeaps::log.refusing = refusing;
        FastHeaps::log.refusing = refusing;
      }
      Compare();
    }
  }

  // The first operations of a process: pool initialised on first use.
  void InitializeNow() {
    m_reference.Initialize();
    m_fast.Initialize();
    Compare();
  }

 private:
  void Alloc(size_t size) {
    if (size == 0) {
      return;
    }
    void* reference = m_reference.Alloc(size);
    void* fast = m_fast.Alloc(size);
    ExpectSameBlock(reference, fast, "Alloc");
    Keep(reference, fast, size);
  }

  void Free(size_t which, bool newest) {
    if (newest) {
      which = m_live.size() - 1;
    }
    LiveBlock block = m_live[which];
    m_live.erase(m_live.begin() + static_cast<std::ptrdiff_t>(which));
    CheckFill(block);
    Release(block);
  }

  // Both pools drop a release while they have no class table (no segment
  // yet): the overflow block stays with the test, which gives it back.
  void Release(const LiveBlock& block) {
    bool dropped = m_reference.ClassTable() == nullptr;
    m_reference.Free(block.reference);
    m_fast.Free(block.fast);
    if (dropped) {
      free(block.reference);
      free(block.fast);
    }
  }

  void ReAlloc(size_t which, size_t size) {
    LiveBlock block = m_live[which];
    m_live.erase(m_live.begin() + static_cast<std::ptrdiff_t>(which));
    CheckFill(block);
    bool pooled = m_reference.Owns(block.reference);
    void* reference = m_reference.ReAlloc(block.reference, size);
    void* fast = m_fast.ReAlloc(block.fast, size);
    ExpectSameBlock(reference, fast, "ReAlloc");
    if (reference != nullptr && fast != nullptr) {
      size_t kept = size < block.size ? size : block.size;
      for (size_t i = 0; i < kept; ++i) {
        uint8_t expected = static_cast<uint8_t>(block.fill + i);
        ASSERT_EQ(static_cast<uint8_t*>(fast)[i], expected) << "step " << m_step;
      }
      Keep(reference, fast, size);
    } else if (!pooled && size != 0 && reference == nullptr && fast == nullptr) {
      // A refused overflow reallocation leaves the block to its owner.
      m_live.push_back(block);
    }
  }

  void ReAllocNull(size_t size) {
    void* reference = m_reference.ReAlloc(nullptr, size);
    void* fast = m_fast.ReAlloc(nullptr, size);
    ExpectSameBlock(reference, fast, "ReAlloc(null)");
    if (reference != nullptr && fast != nullptr && size != 0) {
      Keep(reference, fast, size);
    }
  }

  void Keep(void* reference, void* fast, size_t size) {
    if (reference == nullptr || fast == nullptr) {
      return;
    }
    uint8_t fill = static_cast<uint8_t>(m_step * 7 + 1);
    for (size_t i = 0; i < size; ++i) {
      static_cast<uint8_t*>(reference)[i] = static_cast<uint8_t>(fill + i);
      static_cast<uint8_t*>(fast)[i] = static_cast<uint8_t>(fill + i);
    }
    m_live.push_back(LiveBlock{reference, fast, size, fill});
  }

  void CheckFill(const LiveBlock& block) {
    for (size_t i = 0; i < block.size; ++i) {
      uint8_t expected = static_cast<uint8_t>(block.fill + i);
      ASSERT_EQ(static_cast<uint8_t*>(block.fast)[i], expected)
          << "step " << m_step << ": byte " << i << " of a live block changed";
    }
  }

  // Where a block lies: its offset in the pool's segment, or its name in the
  // overflow heap.
  std::string Place(void* block, bool owned, uintptr_t segment, HeapLog& log) {
    std::ostringstream place;
    if (block == nullptr) {
      place << "null";
    } else if (owned) {
      place << "pool+" << reinterpret_cast<uintptr_t>(block) - segment;
    } else {
      place << "overflow #" << log.Name(block);
    }
    return place.str();
  }

  std::string Place(ChunkHeader* chunk, uintptr_t segment) {
    if (chunk == nullptr) {
      return "none";
    }
    return std::to_string(reinterpret_cast<uintptr_t>(chunk) - segment);
  }

  void ExpectSameBlock(void* reference, void* fast, const char* operation) {
    ASSERT_EQ(Place(fast, m_fast.Owns(fast), m_fast.AlignedSegment(), FastHeaps::log),
              Place(reference, m_reference.Owns(reference), m_reference.AlignedSegment(),
                    ReferenceHeaps::log))
        << operation << " at step " << m_step;
  }

  // The logs only grow, and the calls before this step's matched at earlier
  // steps: comparing the calls made since then compares the whole logs.
  void Compare() {
    ASSERT_EQ(CallsSinceLastCompare(FastHeaps::log), CallsSinceLastCompare(ReferenceHeaps::log))
        << "step " << m_step;
    m_comparedCalls = ReferenceHeaps::log.calls.size();
    const char* problem = CheckPoolInvariants(m_reference);
    ASSERT_EQ(problem, nullptr) << "reference pool at step " << m_step << ": " << problem;
    problem = CheckPoolInvariants(m_fast);
    ASSERT_EQ(problem, nullptr) << "fast pool at step " << m_step << ": " << problem;
    ASSERT_EQ(m_fast.FreeChunkCount(), m_reference.FreeChunkCount()) << "step " << m_step;
    ASSERT_EQ(m_fast.SegmentBytes(), m_reference.SegmentBytes());
    uintptr_t fastSegment = m_fast.AlignedSegment();
    uintptr_t referenceSegment = m_reference.AlignedSegment();
    ASSERT_EQ(Place(m_fast.FreeChunks(), fastSegment),
              Place(m_reference.FreeChunks(), referenceSegment))
        << "first free chunk at step " << m_step;
    CompareStats();
    if (m_reference.ClassTable() == nullptr) {
      return;
    }
    for (uint32_t index = 0; index < m_reference.ClassTableEntries(); ++index) {
      ASSERT_EQ(Place(m_fast.ClassChunk(index), fastSegment),
                Place(m_reference.ClassChunk(index), referenceSegment))
          << "first chunk of class " << index << " at step " << m_step;
    }
  }

  // The statistics count on the slow paths only, and the shortcuts take
  // some of those away (a parked chunk is taken back on the fast path): the
  // snapshot must still read as the plain algorithm's.
  void CompareStats() {
    QDHeapStats reference;
    QDHeapStats fast;
    Quendal::Heap::ReadPoolStats(m_reference, reference);
    Quendal::Heap::ReadPoolStats(m_fast, fast);
    ASSERT_EQ(fast.freeChunks, reference.freeChunks) << "step " << m_step;
    ASSERT_EQ(fast.lowestFreeChunks, reference.lowestFreeChunks) << "step " << m_step;
    ASSERT_EQ(fast.lostChunks, reference.lostChunks) << "step " << m_step;
    ASSERT_EQ(fast.exhaustedRequests, reference.exhaustedRequests) << "step " << m_step;
    ASSERT_EQ(fast.largeRequests, reference.largeRequests) << "step " << m_step;
    ASSERT_EQ(fast.classCount, reference.classCount) << "step " << m_step;
    for (uint32_t index = 0; index < reference.classCount; ++index) {
      const QDHeapClassStats& expected = reference.classes[index];
      const QDHeapClassStats& actual = fast.classes[index];
      ASSERT_EQ(actual.chunks, expected.chunks) << "class " << index << " at step " << m_step;
      ASSERT_EQ(actual.usedBlocks, expected.usedBlocks)
          << "class " << index << " at step " << m_step;
      ASSERT_EQ(actual.blockCapacity, expected.blockCapacity)
          << "class " << index << " at step " << m_step;
    }
  }

  std::vector<std::string> CallsSinceLastCompare(const HeapLog& log) const {
    return std::vector<std::string>(
        log.calls.begin() + static_cast<std::ptrdiff_t>(m_comparedCalls), log.calls.end());
  }

  ReferencePool m_reference;
  FastPool m_fast;
  std::vector<LiveBlock> m_live;
  size_t m_step = 0;
  size_t m_comparedCalls = 0;
};

const Geometry kGeometries[] = {
    {24, 2048, 1024, 0},    // chunk-aligned segment
    {6, 2048, 1024, 16},    // misaligned: the last chunk is given up; soon exhausted
    {40, 1024, 1024, 0},    // 1024-byte classes do not fit a 1024-byte chunk
    {30, 1000, 600, 8},     // a chunk size that is not a power of two
    {12, 4096, 20, 0},      // two classes; 17 to 20 bytes overflow
    {200, 256, 1024, 128},  // many small chunks
};

template <class Shortcuts>
void RunAllGeometries(uint64_t seed) {
  for (size_t k = 0; k < sizeof kGeometries / sizeof kGeometries[0]; ++k) {
    SCOPED_TRACE("geometry " + std::to_string(k));
    Lockstep<Shortcuts> lockstep(kGeometries[k]);
    if (k % 2 == 0) {
      lockstep.InitializeNow();
    }
    lockstep.Run(seed + k, 6000, 400);
    if (::testing::Test::HasFatalFailure()) {
      return;
    }
  }
}

TEST(PoolLockstep, LibraryPoolMatchesThePlainAlgorithm) {
  RunAllGeometries<Quendal::Heap::AllPoolShortcuts>(100);
}

TEST(PoolLockstep, LazyChunkBuildingAloneMatchesThePlainAlgorithm) {
  RunAllGeometries<PoolShortcutSet<true, false, false, false> >(200);
}

TEST(PoolLockstep, DeferredChunkReturnAloneMatchesThePlainAlgorithm) {
  RunAllGeometries<PoolShortcutSet<false, true, false, false> >(300);
}

TEST(PoolLockstep, FirstFreeIndexAloneMatchesThePlainAlgorithm) {
  RunAllGeometries<PoolShortcutSet<false, false, true, false> >(400);
}

TEST(PoolLockstep, CarveRecordAloneMatchesThePlainAlgorithm) {
  RunAllGeometries<PoolShortcutSet<false, false, false, true> >(500);
}

TEST(PoolLockstep, ReleaseWindowAloneMatchesThePlainAlgorithm) {
  RunAllGeometries<PoolShortcutSet<false, false, false, false, true> >(700);
}

// The lone block: allocated and released again and again, with other
// classes taking chunks in between, so the deferred chunk is taken back by
// its class, settled for another class, and pushed behind newer returns.
TEST(PoolLockstep, LoneBlocksOfSeveralClassesMatchThePlainAlgorithm) {
  Lockstep<Quendal::Heap::AllPoolShortcuts> lockstep(Geometry{8, 2048, 1024, 0});
  lockstep.Run(600, 20000, 3);
}

// Many full chunks of one class with releases landing in random chunks: the
// first chunk with a free block is anywhere in a long class list.
TEST(PoolLockstep, RandomReleasesOverManyFullChunksMatchThePlainAlgorithm) {
  Lockstep<Quendal::Heap::AllPoolShortcuts> lockstep(Geometry{300, 256, 64, 0});
  lockstep.Run(700, 30000, 2500);
}

}  // namespace
}  // namespace QuendalTest
