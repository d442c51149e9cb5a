// The first-free index against a plain model (per class, the set of join
// numbers of its chunks with a free block), under seeded random sequences
// and under the orders that are hardest on a tree: chunks getting a free
// block front to back, back to front and from both ends at once. The index
// never reads a chunk, so its chunks are addresses with nothing behind them.
#include <gtest/gtest.h>

#include <stdint.h>

#include <algorithm>
#include <map>
#include <random>
#include <vector>

#include "heap/first_free_index.h"
#include "heap/pool_fixture.h"
#include "heap/pool_invariants.h"

namespace Quendal {
namespace Heap {

// The trees' shape, and a way to break them, for the tests below. Nodes
// are named by number, 0 for none.
class FirstFreeIndexInspector {
 public:
  explicit FirstFreeIndexInspector(FirstFreeIndex& index) : m_index(index) {}

  static uint32_t Width() { return FirstFreeIndex::kWidth; }
  static uint32_t MinEntries() { return FirstFreeIndex::kMinEntries; }

  // Levels of the class's tree, 0 when it is empty.
  uint32_t Height(size_t index) const { return m_index.m_trees[index].height; }
  uint32_t Root(size_t index) const {
    const FirstFreeIndex::Tree& tree = m_index.m_trees[index];
    return tree.height != 0 ? tree.leftmost[tree.height - 1] : 0;
  }
  // Nodes in use in all classes, and the most there can be.
  uint32_t NodesInUse() const {
    uint32_t free = 0;
    for (uint32_t node = m_index.m_freeNodes; node != 0; node = m_index.m_nodes[node].items[0]) {
      ++free;
    }
    return m_index.m_nodesTaken - free;
  }
  uint32_t NodeCount() const { return m_index.m_nodeCount; }
  // Whether the class's first is held ahead of its tree.
  bool FirstHeldAhead(size_t index) const {
    return m_index.m_first[index] != nullptr &&
           SlotOf(m_index.m_first[index]).where == FirstFreeIndex::kAhead;
  }

  uint32_t Count(uint32_t node) const { return m_index.m_nodes[node].count; }
  uint32_t Item(uint32_t node, uint32_t entry) const { return m_index.m_nodes[node].items[entry]; }
  uint64_t Key(uint32_t node, uint32_t entry) const { return m_index.m_nodes[node].keys[entry]; }
  ChunkHeader* ChunkOf(uint32_t number) const { return m_index.ChunkOfNumber(number); }

  void SetCount(uint32_t node, uint32_t count) { m_index.m_nodes[node].count = count; }
  void SetItem(uint32_t node, uint32_t entry, uint32_t item) {
    m_index.m_nodes[node].items[entry] = item;
  }
  void SetKey(uint32_t node, uint32_t entry, uint64_t key) {
    m_index.m_nodes[node].keys[entry] = key;
  }
  void SetHeight(size_t index, uint32_t height) { m_index.m_trees[index].height = height; }
  // The leftmost node of a level, 0 for the leaves.
  void SetLeftmost(size_t index, uint32_t level, uint32_t node) {
    m_index.m_trees[index].leftmost[level] = node;
  }
  void SetRightLeaf(size_t index, uint32_t node) { m_index.m_trees[index].rightLeaf = node; }
  void SetOutside(const ChunkHeader* chunk) { SlotOf(chunk).where = FirstFreeIndex::kOutside; }
  void SetHeldAhead(const ChunkHeader* chunk) { SlotOf(chunk).where = FirstFreeIndex::kAhead; }
  void SetJoinNumber(const ChunkHeader* chunk, uint64_t key) { SlotOf(chunk).key = key; }
  void SetFirst(size_t index, ChunkHeader* chunk) { m_index.m_first[index] = chunk; }

