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
// Per class the chunks are kept in a B+-tree keyed by join number. Leaves
// hold (join number, chunk) entries in order; an inner node holds, for each
// child, a lower bound of the keys below it, which also bounds the keys of
// the child before it from above. Every node but the root holds kMinEntries
// to kWidth entries (an inner root at least two) and all leaves are equally
// deep, so a tree of n entries has at most 1 + log7(n / 2) levels: 6 for
// 64 000 chunks, 12 for any count below 2^32. An insertion splits at most
// one node per level and a removal borrows or merges at most once per level,
// each within the node and its siblings, whatever the order of the calls:
// every operation is logarithmic in the worst case. (An amortised bound is
// not enough: the one call that pays for the others would stall its caller
// for time linear in the chunk count.) A node's entry count and children
// share one cache line and its keys the next two, so a descent costs a few
// cache lines per level where a binary tree costs one per key compared.
//
// Both ends of each tree are at hand. The leftmost node of every level
// stays the same node while the level exists (a split moves the upper half
// out, a merge keeps the left node), so they are kept in a short array per
// class, and the rightmost leaf is followed through splits and merges:
// removing the first entry needs no descent from the root, and touches the
// leftmost leaf alone when it keeps enough entries; adding a key after
// every other to a leaf with room, as when chunks get a free block in list
// order, touches that leaf alone. The first is the
// tree's first entry, or is held ahead of the tree: a chunk that comes first
// when it gets a free block stays out of the tree until another comes
// before it, so that the common case, a chunk that gets a block back and
// fills again, costs no tree work.
//
// The slots (one per chunk), the nodes and the per-class state live in
// memory mapped from the system, so they add no call to the C library's
// allocator; zeroed, they read as empty classes and chunks outside the index.
// No tree level but its root has more nodes than a seventh of the entries on
// the level below, so a class of n members takes at most n / 6 + 1 nodes and
// all classes together at most Chunks / 6 plus one per class: the nodes are
// counted out at the start and never run short. When the mapping is refused
// the index stays inactive and the pool walks its class lists instead.
#ifndef QUENDAL_HEAP_FIRST_FREE_INDEX_H
#define QUENDAL_HEAP_FIRST_FREE_INDEX_H

#include <stddef.h>
#include <stdint.h>

#include "heap/chunk_header.h"
#include "platform/memory_map.h"
#include "util/compiler.h"

namespace Quendal {
namespace Heap {

class FirstFreeIndex {
 public:
  FirstFreeIndex()
      : m_mapping(0),
        m_mappingBytes(0),
        m_first(0),
        m_tail(0),
        m_trees(0),
        m_slots(0),
        m_nodes(0),
        m_base(0),
        m_chunkSize(0),
        m_chunkShift(0),
        m_chunks(0),
        m_classes(0),
        m_nodeCount(0),
        m_nodesTaken(0),
        m_freeNodes(0),
        m_joins(0) {}

  ~FirstFreeIndex() { Stop(); }

  // Covers chunks chunks of chunkSize bytes from firstChunk and classes size
  // classes, all empty. chunkShift is log2 of a power-of-two chunk size, else
  // 0. False (and inactive) when the memory cannot be had.
  bool Start(uintptr_t firstChunk, uint32_t chunkSize, uint32_t chunkShift, uint32_t chunks,
             uint32_t classes) {
    Stop();
    if (chunks == 0 || classes == 0) {
      return false;
    }
    uint64_t trees = classes < chunks ? classes : chunks;
    uint64_t nodes = chunks / (kMinEntries - 1) + trees;
    // Node 0 and slot 0 stand for none.
    uint64_t bytes = (nodes + 1) * sizeof(Node) + (uint64_t(chunks) + 1) * sizeof(Slot) +
                     uint64_t(classes) * (2 * sizeof(ChunkHeader*) + sizeof(Tree));
    if (bytes > uint64_t(static_cast<size_t>(-1))) {
      return false;
    }
    void* mapping = Platform::MapZeroedMemory(static_cast<size_t>(bytes));
    if (mapping == 0) {
      return false;
    }
    m_mapping = mapping;
    m_mappingBytes = static_cast<size_t>(bytes);
    m_nodes = static_cast<Node*>(mapping);
    m_slots = reinterpret_cast<Slot*>(m_nodes + nodes + 1);
    m_first = reinterpret_cast<ChunkHeader**>(m_slots + chunks + 1);
    m_tail = m_first + classes;
    m_trees = reinterpret_cast<Tree*>(m_tail + classes);
    m_base = firstChunk;
    m_chunkSize = chunkSize;
    m_chunkShift = chunkShift;
    m_chunks = chunks;
    m_classes = classes;
    m_nodeCount = static_cast<uint32_t>(nodes);
    m_nodesTaken = 0;
    m_freeNodes = 0;
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
    m_trees = 0;
    m_slots = 0;
    m_nodes = 0;
    m_chunks = 0;
    m_classes = 0;
    m_nodeCount = 0;
  }

