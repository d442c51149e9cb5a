// The first-free index against a plain model (per class, the set of join
// numbers of its chunks with a free block), under seeded random sequences
// and under the orders that are hardest on a tree: chunks getting a free
// block front to back, back to front and from both ends at once. The index
// never reads a chunk, so its chunks are addresses with nothing behind them.
#include <gtest/gtest.h>

#include <stdint.h>

#include <map>
#include <random>
#include <vector>

#include "heap/first_free_index.h"
#include "heap/pool_fixture.h"
#include "heap/pool_invariants.h"

namespace Quendal {
namespace Heap {

// The trees' shape, and a way to break them, for the tests below.
class FirstFreeIndexInspector {
 public:
  explicit FirstFreeIndexInspector(FirstFreeIndex& index) : m_index(index) {}

  // Nodes on the longest path from the class's root down, 0 when the tree
  // is empty.
  int Height(size_t index) const { return HeightBelow(RootNumber(index)); }

  ChunkHeader* Root(size_t index) const { return m_index.ChunkOfNumber(RootNumber(index)); }
  // Whether the class's first is held ahead of its tree.
  bool FirstHeldAhead(size_t index) const {
    return m_index.m_first[index] != nullptr &&
           NodeOf(m_index.m_first[index]).member == FirstFreeIndex::kAhead;
  }
  ChunkHeader* Left(const ChunkHeader* chunk) const {
    return m_index.ChunkOfNumber(NodeOf(chunk).left);
  }
  ChunkHeader* Right(const ChunkHeader* chunk) const {
    return m_index.ChunkOfNumber(NodeOf(chunk).right);
  }
  ChunkHeader* Parent(const ChunkHeader* chunk) const {
    return m_index.ChunkOfNumber(NodeOf(chunk).parent);
  }
  bool IsRed(const ChunkHeader* chunk) const { return NodeOf(chunk).red != 0; }

  void SetLeft(const ChunkHeader* chunk, const ChunkHeader* child) {
    NodeOf(chunk).left = NumberOf(child);
  }
  void SetRight(const ChunkHeader* chunk, const ChunkHeader* child) {
    NodeOf(chunk).right = NumberOf(child);
  }
  void SetParent(const ChunkHeader* chunk, const ChunkHeader* parent) {
    NodeOf(chunk).parent = NumberOf(parent);
  }
  void SetRed(const ChunkHeader* chunk, bool red) { NodeOf(chunk).red = red ? 1 : 0; }
  void SetMember(const ChunkHeader* chunk, bool member) {
    NodeOf(chunk).member = member ? FirstFreeIndex::kInTree : FirstFreeIndex::kOutside;
  }
  void SetHeldAhead(const ChunkHeader* chunk) { NodeOf(chunk).member = FirstFreeIndex::kAhead; }
  void SetKey(const ChunkHeader* chunk, uint64_t key) { NodeOf(chunk).key = key; }
  void SetFirst(size_t index, ChunkHeader* chunk) { m_index.m_first[index] = chunk; }
  void SetLast(size_t index, ChunkHeader* chunk) { m_index.m_last[index] = NumberOf(chunk); }

 private:
  FirstFreeIndex::Node& NodeOf(const ChunkHeader* chunk) const {
    return m_index.m_nodes[m_index.Number(chunk)];
  }
  uint32_t NumberOf(const ChunkHeader* chunk) const {
    return chunk != nullptr ? m_index.Number(chunk) : 0;
  }
  // The tree's root, found from its leftmost node.
  uint32_t RootNumber(size_t index) const {
    if (m_index.m_first[index] == nullptr) {
      return 0;
    }
    uint32_t root = m_index.Number(m_index.m_first[index]);
    if (m_index.m_nodes[root].member == FirstFreeIndex::kAhead) {
      root = m_index.m_nodes[root].left;
    }
    while (root != 0 && m_index.m_nodes[root].parent != 0) {
      root = m_index.m_nodes[root].parent;
    }
    return root;
  }
  int HeightBelow(uint32_t number) const {
    if (number == 0) {
      return 0;
    }
    int left = HeightBelow(m_index.m_nodes[number].left);
    int right = HeightBelow(m_index.m_nodes[number].right);
    return 1 + (left > right ? left : right);
  }

