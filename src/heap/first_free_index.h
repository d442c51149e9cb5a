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
// Per class the chunks are kept in a red-black tree keyed by join number.
// Every operation is logarithmic in the class's chunk count in the worst
// case, whatever the order of the calls: a red-black tree of n nodes is at
// most 2 log2(n + 1) deep, an insertion or removal recolours along one path
// and rotates at most three times, and the leftmost node's successor is its
// right child or its parent. (An amortised bound is not enough: the one
// call that pays for the others would stall its caller for time linear in
// the chunk count.)
//
// The first is the tree's leftmost node, or is held ahead of the tree: a
// chunk that comes first when it gets a free block stays out of the tree
// until another comes before it, so that the common case, a chunk that
// gets a block back and fills again, costs no rebalancing. The last node
// is at hand too, so a chunk that comes last, as when chunks get a free
// block in list order, is added without a search; any other climbs from the
// leftmost only as far as its key needs.
//
// The nodes, one per chunk, and the per-class first, last and tail chunks
// live in memory mapped from the system, so they add no call to the C
// library's allocator; zeroed, they read as empty classes and black nodes
// outside the index. When the mapping is refused the index stays inactive
// and the pool walks its class lists instead.
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
        m_last(0),
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
    size_t classBytes =
        (2 * sizeof(ChunkHeader*) + sizeof(uint32_t)) * static_cast<size_t>(classes);
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
    m_last = reinterpret_cast<uint32_t*>(m_tail + classes);
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
    m_last = 0;
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
    // Out of the index, the node reads as zeroed: no links, black.
    uint32_t number = Number(chunk);
    Node& node = m_nodes[number];
    ChunkHeader* first = m_first[index];
    if (first == 0) {
      node.member = kAhead;
      m_first[index] = chunk;
      m_last[index] = number;
      return;
    }
    uint32_t at = Number(first);
    Node& front = m_nodes[at];
    if (node.key < front.key) {
      // The chunk comes first, held ahead; a first held ahead joins the
      // tree, where it is the leftmost.
      if (front.member == kAhead) {
        PushIntoTree(at);
      }
      node.member = kAhead;
      node.left = at;
      m_first[index] = chunk;
      return;
    }
    node.member = kInTree;
    InsertIntoTree(index, number, front.member == kAhead ? front.left : at);
  }

  // First(index) has no free block left.
  void RemoveFirst(size_t index) {
    uint32_t number = Number(m_first[index]);
    Node& node = m_nodes[number];
    if (node.member == kAhead) {
      uint32_t next = node.left;
      Clear(node);
      m_first[index] = ChunkOfNumber(next);
      if (next == 0) {
        m_last[index] = 0;
      }
      return;
    }
    uint32_t parent = node.parent;
    if (parent == 0 && node.right == 0) {
      Clear(node);
      m_first[index] = 0;
      m_last[index] = 0;
      return;
    }
    if (node.red != 0) {
      // A red leaf, its parent's left child: the parent comes next.
      Clear(node);
      m_nodes[parent].left = 0;
      m_first[index] = ChunkOfNumber(parent);
      return;
    }
    RemoveLeftmost(index, number);
  }

  // The chunk leaves the index: it is emptied, or its return is deferred.
  void Remove(size_t index, ChunkHeader* chunk) {
    if (m_first[index] == chunk) {
      RemoveFirst(index);
    } else {
      Erase(index, Number(chunk));
    }
  }

  // True when chunk is the class's only chunk with a free block.
  bool HoldsOnly(size_t index, const ChunkHeader* chunk) const {
    return m_first[index] == chunk && m_last[index] == Number(chunk);
  }

  // For the invariant checker.
  bool Contains(const ChunkHeader* chunk) const { return m_nodes[Number(chunk)].member != 0; }
  uint64_t JoinNumber(const ChunkHeader* chunk) const { return m_nodes[Number(chunk)].key; }
  // Members of the class, by walking all of its tree; -1 when a link, the
  // order of the keys, a member flag, the colours or the first or last node
  // is wrong.
  long CountMembers(size_t index) const {
    if (m_first[index] == 0) {
      return m_last[index] == 0 ? 0 : -1;
    }
    uint32_t first = Number(m_first[index]);
    if (first == 0 || first > m_chunks) {
      return -1;
    }
    const Node& front = m_nodes[first];
    uint32_t leftmost = first;
    long count = 0;
    if (front.member == kAhead) {
      if (front.parent != 0 || front.right != 0 || front.red != 0) {
        return -1;
      }
      leftmost = front.left;
      count = 1;
      if (leftmost == 0) {
        return m_last[index] == first ? 1 : -1;
      }
      if (leftmost > m_chunks || m_nodes[leftmost].key <= front.key) {
        return -1;
      }
    }
    uint32_t root = leftmost;
    for (unsigned depth = 1; m_nodes[root].parent != 0; ++depth) {
      root = m_nodes[root].parent;
      if (depth == kMaxDepth || root > m_chunks) {
        return -1;
      }
    }
    if (m_nodes[root].red != 0 || BlackHeight(root, 0, 0, 0, 1, count) < 0 ||
        Leftmost(root) != leftmost || Rightmost(root) != m_last[index]) {
      return -1;
    }
    return count;
  }

 private:
  // Tests look at the trees' shape and break their links through it.
  friend class FirstFreeIndexInspector;

  // member: kInTree, or kAhead for a first held ahead of the tree, whose
  // left names the tree's leftmost node instead of a child.
  enum { kOutside = 0, kInTree = 1, kAhead = 2 };

  // Links are node numbers, 0 for none. A node outside the index is all
  // zero but for its key, as in zeroed memory: Insert relies on it.
  struct Node {
    uint64_t key;
    uint32_t left;
    uint32_t right;
    uint32_t parent;
    uint16_t member;
    uint16_t red;
  };

  // The deepest a valid tree can be: 2 log2(n + 1) nodes from the root to
  // a leaf, with n below 2^32.
  static const unsigned kMaxDepth = 64;

  FirstFreeIndex(const FirstFreeIndex&);
  FirstFreeIndex& operator=(const FirstFreeIndex&);

  // Node numbers start at 1, so that 0 (zeroed memory) means none.
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
  Node& NodeOf(const ChunkHeader* chunk) { return m_nodes[Number(chunk)]; }
  bool IsRed(uint32_t number) const { return m_nodes[number].red != 0; }
  // A node out of the index reads as zeroed memory does.
  static void Clear(Node& node) {
    node.left = 0;
    node.right = 0;
    node.parent = 0;
    node.member = kOutside;
    node.red = 0;
  }
  uint32_t Leftmost(uint32_t number) const {
    while (m_nodes[number].left != 0) {
      number = m_nodes[number].left;
    }
    return number;
  }
  uint32_t Rightmost(uint32_t number) const {
    while (m_nodes[number].right != 0) {
      number = m_nodes[number].right;
    }
    return number;
  }

  // replacement takes old's place under parent (as the root when parent is
  // 0, which needs no record: the root is the node without a parent).
  void Relink(uint32_t parent, uint32_t old, uint32_t replacement) {
    if (parent != 0) {
      Node& above = m_nodes[parent];
      if (above.left == old) {
        above.left = replacement;
      } else {
        above.right = replacement;
      }
    }
    if (replacement != 0) {
      m_nodes[replacement].parent = parent;
    }
  }
  // The node's right child takes its place, with the node as its left child.
  void RotateLeft(uint32_t number) {
    Node& node = m_nodes[number];
    uint32_t child = node.right;
    Node& below = m_nodes[child];
    node.right = below.left;
    if (below.left != 0) {
      m_nodes[below.left].parent = number;
    }
    Relink(node.parent, number, child);
    below.left = number;
    node.parent = child;
  }
  void RotateRight(uint32_t number) {
    Node& node = m_nodes[number];
    uint32_t child = node.left;
    Node& below = m_nodes[child];
    node.left = below.right;
    if (below.right != 0) {
      m_nodes[below.right].parent = number;
    }
    Relink(node.parent, number, child);
    below.right = number;
    node.parent = child;
  }

  // The first, held ahead, joins the tree as its leftmost node.
  QD_NOINLINE void PushIntoTree(uint32_t number) {
    Node& node = m_nodes[number];
    uint32_t below = node.left;
    node.member = kInTree;
    if (below == 0) {
      return;
    }
    node.left = 0;
    node.parent = below;
    node.red = 1;
    m_nodes[below].left = number;
    RebalanceAfterInsert(number);
  }

  // The node, behind the first, joins the tree whose leftmost is leftmost
  // (none: the tree is empty), red, without a search when it comes first
  // or last there.
  QD_NOINLINE void InsertIntoTree(size_t index, uint32_t number, uint32_t leftmost) {
    Node& node = m_nodes[number];
    if (leftmost == 0) {
      m_nodes[Number(m_first[index])].left = number;
      m_last[index] = number;
      return;
    }
    node.red = 1;
    uint64_t key = node.key;
    if (key < m_nodes[leftmost].key) {
      // Behind the first held ahead.
      m_nodes[leftmost].left = number;
      node.parent = leftmost;
      m_nodes[Number(m_first[index])].left = number;
      RebalanceAfterInsert(number);
      return;
    }
    uint32_t last = m_last[index];
    if (key > m_nodes[last].key) {
      m_nodes[last].right = number;
      node.parent = last;
      m_last[index] = number;
      RebalanceAfterInsert(number);
      return;
    }
    // The nodes above the leftmost are its ancestors in increasing order:
    // the key goes right of the highest one below it.
    uint32_t at = leftmost;
    for (uint32_t up = m_nodes[at].parent; up != 0 && m_nodes[up].key < key;
         up = m_nodes[up].parent) {
      at = up;
    }
    uint32_t* link = &m_nodes[at].right;
    while (*link != 0) {
      at = *link;
      link = key < m_nodes[at].key ? &m_nodes[at].left : &m_nodes[at].right;
    }
    *link = number;
    node.parent = at;
    RebalanceAfterInsert(number);
  }

  // The leftmost node, not the only one, leaves. It has no left child, and
  // a right child would be a lone red leaf: the next node is that child,
  // else the parent. It is not the last node, as a node follows it.
  QD_NOINLINE void RemoveLeftmost(size_t index, uint32_t number) {
    Node& node = m_nodes[number];
    uint32_t parent = node.parent;
    uint32_t right = node.right;
    bool red = node.red != 0;
    Clear(node);
    if (right != 0) {
      // The red child takes the node's place, black.
      Relink(parent, number, right);
      m_nodes[right].red = 0;
      m_first[index] = ChunkOfNumber(right);
      return;
    }
    m_nodes[parent].left = 0;
    m_first[index] = ChunkOfNumber(parent);
    if (!red) {
      // The paths through the parent's left side are a black node short.
      RebalanceAfterRemoval(0, parent);
    }
  }

  // The red node just added may have a red parent: recolour upwards while
  // its uncle is red, then at most two rotations end it.
  QD_NOINLINE void RebalanceAfterInsert(uint32_t number) {
    for (;;) {
      uint32_t parent = m_nodes[number].parent;
      if (parent == 0) {
        m_nodes[number].red = 0;
        return;
      }
      if (!IsRed(parent)) {
        return;
      }
      // A red node is never the root.
      uint32_t grand = m_nodes[parent].parent;
      Node& above = m_nodes[grand];
      if (parent == above.left) {
        uint32_t uncle = above.right;
        if (IsRed(uncle)) {
          m_nodes[parent].red = 0;
          m_nodes[uncle].red = 0;
          above.red = 1;
          number = grand;
          continue;
        }
        if (number == m_nodes[parent].right) {
          RotateLeft(parent);
          parent = number;
        }
        m_nodes[parent].red = 0;
        above.red = 1;
        RotateRight(grand);
      } else {
        uint32_t uncle = above.left;
        if (IsRed(uncle)) {
          m_nodes[parent].red = 0;
          m_nodes[uncle].red = 0;
          above.red = 1;
          number = grand;
          continue;
        }
        if (number == m_nodes[parent].left) {
          RotateRight(parent);
          parent = number;
        }
        m_nodes[parent].red = 0;
        above.red = 1;
        RotateLeft(grand);
      }
      return;
    }
  }

  // Takes out a tree node other than the first.
  void Erase(size_t index, uint32_t number) {
    Node& node = m_nodes[number];
    uint32_t first = Number(m_first[index]);
    if (m_nodes[first].left == number && m_nodes[first].member == kAhead) {
      m_nodes[first].left = node.right != 0 ? Leftmost(node.right) : node.parent;
    }
    if (m_last[index] == number) {
      // With no node before it in the tree, the first held ahead is last.
      uint32_t before = node.left != 0 ? Rightmost(node.left) : node.parent;
      m_last[index] = before != 0 ? before : first;
    }
    // child takes the place of the node taken out of the tree, under parent.
    uint32_t child;
    uint32_t parent;
    bool blackTakenOut;
    if (node.left == 0 || node.right == 0) {
      child = node.left != 0 ? node.left : node.right;
      parent = node.parent;
      blackTakenOut = node.red == 0;
      Relink(parent, number, child);
    } else {
      // The successor leaves its place for the node's.
      uint32_t next = Leftmost(node.right);
      Node& successor = m_nodes[next];
      blackTakenOut = successor.red == 0;
      child = successor.right;
      if (successor.parent == number) {
        parent = next;
      } else {
        parent = successor.parent;
        Relink(parent, next, child);
        successor.right = node.right;
        m_nodes[node.right].parent = next;
      }
      Relink(node.parent, number, next);
      successor.left = node.left;
      m_nodes[node.left].parent = next;
      successor.red = node.red;
    }
    Clear(node);
    if (blackTakenOut) {
      RebalanceAfterRemoval(child, parent);
    }
  }

  // The paths through child (under parent) are one black node short: move
  // the shortage up while the sibling is black with black children, then
  // at most three rotations end it.
  void RebalanceAfterRemoval(uint32_t child, uint32_t parent) {
    while (parent != 0 && !IsRed(child)) {
      Node& above = m_nodes[parent];
      // The sibling is never none: its side has a black node more.
      if (child == above.left) {
        uint32_t sibling = above.right;
        if (IsRed(sibling)) {
          m_nodes[sibling].red = 0;
          above.red = 1;
          RotateLeft(parent);
          sibling = above.right;
        }
        Node& other = m_nodes[sibling];
        if (!IsRed(other.left) && !IsRed(other.right)) {
          other.red = 1;
          child = parent;
          parent = above.parent;
          continue;
        }
        if (!IsRed(other.right)) {
          m_nodes[other.left].red = 0;
          other.red = 1;
          RotateRight(sibling);
          sibling = above.right;
        }
        Node& outer = m_nodes[sibling];
        outer.red = above.red;
        above.red = 0;
        m_nodes[outer.right].red = 0;
        RotateLeft(parent);
      } else {
        uint32_t sibling = above.left;
        if (IsRed(sibling)) {
          m_nodes[sibling].red = 0;
          above.red = 1;
          RotateRight(parent);
          sibling = above.left;
        }
        Node& other = m_nodes[sibling];
        if (!IsRed(other.left) && !IsRed(other.right)) {
          other.red = 1;
          child = parent;
          parent = above.parent;
          continue;
        }
        if (!IsRed(other.left)) {
          m_nodes[other.right].red = 0;
          other.red = 1;
          RotateLeft(sibling);
          sibling = above.left;
        }
        Node& outer = m_nodes[sibling];
        outer.red = above.red;
        above.red = 0;
        m_nodes[outer.left].red = 0;
        RotateRight(parent);
      }
      return;
    }
    if (child != 0) {
      m_nodes[child].red = 0;
    }
  }

  // The black nodes on every path down from number (all the same), or -1;
  // count gains the subtree's nodes. Keys lie strictly between those of
  // low and high (0: unbounded), which also rules out cycles.
  long BlackHeight(uint32_t number, uint32_t parent, uint32_t low, uint32_t high, unsigned depth,
                   long& count) const {
    if (number == 0) {
      return 0;
    }
    if (number > m_chunks || depth > kMaxDepth) {
      return -1;
    }
    const Node& node = m_nodes[number];
    if (node.member != kInTree || node.red > 1 || node.parent != parent ||
        (low != 0 && node.key <= m_nodes[low].key) ||
        (high != 0 && node.key >= m_nodes[high].key) || (node.red != 0 && IsRed(parent))) {
      return -1;
    }
    long left = BlackHeight(node.left, number, low, number, depth + 1, count);
    if (left < 0) {
      return -1;
    }
    long right = BlackHeight(node.right, number, number, high, depth + 1, count);
    if (right != left) {
      return -1;
    }
    ++count;
    return left + (node.red != 0 ? 0 : 1);
  }

  void* m_mapping;
  size_t m_mappingBytes;
  ChunkHeader** m_first;
  ChunkHeader** m_tail;
  // The node of the class's latest joined chunk with a free block.
  uint32_t* m_last;
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
