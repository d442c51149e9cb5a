// Finds, for a size class, the first chunk of its class list that has a free
// block, without walking the full chunks ahead of it.
//
// Invariant: for every class, the index holds exactly the chunks of the
// class list that have a free block (a chunk whose return to the free chunk
// list is deferred excepted), and First(class) is the one among them that
// joined the list earliest. Chunks join a class list only at its tail and
// the list never changes order otherwise, so the join number orders each
// class list front to back, and the earliest joined chunk with a free block
// is the one a walk from the class's head stops at.
//
// Per class the chunks are kept in a pairing heap keyed by join number:
// adding a chunk is constant time, taking out the first or any other is
// logarithmic (amortised). The nodes, one per chunk, and the per-class
// first and tail chunks live in memory mapped from the system, so they add
// no call to the C library's allocator; when the mapping is refused the
// index stays inactive and the pool walks its class lists instead.
#ifndef QUENDAL_HEAP_FIRST_FREE_INDEX_H
#define QUENDAL_HEAP_FIRST_FREE_INDEX_H

#include <stddef.h>
#include <stdint.h>

#include "heap/chunk_header.h"
#include "platform/memory_map.h"

namespace Quendal {
namespace Heap {

class FirstFreeIndex {
 public:
  FirstFreeIndex()
      : m_mapping(0),
        m_mappingBytes(0),
        m_first(0),
        m_tail(0),
        m_nodes(0),
        m_base(0),
        m_chunkSize(0),
        m_chunkShift(0),
        m_chunks(0),
        m_classes(0),
        m_joins(0) {}

  ~FirstFreeIndex() { Stop(); }

  // Covers chunks chunks of chunkSize bytes from firstChunk and classes size
  // classes, all empty. chunkShift is log2 of a power-of-two chunk size, else
  // 0. False (and inactive) when the memory cannot be had.
  bool Start(uintptr_t firstChunk, uint32_t chunkSize, uint32_t chunkShift, uint32_t chunks,
             uint32_t classes) {
    Stop();
    size_t classBytes = 2 * sizeof(ChunkHeader*) * static_cast<size_t>(classes);
    size_t limit = static_cast<size_t>(-1) / sizeof(Node) - 1;
    if (chunks == 0 || classes == 0 || chunks > limit ||
        (static_cast<size_t>(chunks) + 1) * sizeof(Node) > static_cast<size_t>(-1) - classBytes) {
      return false;
    }
    size_t bytes = (static_cast<size_t>(chunks) + 1) * sizeof(Node) + classBytes;
    void* mapping = Platform::MapZeroedMemory(bytes);
    if (mapping == 0) {
      return false;
    }
    m_mapping = mapping;
    m_mappingBytes = bytes;
    m_nodes = static_cast<Node*>(mapping);
    m_first = reinterpret_cast<ChunkHeader**>(m_nodes + chunks + 1);
    m_tail = m_first + classes;
    m_base = firstChunk;
    m_chunkSize = chunkSize;
    m_chunkShift = chunkShift;
    m_chunks = chunks;
    m_classes = classes;
    m_joins = 0;
    return true;
  }

  void Stop() {
    if (m_mapping != 0) {
      Platform::UnmapMemory(m_mapping, m_mappingBytes);
    }
    m_mapping = 0;
    m_mappingBytes = 0;
    m_first = 0;
    m_tail = 0;
    m_nodes = 0;
    m_chunks = 0;
    m_classes = 0;
  }

  bool Active() const { return m_nodes != 0; }
  uint32_t Classes() const { return m_classes; }

  // The earliest joined chunk of the class with a free block, or null.
  ChunkHeader* First(size_t index) const { return m_first[index]; }

  // The last chunk of the class list, or null.
  ChunkHeader* Tail(size_t index) const { return m_tail[index]; }
  void SetTail(size_t index, ChunkHeader* chunk) { m_tail[index] = chunk; }

  // The chunk joins the tail of its class list.
  void Join(ChunkHeader* chunk) { NodeOf(chunk).key = ++m_joins; }

  // The chunk, on the list of class index, got a free block.
  void Insert(size_t index, ChunkHeader* chunk) {
    uint32_t number = Number(chunk);
    Node& node = m_nodes[number];
    node.child = 0;
    node.next = 0;
    node.prev = 0;
    node.member = 1;
    SetRoot(index, Meld(RootNumber(index), number));
  }

  // First(index) has no free block left.
  void RemoveFirst(size_t index) {
    uint32_t root = RootNumber(index);
    Node& node = m_nodes[root];
    uint32_t rest = MergePairs(node.child);
    node.child = 0;
    node.member = 0;
    SetRoot(index, rest);
  }