  bool Active() const { return m_nodes != 0; }
  uint32_t Classes() const { return m_classes; }

  // The earliest joined chunk of the class with a free block, or null.
  ChunkHeader* First(size_t index) const { return m_first[index]; }

  // The last chunk of the class list, or null.
  ChunkHeader* Tail(size_t index) const { return m_tail[index]; }
  void SetTail(size_t index, ChunkHeader* chunk) { m_tail[index] = chunk; }

  // The chunk joins the tail of its class list.
  void Join(ChunkHeader* chunk) { m_slots[Number(chunk)].key = ++m_joins; }

  // The chunk, on the list of class index, got a free block.
  void Insert(size_t index, ChunkHeader* chunk) {
    uint32_t number = Number(chunk);
    Slot& slot = m_slots[number];
    ChunkHeader* first = m_first[index];
    if (first == 0) {
      slot.where = kAhead;
      m_first[index] = chunk;
      return;
    }
    uint32_t at = Number(first);
    Slot& front = m_slots[at];
    if (slot.key < front.key) {
      // The chunk comes first, held ahead; a first held ahead joins the
      // tree, where it is the first entry.
      if (front.where == kAhead) {
        front.where = kInTree;
        InsertIntoTree(index, at, front.key);
      }
      slot.where = kAhead;
      m_first[index] = chunk;
      return;
    }
    slot.where = kInTree;
    InsertIntoTree(index, number, slot.key);
  }

  // First(index) has no free block left.
  void RemoveFirst(size_t index) {
    Slot& slot = m_slots[Number(m_first[index])];
    uint32_t where = slot.where;
    slot.where = kOutside;
    if (where != kAhead) {
      RemoveFromTree(index, slot.key, true);
    }
    ChunkHeader* next = TreeFirst(index);
    if (next != 0) {
      // The next allocation of the class reads its header.
      QD_PREFETCH(next);
    }
    m_first[index] = next;
  }

  // The chunk leaves the index: it is emptied, or its return is deferred.
  void Remove(size_t index, ChunkHeader* chunk) {
    if (m_first[index] == chunk) {
      RemoveFirst(index);
      return;
    }
    Slot& slot = m_slots[Number(chunk)];
    slot.where = kOutside;
    RemoveFromTree(index, slot.key, false);
  }

  // True when chunk is the class's only chunk with a free block.
  bool HoldsOnly(size_t index, const ChunkHeader* chunk) const {
    if (m_first[index] != chunk) {
      return false;
    }
    const Tree& tree = m_trees[index];
    if (m_slots[Number(chunk)].where == kAhead) {
      return tree.height == 0;
    }
    return tree.height == 1 && m_nodes[tree.leftmost[0]].count == 1;
  }

  // For the invariant checker.
  bool Contains(const ChunkHeader* chunk) const { return m_slots[Number(chunk)].where != 0; }
  uint64_t JoinNumber(const ChunkHeader* chunk) const { return m_slots[Number(chunk)].key; }
  // Members of the class, by walking all of its tree; -1 when a link, the
  // order or bounds of the keys, a node's fill, the leaves' depth, a slot,
  // the leftmost leaf or the first is wrong.
  long CountMembers(size_t index) const {
    const Tree& tree = m_trees[index];
    bool empty = tree.height == 0 && tree.leftmost[0] == 0 && tree.rightLeaf == 0;
    if (m_first[index] == 0) {
      return empty ? 0 : -1;
    }
    uint32_t first = Number(m_first[index]);
    if (first == 0 || first > m_chunks || ChunkOfNumber(first) != m_first[index]) {
      return -1;
    }
    const Slot& front = m_slots[first];
    if (tree.height == 0) {
      return front.where == kAhead && empty ? 1 : -1;
    }
    if (tree.height > kMaxHeight || m_nodesTaken > m_nodeCount) {
      return -1;
    }
    long count = 0;
    uint32_t root = tree.leftmost[tree.height - 1];
    if (!CheckNode(tree, root, 1, 0, false, 0, count)) {
      return -1;
    }
    // The leftmost node of every level, and the rightmost leaf.
    uint32_t leaf = root;
    uint32_t rightmost = root;
    for (uint32_t level = tree.height - 1; level > 0; --level) {
      leaf = m_nodes[leaf].items[0];
      rightmost = m_nodes[rightmost].items[m_nodes[rightmost].count - 1];
      if (leaf != tree.leftmost[level - 1]) {
        return -1;
      }
    }
    if (rightmost != tree.rightLeaf) {
      return -1;
    }
    const Node& leftmost = m_nodes[leaf];
    if (front.where == kAhead) {
      return front.key < leftmost.keys[0] ? count + 1 : -1;
    }
    return front.where == kInTree && leftmost.items[0] == first ? count : -1;
  }