 private:
  FirstFreeIndex::Slot& SlotOf(const ChunkHeader* chunk) const {
    return m_index.m_slots[m_index.Number(chunk)];
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

// The most levels a tree of n entries can have: its root has two entries or
// more, every other node at least the least fill, so n >= 2 * least^(h - 1).
uint32_t HeightBound(size_t entries) {
  uint32_t levels = 1;
  uint64_t least = 2 * FirstFreeIndexInspector::MinEntries();
  while (least <= entries) {
    ++levels;
    least *= FirstFreeIndexInspector::MinEntries();
  }
  return levels;
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

// The levels and the nodes in use after each phase of the orders above and
// of removals from the middle, with 64 000 chunks in one class, are within
// the bounds of any tree of that many entries.
TEST(FirstFreeIndexTest, TreesStayWithinTheHeightAndNodeBounds) {
  const uint32_t kChunks = 64000;
  FirstFreeIndex index;
  ASSERT_TRUE(index.Start(kBase, kChunkBytes, kChunkShift, kChunks, 1));
  FirstFreeIndexInspector inspector(index);
  for (uint32_t chunk = 0; chunk < kChunks; ++chunk) {
    index.Join(Chunk(chunk));
  }
  // The first is held ahead: the tree has one entry fewer than the class.
  auto withinBounds = [&](uint32_t members) {
    uint32_t entries = members - (inspector.FirstHeldAhead(0) ? 1 : 0);
    return inspector.Height(0) <= HeightBound(entries) &&
           inspector.NodesInUse() <= entries / (FirstFreeIndexInspector::MinEntries() - 1) + 1;
  };
  const Order orders[] = {kFrontToBack, kBackToFront, kBothEnds};
  for (Order order : orders) {
    std::vector<uint32_t> sequence = Sequence(kChunks, order);
    for (uint32_t k = 0; k < kChunks; ++k) {
      index.Insert(0, Chunk(sequence[k]));
      // Sampled: counting the nodes in use walks the free ones.
      if ((k & (k + 1)) == 0) {
        ASSERT_TRUE(withinBounds(k + 1)) << "order " << order << ", " << k;
      }
    }
    ASSERT_TRUE(withinBounds(kChunks)) << "order " << order;
    ASSERT_EQ(index.CountMembers(0), long(kChunks));
    // Every other chunk leaves, in the same order: holes all along the list.
    for (uint32_t k = 0; k < kChunks; k += 2) {
      index.Remove(0, Chunk(sequence[k]));
      if ((k & (k + 2)) == 0) {
        ASSERT_TRUE(withinBounds(kChunks - k / 2 - 1)) << "order " << order << ", " << k;
      }
    }
    ASSERT_TRUE(withinBounds(kChunks / 2)) << "order " << order;
    ASSERT_EQ(index.CountMembers(0), long(kChunks / 2));
    for (uint32_t k = 0; k < kChunks / 4; ++k) {
      index.RemoveFirst(0);
    }
    ASSERT_EQ(index.CountMembers(0), long(kChunks / 4));
    ASSERT_TRUE(withinBounds(kChunks / 4)) << "order " << order;
    for (uint32_t k = 1; k < kChunks; k += 2) {
      if (index.Contains(Chunk(sequence[k]))) {
        index.Remove(0, Chunk(sequence[k]));
      }
    }
    ASSERT_EQ(index.First(0), nullptr);
    ASSERT_EQ(index.CountMembers(0), 0);
    ASSERT_EQ(inspector.NodesInUse(), 0u);
  }
}

// Two chunks in each of 600 classes and the rest in four large classes,
// all with a free block, then random insertions and removals: the nodes
// counted out at the start, one per class beyond a sixth of the chunks,
// never run short.
TEST(FirstFreeIndexTest, TheNodesSufficeWithEveryClassInUse) {
  const uint32_t kChunks = 3000;
  const uint32_t kClasses = 604;
  const uint32_t kPaired = 1200;
  ModelledIndex modelled(kChunks, kClasses);
  ASSERT_TRUE(modelled.started);
  FirstFreeIndexInspector inspector(modelled.index);
  std::mt19937 random(7);
  for (uint32_t chunk = 0; chunk < kChunks; ++chunk) {
    modelled.Join(chunk, chunk < kPaired ? chunk / 2 : kPaired / 2 + random() % 4);
  }
  for (uint32_t chunk = 0; chunk < kChunks; ++chunk) {
    modelled.Insert(chunk);
  }
  ASSERT_NO_FATAL_FAILURE(modelled.CheckAll());
  // Every small class has a tree of one entry behind its first: more nodes
  // than a sixth of the chunks.
  ASSERT_GT(inspector.NodesInUse(), kChunks / 6);
  ASSERT_LE(inspector.NodesInUse(), inspector.NodeCount());
  for (int step = 0; step < 20000; ++step) {
    uint32_t chunk = random() % kChunks;
    if (modelled.IsMember(chunk)) {
      modelled.Remove(chunk);
    } else {
      modelled.Insert(chunk);
    }
    if (step % 64 == 0) {
      ASSERT_LE(inspector.NodesInUse(), inspector.NodeCount()) << "step " << step;
    }
  }
  ASSERT_NO_FATAL_FAILURE(modelled.CheckAll());
}

// Chunks 0 to 300 of one class get a free block front to back: chunk 0 is
// the first, held ahead of a tree of the other 300 on three levels.
class FirstFreeIndexBrokenTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(index.Start(kBase, kChunkBytes, kChunkShift, 400, 2));
    for (uint32_t chunk = 0; chunk <= 300; ++chunk) {
      index.Join(Chunk(chunk));
      index.Insert(0, Chunk(chunk));
    }
    ASSERT_EQ(index.CountMembers(0), 301);
    ASSERT_TRUE(inspector.FirstHeldAhead(0));
    ASSERT_EQ(inspector.Height(0), 3u);
    root = inspector.Root(0);
    inner = inspector.Item(root, 1);
    leaf = inspector.Item(inner, 1);
  }

  FirstFreeIndex index;
  FirstFreeIndexInspector inspector{index};
  // The root, its second child, and that child's second child, a leaf.
  uint32_t root = 0;
  uint32_t inner = 0;
  uint32_t leaf = 0;
};

TEST_F(FirstFreeIndexBrokenTest, KeysOutOfOrderInALeafAreFound) {
  uint64_t key = inspector.Key(leaf, 1);
  uint32_t chunk = inspector.Item(leaf, 1);
  inspector.SetKey(leaf, 1, inspector.Key(leaf, 2));
  inspector.SetItem(leaf, 1, inspector.Item(leaf, 2));
  inspector.SetKey(leaf, 2, key);
  inspector.SetItem(leaf, 2, chunk);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, AnEntryWhoseChunkHasAnotherJoinNumberIsFound) {
  inspector.SetJoinNumber(inspector.ChunkOf(inspector.Item(leaf, 3)), 100000);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, AnUnderFilledNodeIsFound) {
  inspector.SetCount(leaf, FirstFreeIndexInspector::MinEntries() - 1);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, AnOverFullNodeIsFound) {
  inspector.SetCount(inner, FirstFreeIndexInspector::Width() + 1);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, ABoundAboveItsChildsKeysIsFound) {
  inspector.SetKey(root, 1, inspector.Key(root, 1) + 1);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, ABoundAtOrBelowThePreviousChildsKeysIsFound) {
  inspector.SetKey(root, 1, inspector.Key(root, 1) - 1);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, AChildLinkThatSkipsALevelIsFound) {
  inspector.SetItem(root, 1, leaf);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, ALinkBackUpTheTreeIsFound) {
  inspector.SetItem(inner, inspector.Count(inner) - 1, root);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, ALinkOutOfTheNodesIsFound) {
  inspector.SetItem(inner, 1, 100000);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, AWrongHeightIsFound) {
  inspector.SetHeight(0, 2);
  EXPECT_EQ(index.CountMembers(0), -1);
  inspector.SetHeight(0, 4);
  EXPECT_EQ(index.CountMembers(0), -1);
  inspector.SetHeight(0, 100);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, AnEntryWhoseChunkReadsAsOutsideIsFound) {
  inspector.SetOutside(inspector.ChunkOf(inspector.Item(leaf, 0)));
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, AnEntryWhoseChunkReadsAsHeldAheadIsFound) {
  inspector.SetHeldAhead(inspector.ChunkOf(inspector.Item(leaf, 0)));
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, AWrongLeftmostLeafIsFound) {
  inspector.SetLeftmost(0, 0, leaf);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, AWrongLeftmostInnerNodeIsFound) {
  inspector.SetLeftmost(0, 1, inner);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, AWrongRightmostLeafIsFound) {
  inspector.SetRightLeaf(0, leaf);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, AFirstThatIsNotTheTreesFirstIsFound) {
  // With the first held ahead gone, the first is the tree's first entry.
  index.RemoveFirst(0);
  ASSERT_FALSE(inspector.FirstHeldAhead(0));
  ASSERT_EQ(index.CountMembers(0), 300);
  inspector.SetFirst(0, Chunk(5));
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, AFirstHeldAheadAfterTheTreesFirstIsFound) {
  inspector.SetJoinNumber(index.First(0), 1000);
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, AFirstThatIsNoChunkIsFound) {
  inspector.SetFirst(0, reinterpret_cast<ChunkHeader*>(kBase + 1));
  EXPECT_EQ(index.CountMembers(0), -1);
}

TEST_F(FirstFreeIndexBrokenTest, ATreeInAClassWithoutAFirstIsFound) {
  inspector.SetLeftmost(1, 0, leaf);
  EXPECT_EQ(index.CountMembers(1), -1);
}

TEST_F(FirstFreeIndexBrokenTest, ALoneFirstHeldAheadWithATreeIsFound) {
  index.Join(Chunk(350));
  index.Insert(1, Chunk(350));
  ASSERT_EQ(index.CountMembers(1), 1);
  EXPECT_TRUE(index.HoldsOnly(1, Chunk(350)));
  inspector.SetLeftmost(1, 0, leaf);
  inspector.SetRightLeaf(1, leaf);
  inspector.SetHeight(1, 1);
  EXPECT_EQ(index.CountMembers(1), -1);
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