  FirstFreeIndex& m_index;
};

}  // namespace Heap
}  // namespace Quendal

namespace QuendalTest {
namespace {

using Quendal::Heap::ChunkHeader;
using Quendal::Heap::FirstFreeIndex;
using Quendal::Heap::FirstFreeIndexInspector;

// Chunks of 64 bytes from a base that is never read.
const uintptr_t kBase = uintptr_t(1) << 20;
const uint32_t kChunkBytes = 64;
const uint32_t kChunkShift = 6;

ChunkHeader* Chunk(uint32_t number) {
  return reinterpret_cast<ChunkHeader*>(kBase + uintptr_t(number) * kChunkBytes);
}

// The deepest a red-black tree of n nodes can be. Every path down from the
// root has the same number b of black nodes, so the tree holds a complete
// tree of b levels: n >= 2^b - 1, b <= log2(n + 1). No red node has a red
// child, so a path has at most b red nodes besides: 2b nodes in all.
int HeightBound(size_t nodes) {
  int blackHeight = 0;
  while ((uint64_t(1) << (blackHeight + 1)) <= uint64_t(nodes) + 1) {
    ++blackHeight;
  }
  return 2 * blackHeight;
}

// The index and its model side by side: every call goes to both, and Check
// compares everything the index answers with what the model says.
class ModelledIndex {
 public:
  ModelledIndex(uint32_t chunks, uint32_t classes, uint32_t chunkBytes = kChunkBytes,
                uint32_t shift = kChunkShift)
      : m_chunkBytes(chunkBytes), m_classOf(chunks, -1), m_keys(chunks, 0), m_members(classes) {
    started = index.Start(kBase, chunkBytes, shift, chunks, classes);
  }

  ChunkHeader* ChunkAt(uint32_t number) const {
    return reinterpret_cast<ChunkHeader*>(kBase + uintptr_t(number) * m_chunkBytes);
  }
  int ClassOf(uint32_t chunk) const { return m_classOf[chunk]; }
  bool IsMember(uint32_t chunk) const {
    return m_classOf[chunk] >= 0 && m_members[m_classOf[chunk]].count(m_keys[chunk]) != 0;
  }
  size_t Members(size_t klass) const { return m_members[klass].size(); }

  void Join(uint32_t chunk, size_t klass) {
    m_classOf[chunk] = static_cast<int>(klass);
    m_keys[chunk] = ++m_joins;
    index.Join(ChunkAt(chunk));
  }
  void Insert(uint32_t chunk) {
    size_t klass = static_cast<size_t>(m_classOf[chunk]);
    m_members[klass][m_keys[chunk]] = chunk;
    index.Insert(klass, ChunkAt(chunk));
  }
  void Remove(uint32_t chunk) {
    size_t klass = static_cast<size_t>(m_classOf[chunk]);
    m_members[klass].erase(m_keys[chunk]);
    index.Remove(klass, ChunkAt(chunk));
  }
  void RemoveFirst(size_t klass) {
    m_members[klass].erase(m_members[klass].begin());
    index.RemoveFirst(klass);
  }

  // Everything the index answers for the class, and for chunk.
  void Check(size_t klass, uint32_t chunk) const {
    const std::map<uint64_t, uint32_t>& members = m_members[klass];
    ChunkHeader* first = members.empty() ? nullptr : ChunkAt(members.begin()->second);
    ASSERT_EQ(index.First(klass), first);
    ASSERT_EQ(index.CountMembers(klass), static_cast<long>(members.size()));
    if (first != nullptr) {
      ASSERT_EQ(index.HoldsOnly(klass, first), members.size() == 1);
    }
    ASSERT_EQ(index.Contains(ChunkAt(chunk)), IsMember(chunk));
    ASSERT_EQ(index.HoldsOnly(klass, ChunkAt(chunk)),
              members.size() == 1 && first == ChunkAt(chunk));
    if (m_classOf[chunk] >= 0) {
      ASSERT_EQ(index.JoinNumber(ChunkAt(chunk)), m_keys[chunk]);
    }
  }
  void CheckAll() const {
    for (size_t klass = 0; klass < m_members.size(); ++klass) {
      ASSERT_NO_FATAL_FAILURE(Check(klass, 0));
    }
  }