 private:
  // Tests look at the trees' shape and break them through it.
  friend class FirstFreeIndexInspector;

  // Where a chunk is: outside the index, in its class's tree, or held
  // ahead of the tree as its class's first.
  enum { kOutside = 0, kInTree = 1, kAhead = 2 };

  static const uint32_t kWidth = 15;
  // A full node that gains an entry splits into two of kMinEntries + 1; two
  // siblings of kMinEntries - 1 and kMinEntries merge into one that fits.
  static const uint32_t kMinEntries = 7;
  // Levels of a tree of fewer than 2^32 entries: 2 * 7^(levels - 1) <= n.
  static const uint32_t kMaxHeight = 12;

  // The join number of a chunk and where it is, by chunk number.
  struct Slot {
    uint64_t key;
    uint32_t where;
    uint32_t unused;
  };

  // A leaf's items are chunk numbers, an inner node's node numbers; keys[i]
  // is items[i]'s join number, or a lower bound of its child's keys. The
  // count and items fill the first cache line, the keys the next two.
  struct Node {
    uint32_t count;
    uint32_t items[kWidth];
    uint64_t keys[kWidth];
    uint64_t unused;
  };
  QD_STATIC_ASSERT(sizeof(Node) == 192);

  // A class's tree: its levels (0 when empty), its rightmost leaf and the
  // leftmost node of every level from the leaf up to the root (node
  // numbers, 0 for none). A level's leftmost node stays the same node: a
  // split moves the upper half out and a merge keeps the left node, so
  // only a new root or the root's collapse changes the array, at its top.
  struct Tree {
    uint32_t height;
    uint32_t rightLeaf;
    uint32_t leftmost[kMaxHeight];
    uint32_t unused[2];
  };

  // The nodes from the root down to a leaf, and the entry taken in each.
  struct Path {
    uint32_t nodes[kMaxHeight];
    uint32_t entries[kMaxHeight];
  };

  FirstFreeIndex(const FirstFreeIndex&);
  FirstFreeIndex& operator=(const FirstFreeIndex&);

  // Chunk numbers start at 1, so that 0 (zeroed memory) means none.
  uint32_t Number(const ChunkHeader* chunk) const {
    uintptr_t offset = reinterpret_cast<uintptr_t>(chunk) - m_base;
    uintptr_t number = QD_LIKELY(m_chunkShift != 0) ? offset >> m_chunkShift : offset / m_chunkSize;
    return static_cast<uint32_t>(number + 1);
  }
  ChunkHeader* ChunkOfNumber(uint32_t number) const {
    if (number == 0) {
      return 0;
    }
    uintptr_t offset = static_cast<uintptr_t>(number - 1) * m_chunkSize;
    return ChunkAt(m_base + offset);
  }

  ChunkHeader* TreeFirst(size_t index) const {
    uint32_t leaf = m_trees[index].leftmost[0];
    return leaf != 0 ? ChunkOfNumber(m_nodes[leaf].items[0]) : 0;
  }

  uint32_t NewNode() {
    uint32_t number = m_freeNodes;
    if (number != 0) {
      m_freeNodes = m_nodes[number].items[0];
    } else {
      number = ++m_nodesTaken;
    }
    m_nodes[number].count = 0;
    return number;
  }
  void FreeNode(uint32_t number) {
    m_nodes[number].items[0] = m_freeNodes;
    m_freeNodes = number;
  }

  // The entries move one by one, carried through registers: the nodes are
  // small, and a compiler that turned these loops into calls to memmove
  // would add a call into the C library, its first in a process a lazy
  // binding of microseconds.

