// The extra heap singleton and its exported direct entries.
#include <gtest/gtest.h>

#include <string.h>

#include "quendal/extra_heap.h"
#include "quendal/heap.h"
#include "support/allocated_bytes.h"

namespace {

using QuendalTest::AllocatedBytes;

TEST(ExtraHeapTest, NoInstanceBeforeCreation) {
  EXPECT_EQ(ExtraHeap::GetInstance(), nullptr);
}

TEST(ExtraHeapTest, SecondCreateInstanceKeepsTheSameInstance) {
  EXPECT_TRUE(ExtraHeap::CreateInstance());
  ExtraHeap* first = ExtraHeap::GetInstance();
  ASSERT_NE(first, nullptr);
  EXPECT_TRUE(ExtraHeap::CreateInstance());
  EXPECT_EQ(ExtraHeap::GetInstance(), first);
  EXPECT_EQ(ExtraHeap::m_instance, first);
}

TEST(ExtraHeapTest, ReleaseWithoutAnInstanceDoesNothing) {
  ExtraHeap::ReleaseInstance();
  EXPECT_EQ(ExtraHeap::GetInstance(), nullptr);
}

TEST(ExtraHeapTest, ReleaseKeepsBlocksAndCreateReusesTheSameStorage) {
  ExtraHeap::CreateInstance();
  ExtraHeap* first = ExtraHeap::GetInstance();
  void* block = first->Alloc(64);
  memset(block, 7, 64);
  ExtraHeap::ReleaseInstance();
  EXPECT_EQ(ExtraHeap::GetInstance(), nullptr);
  EXPECT_EQ(static_cast<unsigned char*>(block)[63], 7);
  ExtraHeap::CreateInstance();
  EXPECT_EQ(ExtraHeap::GetInstance(), first);
  ExtraHeap::GetInstance()->Free(block);
}

TEST(ExtraHeapTest, ConfiguredSizesAreRecordedButInert) {
  EXPECT_EQ(ExtraHeap::m_initialSize, 65536u);
  EXPECT_EQ(ExtraHeap::m_maxSize, 33554432u);
  ExtraHeap::Configure(1, 2);
  EXPECT_EQ(ExtraHeap::m_initialSize, 1u);
  EXPECT_EQ(ExtraHeap::m_maxSize, 2u);
  ExtraHeap::CreateInstance();
  void* block = ExtraHeap::GetInstance()->Alloc(1 << 20);
  ASSERT_NE(block, nullptr);
  memset(block, 1, 1 << 20);
  ExtraHeap::GetInstance()->Free(block);
}

TEST(ExtraHeapTest, SizeIsAPlaceholderThatLeavesItsOutputAlone) {
  ExtraHeap::CreateInstance();
  void* block = ExtraHeap::GetInstance()->Alloc(48);
  unsigned long size = 12345;
  EXPECT_FALSE(ExtraHeap::GetInstance()->Size(block, &size));
  EXPECT_EQ(size, 12345u);
  EXPECT_FALSE(ExtraHeap::GetInstance()->Size(nullptr, &size));
  ExtraHeap::GetInstance()->Compact();
  ExtraHeap::GetInstance()->Free(block);
}

TEST(ExtraHeapTest, ReAllocPassesThroughToRealloc) {
  ExtraHeap::CreateInstance();
  char* block = static_cast<char*>(ExtraHeap::GetInstance()->ReAlloc(nullptr, 8));
  strcpy(block, "abcdefg");
  block = static_cast<char*>(ExtraHeap::GetInstance()->ReAlloc(block, 4096));
  EXPECT_STREQ(block, "abcdefg");
  ExtraHeap::GetInstance()->Free(block);
}

TEST(ExtraHeapEntriesTest, AllocOfZeroReturnsNullWithoutCallingMalloc) {
  QDHeapInit();
  size_t before = AllocatedBytes();
  EXPECT_EQ(QDExtraHeapAlloc(0), nullptr);
  EXPECT_EQ(AllocatedBytes(), before);
}

TEST(ExtraHeapEntriesTest, ReAllocToZeroReturnsNullEvenWhenReallocReturnsABlock) {
  QDHeapInit();
  {
    // The block realloc(NULL, 0) returns is dropped by design.
    [[maybe_unused]] QuendalTest::LeaksIgnored dropped;
    size_t before = AllocatedBytes();
    EXPECT_EQ(QDExtraHeapReAlloc(nullptr, 0), nullptr);
    // realloc(NULL, 0) did run and handed out a block, which the entry dropped.
    EXPECT_GT(AllocatedBytes(), before);
  }
  void* block = QDExtraHeapAlloc(32);
  EXPECT_EQ(QDExtraHeapReAlloc(block, 0), nullptr);
}

TEST(ExtraHeapEntriesTest, ReAllocOfNullActsAsAnAllocation) {
  char* block = static_cast<char*>(QDExtraHeapReAlloc(nullptr, 32));
  ASSERT_NE(block, nullptr);
  memset(block, 5, 32);
  block = static_cast<char*>(QDExtraHeapReAlloc(block, 64));
  EXPECT_EQ(block[31], 5);
  QDExtraHeapFree(block);
}

TEST(ExtraHeapEntriesTest, EntriesWorkAfterDeInitWithoutAnInstance) {
  QDHeapInit();
  QDHeapDeInit();
  ASSERT_EQ(ExtraHeap::GetInstance(), nullptr);
  void* block = QDExtraHeapAlloc(100);
  ASSERT_NE(block, nullptr);
  block = QDExtraHeapReAlloc(block, 200);
  QDExtraHeapFree(block);
  EXPECT_EQ(ExtraHeap::GetInstance(), nullptr);
}

// After QDHeapDeInit nothing re-creates the instance (initNeeded stays 0),
// yet the pool's overflow keeps working: it goes to the C library directly.
TEST(ExtraHeapEntriesTest, HeapOverflowWorksAfterDeInitWithoutAnInstance) {
  QDHeapInit();
  QDHeapDeInit();
  ASSERT_EQ(ExtraHeap::GetInstance(), nullptr);
  char* large = static_cast<char*>(QDHeapAlloc(4096));
  ASSERT_NE(large, nullptr);
  memset(large, 7, 4096);
  large = static_cast<char*>(QDHeapReAlloc(large, 8192));
  ASSERT_NE(large, nullptr);
  EXPECT_EQ(large[4095], 7);
  QDHeapFree(large);
  EXPECT_EQ(ExtraHeap::GetInstance(), nullptr);
}

}  // namespace