  FirstFreeIndex index;
  bool started;

 private:
  uint32_t m_chunkBytes;
  std::vector<int> m_classOf;
  std::vector<uint64_t> m_keys;
  std::vector<std::map<uint64_t, uint32_t> > m_members;
  uint64_t m_joins = 0;
};

TEST(FirstFreeIndexTest, StartsEmptyAndRefusesNoChunksOrClasses) {
  FirstFreeIndex index;
  EXPECT_FALSE(index.Active());
  EXPECT_FALSE(index.Start(kBase, kChunkBytes, kChunkShift, 0, 4));
  EXPECT_FALSE(index.Start(kBase, kChunkBytes, kChunkShift, 16, 0));
  EXPECT_FALSE(index.Active());
  ASSERT_TRUE(index.Start(kBase, kChunkBytes, kChunkShift, 16, 4));
  EXPECT_TRUE(index.Active());
  EXPECT_EQ(index.Classes(), 4u);
  for (size_t klass = 0; klass < 4; ++klass) {
    EXPECT_EQ(index.First(klass), nullptr);
    EXPECT_EQ(index.Tail(klass), nullptr);
    EXPECT_EQ(index.CountMembers(klass), 0);
  }
  for (uint32_t chunk = 0; chunk < 16; ++chunk) {
    EXPECT_FALSE(index.Contains(Chunk(chunk)));
  }
  index.SetTail(2, Chunk(5));
  EXPECT_EQ(index.Tail(2), Chunk(5));
  index.Stop();
  EXPECT_FALSE(index.Active());
}

// Random joins, insertions and removals over three classes, with the chunk
// size a power of two and not.
void RunRandom(uint32_t seed, uint32_t chunkBytes, uint32_t shift) {
  const uint32_t kChunks = 300;
  const size_t kClasses = 3;
  ModelledIndex modelled(kChunks, kClasses, chunkBytes, shift);
  ASSERT_TRUE(modelled.started);
  std::mt19937 random(seed);
  for (int step = 0; step < 20000; ++step) {
    uint32_t chunk = random() % kChunks;
    size_t klass = random() % kClasses;
    switch (random() % 4) {
      case 0:
        if (!modelled.IsMember(chunk)) {
          modelled.Join(chunk, klass);
        }
        break;
      case 1:
        if (modelled.ClassOf(chunk) >= 0 && !modelled.IsMember(chunk)) {
          modelled.Insert(chunk);
          klass = static_cast<size_t>(modelled.ClassOf(chunk));
        }
        break;
      case 2:
        if (modelled.IsMember(chunk)) {
          klass = static_cast<size_t>(modelled.ClassOf(chunk));
          modelled.Remove(chunk);
        }
        break;
      default:
        if (modelled.Members(klass) != 0) {
          modelled.RemoveFirst(klass);
        }
        break;
    }
    ASSERT_NO_FATAL_FAILURE(modelled.Check(klass, chunk)) << "step " << step;
  }
  ASSERT_NO_FATAL_FAILURE(modelled.CheckAll());
}

TEST(FirstFreeIndexTest, RandomSequencesMatchTheModel) {
  for (uint32_t seed = 1; seed <= 3; ++seed) {
    ASSERT_NO_FATAL_FAILURE(RunRandom(seed, kChunkBytes, kChunkShift));
  }
}

TEST(FirstFreeIndexTest, RandomSequencesMatchTheModelWithChunksOfNoPowerOfTwo) {
  ASSERT_NO_FATAL_FAILURE(RunRandom(4, 48, 0));
}

// The orders in which chunks of one class list get a free block.
enum Order { kFrontToBack, kBackToFront, kBothEnds };

std::vector<uint32_t> Sequence(uint32_t chunks, Order order) {
  std::vector<uint32_t> sequence;
  for (uint32_t k = 0; k < chunks; ++k) {
    if (order == kFrontToBack) {
      sequence.push_back(k);
    } else if (order == kBackToFront) {
      sequence.push_back(chunks - 1 - k);
    } else {
      sequence.push_back(k % 2 == 0 ? k / 2 : chunks - 1 - k / 2);
    }
  }
  return sequence;
}

// Every chunk joins one class; they get a free block in the order given;
// then they fill front to back (the allocations), get a free block again,
// and leave in the order given (emptied).
void RunOrder(uint32_t chunks, Order order) {
  ModelledIndex modelled(chunks, 1);
  ASSERT_TRUE(modelled.started);
  for (uint32_t chunk = 0; chunk < chunks; ++chunk) {
    modelled.Join(chunk, 0);
  }
  std::vector<uint32_t> sequence = Sequence(chunks, order);
  for (uint32_t chunk : sequence) {
    modelled.Insert(chunk);
    ASSERT_NO_FATAL_FAILURE(modelled.Check(0, chunk));
  }
  for (uint32_t k = 0; k < chunks; ++k) {
    modelled.RemoveFirst(0);
    ASSERT_NO_FATAL_FAILURE(modelled.Check(0, k));
  }
  for (uint32_t chunk : sequence) {
    modelled.Insert(chunk);
  }
  for (uint32_t chunk : sequence) {
    modelled.Remove(chunk);
    ASSERT_NO_FATAL_FAILURE(modelled.Check(0, chunk));
  }
}

TEST(FirstFreeIndexTest, ChunksGettingAFreeBlockFrontToBackMatchTheModel) {
  RunOrder(1000, kFrontToBack);
}

TEST(FirstFreeIndexTest, ChunksGettingAFreeBlockBackToFrontMatchTheModel) {
  RunOrder(1000, kBackToFront);
}

TEST(FirstFreeIndexTest, ChunksGettingAFreeBlockFromBothEndsMatchTheModel) {
  RunOrder(1000, kBothEnds);
}

// The height after each phase of the orders above and of removals from the
// middle, with 64 000 chunks in one class, is within the bound of any
// red-black tree of that many nodes.
TEST(FirstFreeIndexTest, TreesStayWithinTheRedBlackHeightBound) {
  const uint32_t kChunks = 64000;
  FirstFreeIndex index;
  ASSERT_TRUE(index.Start(kBase, kChunkBytes, kChunkShift, kChunks, 1));
  FirstFreeIndexInspector inspector(index);
  for (uint32_t chunk = 0; chunk < kChunks; ++chunk) {
    index.Join(Chunk(chunk));
  }
  const Order orders[] = {kFrontToBack, kBackToFront, kBothEnds};
  for (Order order : orders) {
    std::vector<uint32_t> sequence = Sequence(kChunks, order);
    for (uint32_t k = 0; k < kChunks; ++k) {
      index.Insert(0, Chunk(sequence[k]));
      // Sampled: measuring the height walks the whole tree.
      if ((k & (k + 1)) == 0) {
        ASSERT_LE(inspector.Height(0), HeightBound(k + 1)) << "order " << order << ", " << k;
      }
    }
    ASSERT_EQ(index.CountMembers(0), long(kChunks));
    ASSERT_LE(inspector.Height(0), HeightBound(kChunks)) << "order " << order;
    // Every other chunk leaves, in the same order: holes all along the list.
    for (uint32_t k = 0; k < kChunks; k += 2) {
      index.Remove(0, Chunk(sequence[k]));
    }
    ASSERT_EQ(index.CountMembers(0), long(kChunks / 2));
    ASSERT_LE(inspector.Height(0), HeightBound(kChunks / 2)) << "order " << order;
    for (uint32_t k = 0; k < kChunks / 4; ++k) {
      index.RemoveFirst(0);
    }
    ASSERT_EQ(index.CountMembers(0), long(kChunks / 4));
    ASSERT_LE(inspector.Height(0), HeightBound(kChunks / 4)) << "order " << order;
    for (uint32_t k = 1; k < kChunks; k += 2) {
      if (index.Contains(Chunk(sequence[k]))) {
        index.Remove(0, Chunk(sequence[k]));
      }
    }
    ASSERT_EQ(index.First(0), nullptr);
    ASSERT_EQ(index.CountMembers(0), 0);
  }
}

// Chunks 0 to 100 of one class get a free block front to back: chunk 0 is
// the first, held ahead of a tree of the other 100, which has black and red
// nodes at several depths.
class FirstFreeIndexBrokenTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(index.Start(kBase, kChunkBytes, kChunkShift, 128, 2));
    for (uint32_t chunk = 0; chunk <= 100; ++chunk) {
      index.Join(Chunk(chunk));
      index.Insert(0, Chunk(chunk));
    }
    ASSERT_EQ(index.CountMembers(0), 101);
    ASSERT_TRUE(inspector.FirstHeldAhead(0));
    root = inspector.Root(0);
    ASSERT_NE(inspector.Left(root), nullptr);
    ASSERT_NE(inspector.Right(root), nullptr);
  }