  // The entry goes in at position at, the node having room for it.
  static void Put(Node& node, uint32_t at, uint64_t key, uint32_t item) {
    for (uint32_t k = at; k < node.count; ++k) {
      uint64_t nextKey = node.keys[k];
      uint32_t nextItem = node.items[k];
      node.keys[k] = key;
      node.items[k] = item;
      key = nextKey;
      item = nextItem;
    }
    node.keys[node.count] = key;
    node.items[node.count] = item;
    ++node.count;
  }
  static void Take(Node& node, uint32_t at) {
    uint32_t k = --node.count;
    uint64_t key = node.keys[k];
    uint32_t item = node.items[k];
    while (k > at) {
      --k;
      uint64_t nextKey = node.keys[k];
      uint32_t nextItem = node.items[k];
      node.keys[k] = key;
      node.items[k] = item;
      key = nextKey;
      item = nextItem;
    }
  }
  // The entries of from from position at on move to the end of to, the
  // last first.
  static void MoveEntries(Node& from, uint32_t at, Node& to) {
    uint32_t moved = from.count - at;
    for (uint32_t k = moved; k > 0; --k) {
      to.keys[to.count + k - 1] = from.keys[at + k - 1];
      to.items[to.count + k - 1] = from.items[at + k - 1];
    }
    to.count += moved;
    from.count = at;
  }

  // Down from the root to the leaf where key is or belongs, or along the
  // leftmost nodes, read without touching the nodes above the leaf; the
  // leaf's entry is left to the caller. On the way, a key below a node's
  // lower bound lowers it.
  void Descend(const Tree& tree, uint64_t key, bool leftmost, Path& path) {
    uint32_t top = tree.height - 1;
    if (leftmost) {
      // Every entry taken is the first: the caller knows it.
      for (uint32_t level = 0; level <= top; ++level) {
        path.nodes[level] = tree.leftmost[top - level];
      }
      return;
    }
    uint32_t at = tree.leftmost[top];
    for (uint32_t level = 0; level < top; ++level) {
      Node& node = m_nodes[at];
      uint32_t entry = 0;
      while (entry + 1 < node.count && node.keys[entry + 1] <= key) {
        ++entry;
      }
      if (key < node.keys[0]) {
        node.keys[0] = key;
      }
      path.nodes[level] = at;
      path.entries[level] = entry;
      at = node.items[entry];
    }
    path.nodes[top] = at;
  }

  QD_NOINLINE void InsertIntoTree(size_t index, uint32_t number, uint64_t key) {
    Tree& tree = m_trees[index];
    if (tree.height == 0) {
      uint32_t leaf = NewNode();
      Put(m_nodes[leaf], 0, key, number);
      tree.leftmost[0] = leaf;
      tree.rightLeaf = leaf;
      tree.height = 1;
      return;
    }
    // After every key and with room, as when chunks get a free block in list
    // order: the rightmost leaf's bounds hold it, no node above changes.
    Node& last = m_nodes[tree.rightLeaf];
    if (last.count < kWidth && key > last.keys[last.count - 1]) {
      Put(last, last.count, key, number);
      return;
    }
    Path path;
    Descend(tree, key, false, path);
    uint32_t level = tree.height - 1;
    const Node& leaf = m_nodes[path.nodes[level]];
    uint32_t at = 0;
    while (at < leaf.count && leaf.keys[at] < key) {
      ++at;
    }
    uint32_t item = number;
    for (;;) {
      uint32_t current = path.nodes[level];
      Node& node = m_nodes[current];
      if (node.count < kWidth) {
        Put(node, at, key, item);
        return;
      }
      // Full: the upper half moves to a new node on its right, the entry
      // goes to whichever half it falls in, each ending with eight.
      uint32_t right = NewNode();
      Node& upper = m_nodes[right];
      if (at <= kMinEntries) {
        MoveEntries(node, kMinEntries, upper);
        Put(node, at, key, item);
      } else {
        MoveEntries(node, kMinEntries + 1, upper);
        Put(upper, at - kMinEntries - 1, key, item);
      }
      key = upper.keys[0];
      item = right;
      if (current == tree.rightLeaf) {
        tree.rightLeaf = right;
      }
      if (level == 0) {
        uint32_t root = NewNode();
        Node& top = m_nodes[root];
        Put(top, 0, node.keys[0], current);
        Put(top, 1, key, item);
        tree.leftmost[tree.height] = root;
        ++tree.height;
        return;
      }
      --level;
      at = path.entries[level] + 1;
    }
  }

