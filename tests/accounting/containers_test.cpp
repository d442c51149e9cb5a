// The keyed containers: the chained hash map with its node blocks and
// built-in cursor, the array, and the lock pointer of both families.
#include <gtest/gtest.h>

#include <stdint.h>

#include <utility>
#include <vector>

#include "counting_allocator.h"
#include "quendal/containers.h"

namespace {

using quendal_test::CountingAllocator;

typedef PIAlloc<PICommonAllocDescriptors::PIMap, CountingAllocator> MapAlloc;
typedef PIAlloc<PICommonAllocDescriptors::PIArray, CountingAllocator> ArrayAlloc;
typedef PIMap<unsigned short, unsigned short, const char*, const char*, NullLocking, MapAlloc>
    NameMap;
typedef PIMapExtL<unsigned short, unsigned short, const char*, const char*, NullLocking, MapAlloc>
    NameMapExtL;

struct Usage {
  int32_t used;
  int32_t maxUsed;
  int32_t count;
};
typedef PIMap<unsigned long, unsigned long, Usage, Usage, NullLocking, MapAlloc> UsageMap;

class ContainerTest : public ::testing::Test {
 protected:
  void SetUp() override { CountingAllocator::Reset(); }
  void TearDown() override { CountingAllocator::Reset(); }
};

template <class Map, class Key, class Value>
std::vector<std::pair<Key, Value> > Walk(Map& map) {
  std::vector<std::pair<Key, Value> > entries;
  map.StartIteration();
  Key key;
  Value value;
  bool hasSuccessor = true;
  while (map.NextEntry(key, value, hasSuccessor)) {
    entries.push_back(std::make_pair(key, value));
  }
  return entries;
}

std::vector<unsigned short> WalkKeys(NameMap& map) {
  std::vector<unsigned short> keys;
  for (const auto& entry : Walk<NameMap, unsigned short, const char*>(map)) {
    keys.push_back(entry.first);
  }
  return keys;
}

TEST_F(ContainerTest, ConstructionSetsSeventeenBucketsBlocksOfTenAndNoTable) {
  NameMap map;
  EXPECT_EQ(17u, map.GetBucketCount());
  EXPECT_EQ(10, map.GetNodesPerBlock());
  EXPECT_EQ(0u, map.GetCount());
  EXPECT_FALSE(map.HasBucketTable());
  EXPECT_TRUE(map.IsIterationDone());
  EXPECT_TRUE(CountingAllocator::sizes.empty());
}

TEST_F(ContainerTest, OperatorBracketOnAbsentKeyReturnsZeroedValueAndCountsOneEntry) {
  UsageMap map;
  Usage& usage = map[7];
  EXPECT_EQ(0, usage.used);
  EXPECT_EQ(0, usage.maxUsed);
  EXPECT_EQ(0, usage.count);
  EXPECT_EQ(1u, map.GetCount());

  NameMap names;
  EXPECT_EQ(nullptr, names[3]);
  EXPECT_EQ(1u, names.GetCount());
}

TEST_F(ContainerTest, OperatorBracketOnPresentKeyReturnsStoredValueAndChangesNothing) {
  NameMap map;
  map[5] = "five";
  const size_t allocations = CountingAllocator::sizes.size();

  const char*& again = map[5];
  EXPECT_STREQ("five", again);
  EXPECT_EQ(&again, &map[5]);
  EXPECT_EQ(1u, map.GetCount());
  EXPECT_EQ(allocations, CountingAllocator::sizes.size());
}

TEST_F(ContainerTest, FirstInsertionAllocatesBucketTableOfBucketCountThenOneBlock) {
  NameMap map;
  map[1] = "a";
  ASSERT_EQ(2u, CountingAllocator::sizes.size());
  EXPECT_EQ(17 * sizeof(void*), CountingAllocator::sizes[0]);
  EXPECT_TRUE(map.HasBucketTable());
}

TEST_F(ContainerTest, KeysZeroToThreeShareOneBucket) {
  NameMap map;
  for (unsigned short key = 0; key < 4; ++key) {
    map[key] = "x";
    EXPECT_EQ(0u, map.BucketOf(key));
  }
  EXPECT_EQ(1u, map.BucketOf(4));
  // One chain, newest first.
  EXPECT_EQ((std::vector<unsigned short>{3, 2, 1, 0}), WalkKeys(map));
}

TEST_F(ContainerTest, KeysKAndKPlus164ShareABucketWithFortyOneBuckets) {
  NameMap map;
  map.AllocBucketTable(41);
  map[1] = "a";
  map[4] = "b";
  map[165] = "c";
  EXPECT_EQ(map.BucketOf(1), map.BucketOf(165));
  // Bucket 0 holds 165 then 1 (newest first); bucket 1 holds 4.
  EXPECT_EQ((std::vector<unsigned short>{165, 1, 4}), WalkKeys(map));
}

TEST_F(ContainerTest, BucketIsKeyShiftedRightByTwoModuloBucketCount) {
  UsageMap map;
  EXPECT_EQ((0x00030002ul >> 2) % 17, map.BucketOf(0x00030002ul));
  EXPECT_EQ(0u, map.BucketOf(68));  // 68 >> 2 = 17
  EXPECT_EQ(16u, map.BucketOf(67));
}

TEST_F(ContainerTest, WalkVisitsBucketsInAscendingOrderNewestFirstWithinEach) {
  NameMap map;
  map[8] = "bucket 2";
  map[0] = "bucket 0, older";
  map[4] = "bucket 1";
  map[1] = "bucket 0, newer";
  EXPECT_EQ((std::vector<unsigned short>{1, 0, 4, 8}), WalkKeys(map));
}

TEST_F(ContainerTest, NextEntryTellsWhetherASuccessorExists) {
  NameMap map;
  map[0] = "a";
  map[40] = "b";
  map.StartIteration();
  unsigned short key = 0;
  const char* value = nullptr;
  bool hasSuccessor = false;
  ASSERT_TRUE(map.NextEntry(key, value, hasSuccessor));
  EXPECT_EQ(0, key);
  EXPECT_STREQ("a", value);
  EXPECT_TRUE(hasSuccessor);
  ASSERT_TRUE(map.NextEntry(key, value, hasSuccessor));
  EXPECT_EQ(40, key);
  EXPECT_FALSE(hasSuccessor);
  EXPECT_TRUE(map.IsIterationDone());
  EXPECT_FALSE(map.NextEntry(key, value, hasSuccessor));
  EXPECT_EQ(40, key);
}

TEST_F(ContainerTest, WalkOverEmptyMapEndsAtOnce) {
  NameMap map;
  map.StartIteration();
  EXPECT_TRUE(map.IsIterationDone());
  unsigned short key = 99;
  const char* value = "untouched";
  bool hasSuccessor = true;
  EXPECT_FALSE(map.NextEntry(key, value, hasSuccessor));
  EXPECT_EQ(99, key);
  EXPECT_STREQ("untouched", value);
}

TEST_F(ContainerTest, StartIterationOnNonEmptyMapStandsBeforeFirstEntry) {
  NameMap map;
  map[2] = "a";
  map.StartIteration();
  EXPECT_FALSE(map.IsIterationDone());
}

TEST_F(ContainerTest, EleventhInsertionAllocatesSecondBlock) {
  NameMap map;
  for (unsigned short key = 0; key < 10; ++key) {
    map[key] = "x";
  }
  ASSERT_EQ(2u, CountingAllocator::sizes.size());  // bucket table and one block
  map[10] = "x";
  ASSERT_EQ(3u, CountingAllocator::sizes.size());
  EXPECT_EQ(CountingAllocator::sizes[1], CountingAllocator::sizes[2]);
  EXPECT_EQ(11u, map.GetCount());
  EXPECT_EQ(11u, WalkKeys(map).size());
}

TEST_F(ContainerTest, RemoveAllFreesBothBlocksAndKeepsBucketCountAndNodesPerBlock) {
  NameMap map;
  map.AllocBucketTable(41);
  for (unsigned short key = 0; key < 11; ++key) {
    map[key] = "x";
  }
  CountingAllocator::sizes.clear();
  map.RemoveAll();
  EXPECT_EQ(3, CountingAllocator::frees);  // the bucket table and two blocks
  EXPECT_EQ(0u, map.GetCount());
  EXPECT_FALSE(map.HasBucketTable());
  EXPECT_EQ(41u, map.GetBucketCount());
  EXPECT_EQ(10, map.GetNodesPerBlock());
  EXPECT_TRUE(WalkKeys(map).empty());

  map[3] = "again";
  ASSERT_EQ(2u, CountingAllocator::sizes.size());
  EXPECT_EQ(41 * sizeof(void*), CountingAllocator::sizes[0]);
  EXPECT_EQ(1u, map.GetCount());
}

TEST_F(ContainerTest, RemoveAllOnEmptyMapFreesNothing) {
  NameMap map;
  map.RemoveAll();
  EXPECT_EQ(0, CountingAllocator::frees);
}

TEST_F(ContainerTest, RemoveAllEndsAWalkInProgress) {
  NameMap map;
  map[0] = "a";
  map[1] = "b";
  map.StartIteration();
  unsigned short key = 0;
  const char* value = nullptr;
  bool hasSuccessor = false;
  ASSERT_TRUE(map.NextEntry(key, value, hasSuccessor));
  ASSERT_TRUE(hasSuccessor);
  map.RemoveAll();
  EXPECT_TRUE(map.IsIterationDone());
  EXPECT_FALSE(map.NextEntry(key, value, hasSuccessor));
}

TEST_F(ContainerTest, AllocBucketTableDiscardsEntriesFromWalksButKeepsTheirCount) {
  NameMap map;
  map[1] = "a";
  map[2] = "b";
  map.AllocBucketTable(41);
  EXPECT_EQ(41u, map.GetBucketCount());
  EXPECT_EQ(2u, map.GetCount());
  map.StartIteration();
  EXPECT_FALSE(map.IsIterationDone());
  // The count says two entries, yet no bucket holds one: the walk ends.
  EXPECT_TRUE(WalkKeys(map).empty());
  EXPECT_TRUE(map.IsIterationDone());

  // A key inserted before is absent now and is inserted anew.
  EXPECT_EQ(nullptr, map[1]);
  EXPECT_EQ(3u, map.GetCount());
  EXPECT_EQ((std::vector<unsigned short>{1}), WalkKeys(map));
}

TEST_F(ContainerTest, AllocBucketTableWithZeroBucketsPutsEveryKeyInBucketZero) {
  NameMap map;
  map.AllocBucketTable(0);
  EXPECT_EQ(0u, map.GetBucketCount());
  EXPECT_EQ(0u, map.BucketOf(400));
  map[400] = "a";
  map[8] = "b";
  EXPECT_EQ((std::vector<unsigned short>{8, 400}), WalkKeys(map));
}

TEST_F(ContainerTest, FailedAllocationInsertsNothingAndHandsOutZeroedScratch) {
  NameMap map;
  CountingAllocator::refuse = true;
  const char*& value = map[4];
  EXPECT_EQ(nullptr, value);
  value = "lost";
  EXPECT_EQ(0u, map.GetCount());
  EXPECT_EQ(nullptr, map[4]);
  CountingAllocator::refuse = false;
  EXPECT_EQ(nullptr, map[4]);
  EXPECT_EQ(1u, map.GetCount());
}

TEST_F(ContainerTest, FailedBlockAllocationAfterTenEntriesKeepsTheTen) {
  NameMap map;
  for (unsigned short key = 0; key < 10; ++key) {
    map[key] = "x";
  }
  CountingAllocator::refuse = true;
  map[10] = "y";
  CountingAllocator::refuse = false;
  EXPECT_EQ(10u, map.GetCount());
  EXPECT_EQ(10u, WalkKeys(map).size());
}

TEST_F(ContainerTest, CursorValueChangesTheEntryVisitedLast) {
  UsageMap map;
  map[0x00010000ul].used = 5;
  map.StartIteration();
  unsigned long key = 0;
  Usage usage;
  bool hasSuccessor = false;
  ASSERT_TRUE(map.NextEntry(key, usage, hasSuccessor));
  map.CursorValue().used = 9;
  EXPECT_EQ(9, map[0x00010000ul].used);
}

TEST_F(ContainerTest, UsageMapStoresThreeWordValues) {
  UsageMap map;
  Usage& usage = map[0x00030002ul];
  usage.used = 10;
  usage.maxUsed = 20;
  usage.count = 3;
  auto entries = Walk<UsageMap, unsigned long, Usage>(map);
  ASSERT_EQ(1u, entries.size());
  EXPECT_EQ(0x00030002ul, entries[0].first);
  EXPECT_EQ(20, entries[0].second.maxUsed);
}

TEST_F(ContainerTest, PIMapSetLockLeavesGetLockReturningTheMapsOwnLock) {
  NameMap map;
  NullLocking* own = map.GetLock();
  ASSERT_NE(nullptr, own);
  NullLocking other;
  map.SetLock(&other);
  EXPECT_EQ(own, map.GetLock());
  map.SetLock(nullptr);
  EXPECT_EQ(own, map.GetLock());
}

TEST_F(ContainerTest, PIMapExtLSetLockStoresThePointer) {
  NameMapExtL map;
  EXPECT_EQ(nullptr, map.GetLock());
  NullLocking lock;
  map.SetLock(&lock);
  EXPECT_EQ(&lock, map.GetLock());
}

TEST_F(ContainerTest, MapDestructorClearsLockPointerThenRemovesAll) {
  NullLocking lock;
  NameMapExtL* map = new NameMapExtL;
  map->SetLock(&lock);
  (*map)[1] = "a";
  std::vector<NullLocking*> locksSeen;
  CountingAllocator::onFree = [&](void*) { locksSeen.push_back(map->GetLock()); };
  delete static_cast<PIObjectExtL<NullLocking>*>(map);
  CountingAllocator::onFree = nullptr;
  ASSERT_EQ(2u, locksSeen.size());  // the bucket table and the block
  EXPECT_EQ(nullptr, locksSeen[0]);
  EXPECT_EQ(nullptr, locksSeen[1]);
}

TEST_F(ContainerTest, PIMapDestructorFreesEverythingThroughTheBase) {
  NameMap* map = new NameMap;
  for (unsigned short key = 0; key < 11; ++key) {
    (*map)[key] = "x";
  }
  delete static_cast<PIObjectExtL<NullLocking>*>(map);
  EXPECT_EQ(3, CountingAllocator::frees);
}

// Gives the tests element storage, which no operation of the library adds.
template <class Array>
class ArrayWithStorage : public Array {
 public:
  void GiveStorage() { this->elements = static_cast<unsigned short*>(CountingAllocator::Alloc(8)); }
};

typedef PIArrayExtL<unsigned short, unsigned short, NullLocking, ArrayAlloc> ArrayExtL;
typedef PIArray<unsigned short, unsigned short, NullLocking, ArrayAlloc> Array;

TEST_F(ContainerTest, ArrayStartsEmptyWithItsOwnLock) {
  Array array;
  EXPECT_EQ(0u, array.GetSize());
  EXPECT_EQ(nullptr, array.GetData());
  EXPECT_NE(nullptr, array.GetLock());
  ArrayExtL base;
  EXPECT_EQ(nullptr, base.GetLock());
}

TEST_F(ContainerTest, EmptyArrayDestructorFreesNothing) {
  { Array array; }
  EXPECT_EQ(0, CountingAllocator::frees);
}

TEST_F(ContainerTest, ArrayExtLDestructorFreesStorageAndLeavesLockPointer) {
  NullLocking lock;
  ArrayWithStorage<ArrayExtL>* array = new ArrayWithStorage<ArrayExtL>;
  array->SetLock(&lock);
  array->GiveStorage();
  std::vector<NullLocking*> locksSeen;
  CountingAllocator::onFree = [&](void*) { locksSeen.push_back(array->GetLock()); };
  delete static_cast<PIObjectExtL<NullLocking>*>(array);
  CountingAllocator::onFree = nullptr;
  ASSERT_EQ(1u, locksSeen.size());
  EXPECT_EQ(&lock, locksSeen[0]);
}

TEST_F(ContainerTest, PIArrayDestructorClearsLockPointerBeforeFreeingStorage) {
  ArrayWithStorage<Array>* array = new ArrayWithStorage<Array>;
  ASSERT_NE(nullptr, array->GetLock());
  array->GiveStorage();
  std::vector<NullLocking*> locksSeen;
  CountingAllocator::onFree = [&](void*) { locksSeen.push_back(array->GetLock()); };
  delete static_cast<PIObjectExtL<NullLocking>*>(array);
  CountingAllocator::onFree = nullptr;
  ASSERT_EQ(1u, locksSeen.size());
  EXPECT_EQ(nullptr, locksSeen[0]);
}

}  // namespace