  // The chunk leaves the index: it is emptied, or its return is deferred.
  void Remove(size_t index, ChunkHeader* chunk) {
    uint32_t number = Number(chunk);
    if (number == RootNumber(index)) {
      RemoveFirst(index);
      return;
    }
    Node& node = m_nodes[number];
    Node& previous = m_nodes[node.prev];
    if (previous.child == number) {
      previous.child = node.next;
    } else {
      previous.next = node.next;
    }
    if (node.next != 0) {
      m_nodes[node.next].prev = node.prev;
    }
    node.next = 0;
    node.prev = 0;
    uint32_t children = MergePairs(node.child);
    node.child = 0;
    node.member = 0;
    SetRoot(index, Meld(RootNumber(index), children));
  }

  // True when chunk is the class's only chunk with a free block.
  bool HoldsOnly(size_t index, const ChunkHeader* chunk) const {
    return m_first[index] == chunk && m_nodes[Number(chunk)].child == 0;
  }

  // For the invariant checker.
  bool Contains(const ChunkHeader* chunk) const { return m_nodes[Number(chunk)].member != 0; }
  uint64_t JoinNumber(const ChunkHeader* chunk) const { return m_nodes[Number(chunk)].key; }
  // Members of the class's heap, by walking it; -1 when its links are broken.
  long CountMembers(size_t index) const { return CountFrom(RootNumber(index), 0, m_chunks + 1); }

 private:
  // prev: the parent for a first child, else the sibling before.
  struct Node {
    uint64_t key;
    uint32_t child;
    uint32_t next;
    uint32_t prev;
    uint32_t member;
  };

  FirstFreeIndex(const FirstFreeIndex&);
  FirstFreeIndex& operator=(const FirstFreeIndex&);

  // Node numbers start at 1, so that 0 (zeroed memory) means none.
  uint32_t Number(const ChunkHeader* chunk) const {
    uintptr_t offset = reinterpret_cast<uintptr_t>(chunk) - m_base;
    uintptr_t number = m_chunkShift != 0 ? offset >> m_chunkShift : offset / m_chunkSize;
    return static_cast<uint32_t>(number + 1);
  }
  ChunkHeader* ChunkOfNumber(uint32_t number) const {
    if (number == 0) {
      return 0;
    }
    uintptr_t offset = static_cast<uintptr_t>(number - 1) * m_chunkSize;
    return ChunkAt(m_base + offset);
  }
  Node& NodeOf(const ChunkHeader* chunk) { return m_nodes[Number(chunk)]; }
  uint32_t RootNumber(size_t index) const {
    return m_first[index] != 0 ? Number(m_first[index]) : 0;
  }
  void SetRoot(size_t index, uint32_t number) { m_first[index] = ChunkOfNumber(number); }

  // Two heap roots become one; the later joined goes under the earlier.
  uint32_t Meld(uint32_t a, uint32_t b) {
    if (a == 0) {
      return b;
    }
    if (b == 0) {
      return a;
    }
    if (m_nodes[b].key < m_nodes[a].key) {
      uint32_t swapped = a;
      a = b;
      b = swapped;
    }
    Node& parent = m_nodes[a];
    Node& child = m_nodes[b];
    child.next = parent.child;
    if (parent.child != 0) {
      m_nodes[parent.child].prev = b;
    }
    child.prev = a;
    parent.child = b;
    return a;
  }

  // The sibling list from first becomes one heap: melded in pairs left to
  // right, then the pairs right to left.
  uint32_t MergePairs(uint32_t first) {
    uint32_t pairs = 0;
    while (first != 0) {
      uint32_t a = first;
      uint32_t b = m_nodes[a].next;
      first = b != 0 ? m_nodes[b].next : 0;
      m_nodes[a].next = 0;
      m_nodes[a].prev = 0;
      if (b != 0) {
        m_nodes[b].next = 0;
        m_nodes[b].prev = 0;
      }
      uint32_t pair = Meld(a, b);
      m_nodes[pair].next = pairs;
      pairs = pair;
    }
    uint32_t result = 0;
    while (pairs != 0) {
      uint32_t pair = pairs;
      pairs = m_nodes[pair].next;
      m_nodes[pair].next = 0;
      result = Meld(result, pair);
    }
    return result;
  }

  long CountFrom(uint32_t number, uint32_t parent, uint32_t budget) const {
    long count = 0;
    uint32_t previous = parent;
    for (; number != 0; previous = number, number = m_nodes[number].next) {
      const Node& node = m_nodes[number];
      if (budget-- == 0 || node.member == 0 || node.prev != previous ||
          (parent != 0 && node.key < m_nodes[parent].key)) {
        return -1;
      }
      long below = CountFrom(node.child, number, budget);
      if (below < 0) {
        return -1;
      }
      count += 1 + below;
    }
    return count;
  }

  void* m_mapping;
  size_t m_mappingBytes;
  ChunkHeader** m_first;
  ChunkHeader** m_tail;
  Node* m_nodes;
  uintptr_t m_base;
  uint32_t m_chunkSize;
  uint32_t m_chunkShift;
  uint32_t m_chunks;
  uint32_t m_classes;
  uint64_t m_joins;
};

}  // namespace Heap
}  // namespace Quendal

#endif