  // A black node with two children, below the root.
  ChunkHeader* InnerBlackNode() {
    ChunkHeader* chunk = inspector.Right(root);
    while (inspector.IsRed(chunk) || inspector.Left(chunk) == nullptr ||
           inspector.Right(chunk) == nullptr) {
      chunk = inspector.Right(chunk);
    }
    return chunk;
  }

  FirstFreeIndex index;
  FirstFreeIndexInspector inspector{index};
  ChunkHeader* root = nullptr;
};

TEST_F(FirstFreeIndexBrokenTest, AWrongParentLinkIsFound) {
  ChunkHeader* chunk = InnerBlackNode();
  inspector.SetParent(inspector.Left(chunk), root);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, AChildLinkToANodeOutOfOrderIsFound) {
  ChunkHeader* chunk = InnerBlackNode();
  ChunkHeader* left = inspector.Left(chunk);
  ChunkHeader* right = inspector.Right(chunk);
  inspector.SetLeft(chunk, right);
  inspector.SetRight(chunk, left);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, ALinkBackUpTheTreeIsFound) {
  ChunkHeader* chunk = InnerBlackNode();
  ChunkHeader* leaf = chunk;
  while (inspector.Right(leaf) != nullptr) {
    leaf = inspector.Right(leaf);
  }
  inspector.SetRight(leaf, root);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, ALinkOutOfTheChunksIsFound) {
  ChunkHeader* chunk = InnerBlackNode();
  ChunkHeader* leaf = chunk;
  while (inspector.Right(leaf) != nullptr) {
    leaf = inspector.Right(leaf);
  }
  inspector.SetRight(leaf, Chunk(1000));
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, AnUnbalancedTreeIsFound) {
  // A red node turned black: its paths have a black node more.
  ChunkHeader* chunk = root;
  while (!inspector.IsRed(chunk)) {
    chunk = inspector.Right(chunk);
    ASSERT_NE(chunk, nullptr);
  }
  inspector.SetRed(chunk, false);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, ARedNodeUnderARedNodeIsFound) {
  // A black node with two red children under a red parent turns red and
  // its children black: every path keeps its black count, but two red
  // nodes follow each other.
  ChunkHeader* flipped = nullptr;
  for (uint32_t chunk = 1; chunk <= 100 && flipped == nullptr; ++chunk) {
    ChunkHeader* node = Chunk(chunk);
    ChunkHeader* parent = inspector.Parent(node);
    if (parent != nullptr && inspector.IsRed(parent) && !inspector.IsRed(node) &&
        inspector.Left(node) != nullptr && inspector.IsRed(inspector.Left(node)) &&
        inspector.Right(node) != nullptr && inspector.IsRed(inspector.Right(node))) {
      flipped = node;
    }
  }
  ASSERT_NE(flipped, nullptr);
  inspector.SetRed(flipped, true);
  inspector.SetRed(inspector.Left(flipped), false);
  inspector.SetRed(inspector.Right(flipped), false);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, ARedRootIsFound) {
  inspector.SetRed(root, true);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, AMemberFlagLostIsFound) {
  inspector.SetMember(InnerBlackNode(), false);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, AKeyOutOfOrderIsFound) {
  inspector.SetKey(InnerBlackNode(), 1000);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, AFirstThatIsNotTheLeftmostIsFound) {
  // With the first held ahead gone, the first is the tree's leftmost.
  index.RemoveFirst(0);
  ASSERT_FALSE(inspector.FirstHeldAhead(0));
  ASSERT_EQ(index.CountMembers(0), 100);
  inspector.SetFirst(0, root);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, ALastThatIsNotTheRightmostIsFound) {
  inspector.SetLast(0, root);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, AFirstWithAParentCycleIsFound) {
  // The first's parent chain loops: the root's parent is the first.
  index.RemoveFirst(0);
  ASSERT_FALSE(inspector.FirstHeldAhead(0));
  inspector.SetParent(root, index.First(0));
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, AFirstHeldAheadThatDoesNotNameTheLeftmostIsFound) {
  inspector.SetLeft(index.First(0), root);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, AFirstHeldAheadAfterTheLeftmostIsFound) {
  inspector.SetKey(index.First(0), 1000);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, AFirstHeldAheadWithAParentIsFound) {
  inspector.SetParent(index.First(0), root);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, ATreeNodeMarkedAsHeldAheadIsFound) {
  inspector.SetHeldAhead(InnerBlackNode());
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, ALoneFirstHeldAheadThatIsNotLastIsFound) {
  FirstFreeIndex lone;
  ASSERT_TRUE(lone.Start(kBase, kChunkBytes, kChunkShift, 8, 1));
  lone.Join(Chunk(3));
  lone.Insert(0, Chunk(3));
  ASSERT_EQ(lone.CountMembers(0), 1);
  EXPECT_TRUE(lone.HoldsOnly(0, Chunk(3)));
  FirstFreeIndexInspector(lone).SetLast(0, Chunk(4));
  EXPECT_EQ(lone.CountMembers(0), -1);
}

