// Fuzzes the pool chunk allocator against the reference model: the input is
// a small pool configuration followed by a sequence of allocations, releases
// and reallocations. After every step the pool's result, its calls to the
// backing heaps and its visible fields must match the model, the pool must
// pass its invariant checker, and every live block must still hold the bytes
// written into it. Each input runs twice: through the library's pool and
// through the pool without shortcuts.
#include <stddef.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "fuzz/fuzz_backing_heaps.h"
#include "fuzz/fuzz_failure.h"
#include "fuzz/pool_model.h"
#include "heap/pool_chunk_allocator.h"
#include "heap/pool_invariant_checker.h"

namespace {

using QuendalFuzz::Fail;
using QuendalFuzz::Format;
using QuendalFuzz::FuzzOverflowHeap;
using QuendalFuzz::FuzzSegmentHeap;
using QuendalFuzz::HeapCallChecker;
using QuendalFuzz::PoolModel;
using QuendalFuzz::Trace;

typedef Quendal::Heap::ConfigPoolChunkAllocator<FuzzSegmentHeap, FuzzOverflowHeap> LibraryPool;
typedef Quendal::Heap::ConfigPoolChunkAllocator<FuzzSegmentHeap, FuzzOverflowHeap,
                                                Quendal::Heap::NoPoolShortcuts>
    PlainPool;

// Small chunks so that chunks fill and requests overflow within a short
// input; sizes below the header, not multiples of 8 and not powers of two
// included.
const uint32_t kChunkSizes[16] = {0,   16,  24,  48,  64,   72,   100,  128,
                                  200, 256, 264, 512, 1000, 1024, 2048, 4096};
const size_t kLargestRequest = 2100;
const size_t kMostLiveBlocks = 256;

// Up to 8 chunks, or a count whose 32-bit product with the chunk size wraps
// (to 0 for 4096-byte chunks, to a few chunks for others) or is too large
// for the segment heap.
uint32_t ChunkCount(uint8_t choice) {
  static const uint32_t kWrappingCounts[3] = {1u << 20, (1u << 20) + 1, (1u << 22) + 3};
  choice %= 12;
  return choice < 9 ? choice : kWrappingCounts[choice - 9];
}

// The index of the first byte that differs, or size when none does.
QUENDAL_FUZZ_NO_COVERAGE size_t FirstDifference(const uint8_t* actual, const uint8_t* expected,
                                                size_t size) {
  if (size == 0 || memcmp(actual, expected, size) == 0) {
    return size;
  }
  size_t i = 0;
  while (actual[i] == expected[i]) {
    ++i;
  }
  return i;
}

class ByteReader {
 public:
  ByteReader(const uint8_t* data, size_t size) : m_data(data), m_size(size), m_position(0) {}
  bool AtEnd() const { return m_position >= m_size; }
  uint8_t Byte() { return m_position < m_size ? m_data[m_position++] : 0; }
  uint16_t Word() {
    uint16_t low = Byte();
    return static_cast<uint16_t>(low | (Byte() << 8));
  }

 private:
  const uint8_t* m_data;
  size_t m_size;
  size_t m_position;
};

struct LiveBlock {
  void* pointer;
  // What the caller may use: the class size of a pooled block, the
  // requested size of an overflow block, all of it written with a pattern.
  std::vector<uint8_t> bytes;
};

template <class Pool>
class PoolRun {
 public:
  explicit PoolRun(ByteReader& input) : m_input(input), m_fill(0), m_offsetSlot(0) {}
  // The class table is the pool's for good; a run gives it back with every
  // block and segment its backing heaps still hold.
  ~PoolRun() {
    free(m_pool.ClassTable());
    FuzzOverflowHeap::Reset();
    FuzzSegmentHeap::Reset();
  }

  void Run();

 private:
  void Start();
  void Step();
  void Alloc(size_t size);
  void Free(size_t which);
  void ReAlloc(size_t which, size_t size);
  void ReAllocNull(size_t size);
  void Initialize();
  void Configure(uint32_t chunkCount, uint32_t chunkSize, uint32_t maxBlockSize);
  void FreeEverything();

  HeapCallChecker Calls() { return HeapCallChecker(QuendalFuzz::TakeHeapCalls()); }
  void PlaceNextSegment();
  void CheckResult(const char* operation, void* actual, void* expected);
  void CheckFields();
  void CheckBytes(const LiveBlock& block, const char* when);
  size_t UsableSize(void* pointer, size_t requested);
  void Keep(void* pointer, size_t usable, const LiveBlock* copiedFrom, size_t copied);

