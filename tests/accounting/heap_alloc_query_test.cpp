// The accounting table, the four sums and the queries that copy them out.
// Every test runs in a process of its own, so the table starts empty and the
// library uninitialised.
#include <gtest/gtest.h>

#include <string.h>

#include "heap/the_heap.h"
#include "quendal/accounting.h"

namespace {

using Quendal::Heap::InitNeeded;

const unsigned char kRecordsFill = 0xAB;

// An array of records followed by a canary record that must stay as filled.
template <size_t N>
struct Records {
  Records() { memset(this, kRecordsFill, sizeof(*this)); }
  QDCurrentHeapAlloc slots[N];
  QDCurrentHeapAlloc canary;

  bool SlotIsFilled(size_t i) const { return IsFilled(&slots[i], sizeof(slots[i])); }
  bool CanaryIsIntact() const { return IsFilled(&canary, sizeof(canary)); }
  static bool IsFilled(const void* memory, size_t size) {
    const unsigned char* bytes = static_cast<const unsigned char*>(memory);
    for (size_t i = 0; i < size; ++i) {
      if (bytes[i] != kRecordsFill) {
        return false;
      }
    }
    return true;
  }
};

bool IsZero(const QDCurrentHeapAlloc& record) {
  return record.moduleId == 0 && record.subModuleId == 0 && record.used == 0 &&
         record.maxUsed == 0 && record.count == 0 && record.reserved == 0;
}

unsigned long Key(unsigned short module, unsigned short subModule) {
  return (static_cast<unsigned long>(module) << 16) | subModule;
}

// Entries 1..n with module i and sub-module 0.
void FillTable(unsigned short entries) {
  for (unsigned short i = 1; i <= entries; ++i) {
    (*getModuleMemMap())[Key(i, 0)].used = i;
  }
}

TEST(HeapAllocQueryTest, SentinelsAreThe32BitAllOnesValuesOnEveryTarget) {
  EXPECT_EQ(4294967295ul, QDgetHeapAllocEmptyTable);
  EXPECT_EQ(4294967294ul, QDgetHeapAllocNullSums);
  EXPECT_EQ(4294967295ul, QDgetModuleIdMappingEmptyTable);
}

TEST(HeapAllocQueryTest, RecordsHaveTheSameLayoutOnEveryTarget) {
  EXPECT_EQ(20u, sizeof(QDCurrentHeapAlloc));
  EXPECT_EQ(2u, offsetof(QDCurrentHeapAlloc, subModuleId));
  EXPECT_EQ(12u, offsetof(QDCurrentHeapAlloc, count));
  EXPECT_EQ(16u, sizeof(QDSumHeapAlloc));
  EXPECT_EQ(4u, offsetof(QDSumHeapAlloc, sumMaxVal));
  EXPECT_EQ(8u, offsetof(QDSumHeapAlloc, curAddStorage));
  EXPECT_EQ(4u, sizeof(*getCurVal()));
}

TEST(HeapAllocQueryTest, EmptyTableGivesAllOnesAndLeavesAll256RecordsAndSumsZero) {
  Records<256> records;
  QDSumHeapAlloc sums;
  memset(&sums, kRecordsFill, sizeof(sums));
  EXPECT_EQ(4294967295ul, QDgetHeapAlloc(records.slots, &sums));
  for (size_t i = 0; i < 256; ++i) {
    EXPECT_TRUE(IsZero(records.slots[i])) << "record " << i;
  }
  EXPECT_TRUE(records.CanaryIsIntact());
  EXPECT_EQ(0, sums.maxAddStorage);
  EXPECT_EQ(0, sums.sumMaxVal);
  EXPECT_EQ(0, sums.curAddStorage);
  EXPECT_EQ(0, sums.curVal);
}

TEST(HeapAllocQueryTest, NullSumsGivesAllOnesMinusOneAndWritesNothing) {
  ASSERT_EQ(1, InitNeeded());
  Records<256> records;
  EXPECT_EQ(4294967294ul, QDgetHeapAlloc(records.slots, nullptr));
  for (size_t i = 0; i < 256; ++i) {
    EXPECT_TRUE(records.SlotIsFilled(i)) << "record " << i;
  }
  // The lazy initialisation ran all the same.
  EXPECT_EQ(0, InitNeeded());
}

TEST(HeapAllocQueryTest, QueryInitialisesTheLibraryOnFirstCall) {
  ASSERT_EQ(1, InitNeeded());
  QDSumHeapAlloc sums;
  QDCurrentHeapAlloc records[256];
  QDgetHeapAlloc(records, &sums);
  EXPECT_EQ(0, InitNeeded());
}

TEST(HeapAllocQueryTest, SumsAreZeroAtLoad) {
  EXPECT_EQ(0, *getMaxAddStorage());
  EXPECT_EQ(0, *getSumMaxVal());
  EXPECT_EQ(0, *getCurAddStorage());
  EXPECT_EQ(0, *getCurVal());
}

TEST(HeapAllocQueryTest, SumsSetThroughAccessorsAreDeliveredWithAnEmptyTable) {
  *getMaxAddStorage() = 11;
  *getSumMaxVal() = 22;
  *getCurAddStorage() = 33;
  *getCurVal() = -44;
  Records<257> records;
  QDSumHeapAlloc sums;
  unsigned long count = 99;
  EXPECT_FALSE(AllocMemoryTable::getHeapAlloc(count, records.slots, sums));
  EXPECT_EQ(0ul, count);
  EXPECT_EQ(11, sums.maxAddStorage);
  EXPECT_EQ(22, sums.sumMaxVal);
  EXPECT_EQ(33, sums.curAddStorage);
  EXPECT_EQ(-44, sums.curVal);
  EXPECT_TRUE(records.SlotIsFilled(0));

  QDSumHeapAlloc exported;
  EXPECT_EQ(4294967295ul, QDgetHeapAlloc(records.slots, &exported));
  EXPECT_EQ(22, exported.sumMaxVal);
  EXPECT_EQ(-44, exported.curVal);
}

TEST(HeapAllocQueryTest, KeyWithThreeAboveAndTwoBelowGivesModuleThreeSubModuleTwo) {
  AllocMemoryTable::mapHeapAllocData& value = (*getModuleMemMap())[Key(3, 2)];
  value.used = 100;
  value.maxUsed = 250;
  value.count = -7;
  Records<257> records;
  QDSumHeapAlloc sums;
  unsigned long count = 0;
  EXPECT_TRUE(AllocMemoryTable::getHeapAlloc(count, records.slots, sums));
  EXPECT_EQ(1ul, count);
  EXPECT_EQ(3, records.slots[0].moduleId);
  EXPECT_EQ(2, records.slots[0].subModuleId);
  EXPECT_EQ(100, records.slots[0].used);
  EXPECT_EQ(250, records.slots[0].maxUsed);
  EXPECT_EQ(-7, records.slots[0].count);
  // reserved is not written by the library's query.
  EXPECT_TRUE(Records<1>::IsFilled(&records.slots[0].reserved, sizeof(uint32_t)));
  EXPECT_TRUE(records.SlotIsFilled(1));
}

TEST(HeapAllocQueryTest, ExportedQueryZeroesReservedAndReturnsTheEntryCount) {
  (*getModuleMemMap())[Key(3, 2)].used = 1;
  (*getModuleMemMap())[Key(4, 0)].used = 2;
  Records<256> records;
  QDSumHeapAlloc sums;
  EXPECT_EQ(2ul, QDgetHeapAlloc(records.slots, &sums));
  EXPECT_EQ(0u, records.slots[0].reserved);
  EXPECT_TRUE(IsZero(records.slots[2]));
  EXPECT_TRUE(records.CanaryIsIntact());
}

TEST(HeapAllocQueryTest, RecordsFollowTheTablesWalkOrder) {
  // Key >> 2 modulo 17: module 1 lands in bucket (65536 >> 2) % 17 = 13,
  // module 0 with sub-module 5 in bucket 1, and sub-module 4 in bucket 1 too.
  (*getModuleMemMap())[Key(1, 0)].used = 1;
  (*getModuleMemMap())[Key(0, 4)].used = 2;
  (*getModuleMemMap())[Key(0, 5)].used = 3;
  Records<257> records;
  QDSumHeapAlloc sums;
  unsigned long count = 0;
  ASSERT_TRUE(AllocMemoryTable::getHeapAlloc(count, records.slots, sums));
  ASSERT_EQ(3ul, count);
  EXPECT_EQ(3, records.slots[0].used);
  EXPECT_EQ(2, records.slots[1].used);
  EXPECT_EQ(1, records.slots[2].used);
}

TEST(HeapAllocQueryTest, MoreThan257EntriesGiveTheFullCountAnd256Records) {
  FillTable(300);
  Records<257> records;
  QDSumHeapAlloc sums;
  unsigned long count = 0;
  EXPECT_TRUE(AllocMemoryTable::getHeapAlloc(count, records.slots, sums));
  EXPECT_EQ(300ul, count);
  EXPECT_FALSE(records.SlotIsFilled(255));
  EXPECT_TRUE(records.SlotIsFilled(256));
  EXPECT_TRUE(records.CanaryIsIntact());
}

TEST(HeapAllocQueryTest, Exactly257EntriesGive257Records) {
  FillTable(257);
  Records<257> records;
  QDSumHeapAlloc sums;
  unsigned long count = 0;
  EXPECT_TRUE(AllocMemoryTable::getHeapAlloc(count, records.slots, sums));
  EXPECT_EQ(257ul, count);
  EXPECT_FALSE(records.SlotIsFilled(256));
  EXPECT_TRUE(records.CanaryIsIntact());
}

TEST(HeapAllocQueryTest, ExportedQueryNeverWritesPast256RecordsWith257Entries) {
  FillTable(257);
  Records<256> records;
  QDSumHeapAlloc sums;
  EXPECT_EQ(257ul, QDgetHeapAlloc(records.slots, &sums));
  EXPECT_TRUE(records.CanaryIsIntact());
  EXPECT_NE(0, records.slots[255].used);
}

TEST(HeapAllocQueryTest, ExportedQueryWithNullRecordsDeliversSumsAndCount) {
  FillTable(3);
  *getCurVal() = 5;
  QDSumHeapAlloc sums;
  EXPECT_EQ(3ul, QDgetHeapAlloc(nullptr, &sums));
  EXPECT_EQ(5, sums.curVal);
}

TEST(HeapAllocQueryTest, WalkOfATableWhoseBucketsWereDiscardedWritesNothing) {
  FillTable(2);
  getModuleMemMap()->AllocBucketTable(17);
  Records<257> records;
  QDSumHeapAlloc sums;
  unsigned long count = 0;
  EXPECT_TRUE(AllocMemoryTable::getHeapAlloc(count, records.slots, sums));
  EXPECT_EQ(2ul, count);
  EXPECT_TRUE(records.SlotIsFilled(0));
}

TEST(HeapAllocQueryTest, TableAndMessagesArrayAreBuiltOnceAndEmpty) {
  AllocMemoryTable::ModuleMemMap* table = getModuleMemMap();
  EXPECT_EQ(table, getModuleMemMap());
  EXPECT_EQ(0u, table->GetCount());
  EXPECT_EQ(17u, table->GetBucketCount());
  MessagesWrittenArray* messages = getMessagesWritten();
  EXPECT_EQ(messages, getMessagesWritten());
  EXPECT_EQ(0u, messages->GetSize());
  EXPECT_EQ(nullptr, messages->GetData());
}

}  // namespace