// The pool over the index: 300 full chunks of one class get a free block
// front to back, back to front and from both ends, then fill again; the
// allocations take the freed blocks front to back, and the pool's
// invariants (the index's among them) hold after every call.
class FirstFreeIndexPoolTest : public PoolTest {};

TEST_F(FirstFreeIndexPoolTest, ChunksGettingAFreeBlockInAnyOrderAreTakenFrontToBack) {
  const uint32_t kChunks = 300;
  const size_t kSize = 512;
  Build(kChunks + 2);
  std::vector<std::vector<void*> > byChunk;
  std::map<uintptr_t, size_t> chunkNumbers;
  for (;;) {
    void* block = pool.Alloc(kSize);
    uintptr_t chunk = reinterpret_cast<uintptr_t>(block) & ~uintptr_t(kChunk - 1);
    if (!pool.Owns(block)) {
      pool.Free(block);
      break;
    }
    if (chunkNumbers.count(chunk) == 0) {
      chunkNumbers[chunk] = byChunk.size();
      byChunk.push_back(std::vector<void*>());
    }
    byChunk[chunkNumbers[chunk]].push_back(block);
  }
  ASSERT_GE(byChunk.size(), size_t(kChunks));
  const Order orders[] = {kFrontToBack, kBackToFront, kBothEnds};
  for (Order order : orders) {
    for (uint32_t chunk : Sequence(static_cast<uint32_t>(byChunk.size()), order)) {
      pool.Free(byChunk[chunk].front());
      ASSERT_TRUE(PoolIsConsistent(pool));
    }
    for (size_t chunk = 0; chunk < byChunk.size(); ++chunk) {
      ASSERT_EQ(pool.Alloc(kSize), byChunk[chunk].front());
      ASSERT_TRUE(PoolIsConsistent(pool));
    }
  }
}

}  // namespace
}  // namespace QuendalTest
