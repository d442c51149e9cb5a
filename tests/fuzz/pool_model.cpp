#include "fuzz/pool_model.h"

#include <algorithm>
#include <cstddef>

#include "fuzz/fuzz_failure.h"

namespace QuendalFuzz {

namespace {

const uint32_t kGranule = 8;

// The chunk header's fields in their order: chunk bytes, previous and next
// chunk, first free block, used blocks (16 bits and 16 unused), block size.
struct HeaderFields {
  uint32_t chunkBytes;
  void* prevChunk;
  void* nextChunk;
  void* freeBlocks;
  uint16_t usedBlocks;
  uint16_t unused;
  uint32_t blockSize;
};

uint32_t RoundedSize(size_t size) {
  return static_cast<uint32_t>((size + kGranule - 1) / kGranule * kGranule);
}

}  // namespace

void* HeapCallChecker::Expect(HeapCall::Heap heap, HeapCall::Kind kind, void* pointer,
                              size_t size) {
  HeapCall expected = {heap, kind, pointer, size, nullptr};
  if (m_next >= m_calls.size()) {
    Fail("the pool did not make the expected call " + Describe(expected));
  }
  const HeapCall& call = m_calls[m_next];
  if (call.heap != heap || call.kind != kind || call.pointer != pointer || call.size != size) {
    Fail("expected the call " + Describe(expected) + ", the pool made " + Describe(call));
  }
  ++m_next;
  return call.result;
}

void HeapCallChecker::ExpectNoMore() const {
  if (m_next < m_calls.size()) {
    Fail("the pool made the unexpected call " + Describe(m_calls[m_next]));
  }
}

PoolModel::PoolModel()
    : m_chunkCount(1),
      m_chunkSize(16),
      m_maxBlockSize(8),
      m_classCount(1),
      m_configured(false),
      m_hasClassTable(false),
      m_tableEntries(0),
      m_segment(0),
      m_alignedSegment(0),
      m_segmentBytes(0),
      m_freeChunkCount(0),
      m_builtChunkSize(0) {}

size_t PoolModel::HeaderSize() {
  const size_t alignment = alignof(std::max_align_t);
  return (sizeof(HeaderFields) + alignment - 1) / alignment * alignment;
}

void PoolModel::Configure(uint32_t chunkCount, uint32_t chunkSize, uint32_t maxBlockSize) {
  if (m_configured) {
    return;
  }
  m_chunkCount = chunkCount != 0 ? chunkCount : 1;
  m_chunkSize = chunkSize > 15 ? chunkSize : 16;
  m_maxBlockSize = maxBlockSize;
  m_configured = true;
  if (m_maxBlockSize > 7) {
    m_classCount = m_maxBlockSize / kGranule;
  } else {
    m_classCount = 1;
    m_maxBlockSize = 8;
  }
}

void PoolModel::Initialize(HeapCallChecker& heaps) {
  if (m_segment != 0) {
    return;
  }
  m_freeChunkCount = m_chunkCount;
  m_segmentBytes = m_chunkCount * m_chunkSize;
  void* segment = heaps.Expect(HeapCall::kSegmentHeap, HeapCall::kAlloc, nullptr, m_segmentBytes);
  if (segment == nullptr) {
    return;
  }
  m_segment = reinterpret_cast<uintptr_t>(segment);
  if (!m_hasClassTable) {
    m_hasClassTable = true;
    m_tableEntries = m_classCount;
  }
  m_classLists.assign(m_tableEntries, std::deque<size_t>());

  m_alignedSegment = (m_segment + m_chunkSize - 1) / m_chunkSize * m_chunkSize;
  if (m_alignedSegment != m_segment) {
    // The last chunk is given up to the alignment; a segment of one chunk
    // keeps no bytes at all rather than a wrapped count.
    m_segmentBytes = m_segmentBytes >= m_chunkSize ? m_segmentBytes - m_chunkSize : 0;
  }

  // Only whole chunks inside the segment that can hold an aligned header
  // are built; anything else leaves the pool without chunks, so that every
  // request goes to the overflow heap instead of past the segment.
  m_builtChunkSize = m_chunkSize;
  m_chunks.clear();
  m_freeList.clear();
  if (m_chunkSize < HeaderSize() || m_chunkSize % alignof(void*) != 0) {
    return;
  }
  size_t built = m_segmentBytes / m_chunkSize;
  for (size_t k = 0; k < built; ++k) {
    Chunk chunk = {0, 0, std::vector<uintptr_t>()};
    m_chunks.push_back(chunk);
    m_freeList.push_back(k);
  }
}

bool PoolModel::Owns(const void* pointer) const {
  return m_segment != 0 && reinterpret_cast<uintptr_t>(pointer) - m_alignedSegment < m_segmentBytes;
}

uintptr_t PoolModel::ChunkAddress(size_t chunk) const {
  return m_alignedSegment + chunk * m_builtChunkSize;
}

size_t PoolModel::ChunkIndexOf(const void* pointer) const {
  size_t chunk = (reinterpret_cast<uintptr_t>(pointer) - m_alignedSegment) / m_builtChunkSize;
  if (chunk >= m_chunks.size()) {
    Fail(Format("model: %p lies in no chunk", pointer));
  }
  return chunk;
}

uint32_t PoolModel::BlockSizeOf(const void* pointer) const {
  return m_chunks[ChunkIndexOf(pointer)].blockSize;
}

uintptr_t PoolModel::ClassHead(size_t index) const {
  if (index >= m_classLists.size() || m_classLists[index].empty()) {
    return 0;
  }
  return ChunkAddress(m_classLists[index].front());
}

uintptr_t PoolModel::FreeChunksHead() const {
  return m_freeList.empty() ? 0 : ChunkAddress(m_freeList.front());
}

// A size is served by a class when it is within the largest pooled size,
// its class is below the class count and the table, and one block of the
// class fits in a chunk behind the header (a chunk never lends a block that
// reaches into the next one).
bool PoolModel::IsPooledSize(size_t size) const {
  if (size == 0 || size > m_maxBlockSize) {
    return false;
  }
  uint32_t rounded = RoundedSize(size);
  uint32_t index = rounded / kGranule - 1;
  return index < m_classCount && index < m_tableEntries && rounded + HeaderSize() <= m_chunkSize;
}

bool PoolModel::TakeFreeChunk(uint32_t blockSize, size_t* chunk) {
  if (m_freeList.empty()) {
    return false;
  }
  *chunk = m_freeList.front();
  m_freeList.pop_front();
  m_chunks[*chunk].blockSize = blockSize;
  Carve(*chunk, blockSize);
  --m_freeChunkCount;
  return true;
}

void PoolModel::Carve(size_t chunk, uint32_t blockSize) {
  size_t count = (m_builtChunkSize - HeaderSize()) / blockSize;
  uintptr_t first = ChunkAddress(chunk) + HeaderSize();
  std::vector<uintptr_t>& blocks = m_chunks[chunk].freeBlocks;
  blocks.clear();
  // Listed first to last; the first block is handed out first.
  for (size_t k = count; k > 0; --k) {
    blocks.push_back(first + (k - 1) * blockSize);
  }
}

void* PoolModel::AllocFromClass(size_t size) {
  uint32_t rounded = RoundedSize(size);
  std::deque<size_t>& list = m_classLists[rounded / kGranule - 1];
  if (list.empty()) {
    size_t chunk = 0;
    if (!TakeFreeChunk(rounded, &chunk)) {
      return nullptr;
    }
    list.push_back(chunk);
  }
  for (size_t position = 0;; ++position) {
    Chunk& chunk = m_chunks[list[position]];
    if (!chunk.freeBlocks.empty()) {
      uintptr_t block = chunk.freeBlocks.back();
      chunk.freeBlocks.pop_back();
      ++chunk.usedBlocks;
      return reinterpret_cast<void*>(block);
    }
    if (position + 1 < list.size()) {
      continue;
    }
    size_t appended = 0;
    if (!TakeFreeChunk(rounded, &appended)) {
      return nullptr;
    }
    list.push_back(appended);
  }
}

void* PoolModel::Alloc(size_t size, HeapCallChecker& heaps) {
  if (!m_hasClassTable) {
    Initialize(heaps);
  }
  void* block = nullptr;
  if (m_segment != 0 && IsPooledSize(size)) {
    block = AllocFromClass(size);
  }
  if (block == nullptr) {
    block = heaps.Expect(HeapCall::kOverflowHeap, HeapCall::kAlloc, nullptr, size);
  }
  return block;
}

void PoolModel::Release(void* pointer) {
  size_t index = ChunkIndexOf(pointer);
  Chunk& chunk = m_chunks[index];
  if (chunk.usedBlocks == 0 && chunk.blockSize == 0) {
    return;
  }
  chunk.freeBlocks.push_back(reinterpret_cast<uintptr_t>(pointer));
  --chunk.usedBlocks;
  if (chunk.usedBlocks != 0 || chunk.blockSize == 0) {
    return;
  }
  uint32_t classIndex = chunk.blockSize / kGranule - 1;
  if (classIndex >= m_classLists.size()) {
    Fail(Format("model: chunk %zu of class size %u has no class list", index, chunk.blockSize));
  }
  std::deque<size_t>& list = m_classLists[classIndex];
  std::deque<size_t>::iterator position = std::find(list.begin(), list.end(), index);
  if (position == list.end()) {
    Fail(Format("model: chunk %zu is not on its class list", index));
  }
  if (position == list.begin() && classIndex >= m_classCount) {
    return;
  }
  list.erase(position);
  m_freeList.push_front(index);
  chunk.blockSize = 0;
  ++m_freeChunkCount;
}

void PoolModel::Free(void* pointer, HeapCallChecker& heaps) {
  if (!m_hasClassTable) {
    return;
  }
  if (!Owns(pointer)) {
    heaps.Expect(HeapCall::kOverflowHeap, HeapCall::kFree, pointer, 0);
    return;
  }
  Release(pointer);
}

void* PoolModel::ReAlloc(void* pointer, size_t size, HeapCallChecker& heaps) {
  if (!Owns(pointer)) {
    return heaps.Expect(HeapCall::kOverflowHeap, HeapCall::kReAlloc, pointer, size);
  }
  if (size == 0) {
    if (m_hasClassTable) {
      Release(pointer);
    }
    return nullptr;
  }
  if (!m_hasClassTable) {
    Initialize(heaps);
  }
  void* block = nullptr;
  if (m_segment != 0 && IsPooledSize(size)) {
    block = AllocFromClass(size);
  }
  if (block == nullptr) {
    block = heaps.Expect(HeapCall::kOverflowHeap, HeapCall::kAlloc, nullptr, size);
  }
  if (m_hasClassTable) {
    if (Owns(pointer)) {
      Release(pointer);
    } else {
      heaps.Expect(HeapCall::kOverflowHeap, HeapCall::kFree, pointer, 0);
    }
  }
  return block;
}

}  // namespace QuendalFuzz