  ByteReader& m_input;
  Pool m_pool;
  PoolModel m_model;
  std::vector<LiveBlock> m_live;
  uint32_t m_fill;
  size_t m_offsetSlot;
};

template <class Pool>
void PoolRun<Pool>::Run() {
  Start();
  while (!m_input.AtEnd()) {
    Step();
  }
  FreeEverything();
}

// Header: chunk count, chunk size and segment placement, largest pooled
// size (two bytes), flags (configure, initialise at once, failed segment
// requests before the first success).
template <class Pool>
void PoolRun<Pool>::Start() {
  uint32_t chunkCount = ChunkCount(m_input.Byte());
  uint8_t sizeByte = m_input.Byte();
  uint32_t chunkSize = kChunkSizes[sizeByte % 16];
  m_offsetSlot = sizeByte >> 4;
  uint32_t maxBlockSize = m_input.Word() % 2200;
  uint8_t flags = m_input.Byte();
  int failures = (flags >> 2) & 7;
  FuzzSegmentHeap::ScriptFailures(failures == 7 ? -1 : failures);
  Trace(Format("segment requests failing first: %d, placement slot %zu", failures, m_offsetSlot));
  if (flags & 1) {
    Configure(chunkCount, chunkSize, maxBlockSize);
  }
  if (flags & 2) {
    Initialize();
  }
}

// One operation, chosen by its first byte modulo 10: 0-2 Alloc (size in two
// bytes), 3 Alloc of 0 to 63 bytes, 4-5 Free (which live block), 6 ReAlloc
// (block, size in two bytes), 7 ReAlloc to 0 to 63 bytes, 8 a control byte
// (overflow refusals on or off, Initialize, Configure with four more bytes,
// ReAlloc(null, size)), 9 ReAlloc of a block to its own usable size.
template <class Pool>
void PoolRun<Pool>::Step() {
  uint8_t operation = m_input.Byte();
  switch (operation % 10) {
    case 0:
    case 1:
    case 2:
      Alloc(m_input.Word() % (kLargestRequest + 1));
      break;
    case 3:
      Alloc(m_input.Byte() % 64);
      break;
    case 4:
    case 5:
      Free(m_input.Byte());
      break;
    case 6: {
      size_t which = m_input.Byte();
      ReAlloc(which, m_input.Word() % (kLargestRequest + 1));
      break;
    }
    case 7: {
      size_t which = m_input.Byte();
      ReAlloc(which, m_input.Byte() % 64);
      break;
    }
    case 8: {
      uint8_t control = m_input.Byte();
      if (control % 4 == 0) {
        bool refusing = (control & 4) != 0;
        Trace(Format("overflow heap refusing: %d", refusing));
        FuzzOverflowHeap::SetRefusing(refusing);
      } else if (control % 4 == 1) {
        Initialize();
      } else if (control % 4 == 2) {
        uint32_t chunkCount = ChunkCount(m_input.Byte());
        uint32_t chunkSize = kChunkSizes[m_input.Byte() % 16];
        Configure(chunkCount, chunkSize, m_input.Word() % 2200);
      } else {
        ReAllocNull(m_input.Word() % (kLargestRequest + 1));
      }
      break;
    }
    default: {
      // Within the block's own size: never in place.
      size_t which = m_input.Byte();
      if (!m_live.empty()) {
        ReAlloc(which, m_live[which % m_live.size()].bytes.size());
      }
      break;
    }
  }
}

template <class Pool>
void PoolRun<Pool>::PlaceNextSegment() {
  uint32_t chunkSize = m_model.ChunkSize();
  FuzzSegmentHeap::Place(chunkSize, (16 * m_offsetSlot) % chunkSize);
}

template <class Pool>
void PoolRun<Pool>::Configure(uint32_t chunkCount, uint32_t chunkSize, uint32_t maxBlockSize) {
  Trace(Format("Configure(%u, %u, %u)", chunkCount, chunkSize, maxBlockSize));
  m_pool.Configure(chunkCount, chunkSize, maxBlockSize);
  HeapCallChecker calls = Calls();
  m_model.Configure(chunkCount, chunkSize, maxBlockSize);
  calls.ExpectNoMore();
  CheckFields();
}

template <class Pool>
void PoolRun<Pool>::Initialize() {
  Trace("Initialize()");
  PlaceNextSegment();
  m_pool.Initialize();
  HeapCallChecker calls = Calls();
  m_model.Initialize(calls);
  calls.ExpectNoMore();
  CheckFields();
}

template <class Pool>
void PoolRun<Pool>::Alloc(size_t size) {
  if (m_live.size() >= kMostLiveBlocks) {
    return;
  }
  Trace(Format("Alloc(%zu)", size));
  PlaceNextSegment();
  void* block = m_pool.Alloc(size);
  HeapCallChecker calls = Calls();
  void* expected = m_model.Alloc(size, calls);
  calls.ExpectNoMore();
  CheckResult("Alloc", block, expected);
  if (block != nullptr) {
    Keep(block, UsableSize(block, size), nullptr, 0);
  }
  CheckFields();
}

template <class Pool>
void PoolRun<Pool>::Free(size_t which) {
  if (m_live.empty()) {
    return;
  }
  which %= m_live.size();
  LiveBlock block = std::move(m_live[which]);
  m_live.erase(m_live.begin() + which);
  Trace(Format("Free(%p) of %zu bytes", block.pointer, block.bytes.size()));
  CheckBytes(block, "before its release");
  m_pool.Free(block.pointer);
  HeapCallChecker calls = Calls();
  m_model.Free(block.pointer, calls);
  calls.ExpectNoMore();
  CheckFields();
}

template <class Pool>
void PoolRun<Pool>::ReAlloc(size_t which, size_t size) {
  if (m_live.empty()) {
    return;
  }
  which %= m_live.size();
  LiveBlock old = std::move(m_live[which]);
  m_live.erase(m_live.begin() + which);
  Trace(Format("ReAlloc(%p of %zu bytes, %zu)", old.pointer, old.bytes.size(), size));
  CheckBytes(old, "before its reallocation");
  bool wasPooled = m_model.Owns(old.pointer);
  PlaceNextSegment();
  void* block = m_pool.ReAlloc(old.pointer, size);
  HeapCallChecker calls = Calls();
  void* expected = m_model.ReAlloc(old.pointer, size, calls);
  calls.ExpectNoMore();
  CheckResult("ReAlloc", block, expected);
  size_t copied = std::min(old.bytes.size(), size);
  if (block != nullptr) {
    Keep(block, UsableSize(block, size), &old, copied);
  } else if (!wasPooled && size != 0 && FuzzOverflowHeap::IsLive(old.pointer)) {
    // A refused overflow reallocation leaves the old block to the caller.
    m_live.push_back(std::move(old));
  }
  CheckFields();
}

template <class Pool>
void PoolRun<Pool>::ReAllocNull(size_t size) {
  if (m_live.size() >= kMostLiveBlocks) {
    return;
  }
  Trace(Format("ReAlloc(null, %zu)", size));
  void* block = m_pool.ReAlloc(nullptr, size);
  HeapCallChecker calls = Calls();
  void* expected = m_model.ReAlloc(nullptr, size, calls);
  calls.ExpectNoMore();
  CheckResult("ReAlloc", block, expected);
  if (block != nullptr) {
    Keep(block, size, nullptr, 0);
  }
  CheckFields();
}

template <class Pool>
void PoolRun<Pool>::FreeEverything() {
  for (const LiveBlock& block : m_live) {
    CheckBytes(block, "at the end of the input");
  }
  while (!m_live.empty()) {
    Free(m_live.size() - 1);
  }
  if (m_model.HasClassTable() && m_model.FreeChunksListed() != m_model.BuiltChunks()) {
    Fail(Format("model: %zu of %zu chunks free after every release", m_model.FreeChunksListed(),
                m_model.BuiltChunks()));
  }
}

template <class Pool>
void PoolRun<Pool>::CheckResult(const char* operation, void* actual, void* expected) {
  if (actual != expected) {
    Fail(Format("%s returned %p, the model expects %p", operation, actual, expected));
  }
}

template <class Pool>
size_t PoolRun<Pool>::UsableSize(void* pointer, size_t requested) {
  if (m_model.Owns(pointer)) {
    return m_model.BlockSizeOf(pointer);
  }
  return requested;
}

// Records a new live block: the copied bytes must have arrived, and the
// rest of the usable size gets a fresh pattern. Whole ranges are compared
// and copied at once, the bytes one by one only to name the first that
// differs: byte loops are slow under the sanitizers and emulators.
template <class Pool>
QUENDAL_FUZZ_NO_COVERAGE void PoolRun<Pool>::Keep(void* pointer, size_t usable,
                                                  const LiveBlock* copiedFrom, size_t copied) {
  LiveBlock block = {pointer, std::vector<uint8_t>(usable)};
  uint8_t* bytes = static_cast<uint8_t*>(pointer);
  if (copied != 0) {
    size_t differing = FirstDifference(bytes, copiedFrom->bytes.data(), copied);
    if (differing < copied) {
      Fail(Format("byte %zu of %zu copied into %p is %02x, the old block held %02x", differing,
                  copied, pointer, bytes[differing], copiedFrom->bytes[differing]));
    }
    memcpy(block.bytes.data(), bytes, copied);
  }
  uint32_t state = ++m_fill * 2654435761u;
  for (size_t i = copied; i < usable; ++i) {
    state = state * 1103515245u + 12345u;
    block.bytes[i] = static_cast<uint8_t>(state >> 24);
  }
  if (usable > copied) {
    memcpy(bytes + copied, block.bytes.data() + copied, usable - copied);
  }
  m_live.push_back(std::move(block));
}

template <class Pool>
QUENDAL_FUZZ_NO_COVERAGE void PoolRun<Pool>::CheckBytes(const LiveBlock& block, const char* when) {
  const uint8_t* bytes = static_cast<const uint8_t*>(block.pointer);
  size_t differing = FirstDifference(bytes, block.bytes.data(), block.bytes.size());
  if (differing < block.bytes.size()) {
    Fail(Format("byte %zu of the %zu-byte block %p changed %s: %02x, written %02x", differing,
                block.bytes.size(), block.pointer, when, bytes[differing], block.bytes[differing]));
  }
}

template <class Pool>
QUENDAL_FUZZ_NO_COVERAGE void PoolRun<Pool>::CheckFields() {
  struct Field {
    const char* name;
    uintptr_t actual;
    uintptr_t expected;
  };
  const Field fields[] = {
      {"segment", reinterpret_cast<uintptr_t>(m_pool.Segment()), m_model.Segment()},
      {"aligned segment", m_pool.AlignedSegment(), m_model.AlignedSegment()},
      {"segment bytes", m_pool.SegmentBytes(), m_model.SegmentBytes()},
      {"free chunk count", m_pool.FreeChunkCount(), m_model.FreeChunkCount()},
      {"chunk count", m_pool.ChunkCount(), m_model.ChunkCount()},
      {"chunk size", m_pool.ChunkSize(), m_model.ChunkSize()},
      {"largest pooled size", m_pool.MaxBlockSize(), m_model.MaxBlockSize()},
      {"class count", m_pool.ClassCount(), m_model.ClassCount()},
      {"class table present", m_pool.ClassTable() != nullptr, m_model.HasClassTable()},
      {"first free chunk", reinterpret_cast<uintptr_t>(m_pool.FreeChunks()),
       m_model.FreeChunksHead()},
  };
  const char* problem = Quendal::Heap::CheckPoolInvariants(m_pool);
  if (problem != nullptr) {
    Fail(Format("pool invariant broken: %s", problem));
  }
  for (const Field& field : fields) {
    if (field.actual != field.expected) {
      Fail(Format("%s is %#zx, the model expects %#zx", field.name, size_t(field.actual),
                  size_t(field.expected)));
    }
  }
  if (m_pool.ClassTable() == nullptr) {
    return;
  }
  if (m_pool.ClassTableEntries() != m_model.ClassTableEntries()) {
    Fail(Format("class table of %u entries, the model expects %u", m_pool.ClassTableEntries(),
                m_model.ClassTableEntries()));
  }
  for (size_t i = 0; i < m_model.ClassTableEntries(); ++i) {
    uintptr_t head = reinterpret_cast<uintptr_t>(m_pool.ClassChunk(i));
    if (head != m_model.ClassHead(i)) {
      Fail(Format("first chunk of class %zu is %#zx, the model expects %#zx", i, size_t(head),
                  size_t(m_model.ClassHead(i))));
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  {
    QuendalFuzz::BeginTrace();
    QuendalFuzz::Trace("the library's pool");
    ByteReader input(data, size);
    PoolRun<LibraryPool> run(input);
    run.Run();
  }
  {
    QuendalFuzz::BeginTrace();
    QuendalFuzz::Trace("the pool without shortcuts");
    ByteReader input(data, size);
    PoolRun<PlainPool> run(input);
    run.Run();
  }
  return 0;
}