  // Takes the entry of key out of the class's tree (its first entry when
  // first), then mends the nodes left under-filled, from the leaf up.
  QD_NOINLINE void RemoveFromTree(size_t index, uint64_t key, bool first) {
    Tree& tree = m_trees[index];
    Node& front = m_nodes[tree.leftmost[0]];
    if (first && (front.count > kMinEntries || (tree.height == 1 && front.count > 1))) {
      // Enough entries stay: no node above changes.
      Take(front, 0);
      return;
    }
    Path path;
    Descend(tree, key, first, path);
    uint32_t level = tree.height - 1;
    Node& leaf = m_nodes[path.nodes[level]];
    uint32_t at = 0;
    while (at < leaf.count && leaf.keys[at] < key) {
      ++at;
    }
    Take(leaf, at);
    for (; level > 0; --level) {
      uint32_t current = path.nodes[level];
      Node& node = m_nodes[current];
      if (node.count >= kMinEntries) {
        return;
      }
      Node& parent = m_nodes[path.nodes[level - 1]];
      uint32_t entry = first ? 0 : path.entries[level - 1];
      // A node below the root has a sibling: its parent has two entries
      // or more.
      if (entry + 1 < parent.count) {
        uint32_t sibling = parent.items[entry + 1];
        Node& right = m_nodes[sibling];
        if (right.count > kMinEntries) {
          Put(node, node.count, right.keys[0], right.items[0]);
          Take(right, 0);
          parent.keys[entry + 1] = right.keys[0];
          return;
        }
        MoveEntries(right, 0, node);
        FreeNode(sibling);
        Take(parent, entry + 1);
        if (sibling == tree.rightLeaf) {
          tree.rightLeaf = current;
        }
      } else {
        uint32_t sibling = parent.items[entry - 1];
        Node& left = m_nodes[sibling];
        if (left.count > kMinEntries) {
          uint32_t last = left.count - 1;
          Put(node, 0, left.keys[last], left.items[last]);
          left.count = last;
          parent.keys[entry] = node.keys[0];
          return;
        }
        MoveEntries(node, 0, left);
        FreeNode(current);
        Take(parent, entry);
        if (current == tree.rightLeaf) {
          tree.rightLeaf = sibling;
        }
      }
    }
    uint32_t top = tree.height - 1;
    uint32_t root = tree.leftmost[top];
    if (m_nodes[root].count == 0) {
      // Only a lone leaf empties.
      FreeNode(root);
      tree.leftmost[0] = 0;
      tree.rightLeaf = 0;
      tree.height = 0;
    } else if (top > 0 && m_nodes[root].count == 1) {
      // The root's one child, its leftmost, becomes the root.
      FreeNode(root);
      tree.leftmost[top] = 0;
      tree.height = top;
    }
  }

  // Checks the subtree of node number, on level (1 for the root) of tree:
  // its keys lie at or above low and, when bounded, below high; count gains
  // its entries. The depth is bounded by the tree's height, which also
  // rules out cycles.
  bool CheckNode(const Tree& tree, uint32_t number, uint32_t level, uint64_t low, bool bounded,
                 uint64_t high, long& count) const {
    if (number == 0 || number > m_nodesTaken) {
      return false;
    }
    const Node& node = m_nodes[number];
    bool root = level == 1;
    bool leaf = level == tree.height;
    uint32_t least = root ? (leaf ? 1 : 2) : kMinEntries;
    if (node.count < least || node.count > kWidth || node.keys[0] < low) {
      return false;
    }
    for (uint32_t k = 0; k < node.count; ++k) {
      uint64_t key = node.keys[k];
      if ((k > 0 && key <= node.keys[k - 1]) || (bounded && key >= high)) {
        return false;
      }
      if (leaf) {
        uint32_t chunk = node.items[k];
        if (chunk == 0 || chunk > m_chunks || m_slots[chunk].where != kInTree ||
            m_slots[chunk].key != key) {
          return false;
        }
        ++count;
        continue;
      }
      bool last = k + 1 == node.count;
      if (!CheckNode(tree, node.items[k], level + 1, key, bounded || !last,
                     last ? high : node.keys[k + 1], count)) {
        return false;
      }
    }
    return true;
  }

  void* m_mapping;
  size_t m_mappingBytes;
  ChunkHeader** m_first;
  ChunkHeader** m_tail;
  Tree* m_trees;
  Slot* m_slots;
  Node* m_nodes;
  uintptr_t m_base;
  uint32_t m_chunkSize;
  uint32_t m_chunkShift;
  uint32_t m_chunks;
  uint32_t m_classes;
  // Nodes counted out at the start; taken so far (the highest number
  // used); the first of those given back, linked through items[0].
  uint32_t m_nodeCount;
  uint32_t m_nodesTaken;
  uint32_t m_freeNodes;
  uint64_t m_joins;
};

}  // namespace Heap
}  // namespace Quendal

#endif
