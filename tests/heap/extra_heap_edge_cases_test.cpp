// What the extra heap and its direct entries pass to the C library, seen
// through malloc, realloc and free wrapped at link time: sizes passed on
// unchanged, calls left out, and a realloc result that is dropped.
#include <gtest/gtest.h>

#include <stddef.h>

#include <vector>

#include "quendal/extra_heap.h"
#include "quendal/heap.h"

extern "C" void* __real_malloc(size_t size);
extern "C" void* __real_realloc(void* pointer, size_t size);
extern "C" void __real_free(void* pointer);

namespace {

struct CLibraryCall {
  enum Kind { kMalloc, kRealloc, kFree };
  Kind kind;
  void* pointer;
  size_t size;
};

// Fixed storage, so that recording itself never allocates.
const size_t kMaxCalls = 64;
CLibraryCall g_calls[kMaxCalls];
size_t g_callCount = 0;
bool g_recording = false;
// While set, realloc to zero bytes releases the block and hands out this
// one, as a C library may.
void* g_blockForReallocToZero = nullptr;

void Record(CLibraryCall::Kind kind, void* pointer, size_t size) {
  if (g_recording && g_callCount < kMaxCalls) {
    CLibraryCall call = {kind, pointer, size};
    g_calls[g_callCount++] = call;
  }
}

std::vector<CLibraryCall> Calls() {
  return std::vector<CLibraryCall>(g_calls, g_calls + g_callCount);
}

class ExtraHeapCallsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(QDHeapInit(), 1);
    g_callCount = 0;
    g_recording = true;
  }
  void TearDown() override {
    g_recording = false;
    g_blockForReallocToZero = nullptr;
  }
  void StopRecording() { g_recording = false; }
};

}  // namespace

extern "C" void* __wrap_malloc(size_t size) {
  Record(CLibraryCall::kMalloc, nullptr, size);
  return __real_malloc(size);
}

extern "C" void* __wrap_realloc(void* pointer, size_t size) {
  Record(CLibraryCall::kRealloc, pointer, size);
  if (size == 0 && g_blockForReallocToZero != nullptr) {
    __real_free(pointer);
    return g_blockForReallocToZero;
  }
  return __real_realloc(pointer, size);
}

extern "C" void __wrap_free(void* pointer) {
  Record(CLibraryCall::kFree, pointer, 0);
  __real_free(pointer);
}

namespace {

TEST_F(ExtraHeapCallsTest, AllocOfZeroPassesZeroToMalloc) {
  void* block = ExtraHeap::GetInstance()->Alloc(0);
  StopRecording();
  ASSERT_EQ(Calls().size(), 1u);
  EXPECT_EQ(Calls()[0].kind, CLibraryCall::kMalloc);
  EXPECT_EQ(Calls()[0].size, 0u);
  ExtraHeap::GetInstance()->Free(block);
}

TEST_F(ExtraHeapCallsTest, ConfiguredSizesDoNotLimitAllocations) {
  ExtraHeap::Configure(1, 2);
  void* block = ExtraHeap::GetInstance()->Alloc(4096);
  StopRecording();
  ASSERT_NE(block, nullptr);
  ASSERT_EQ(Calls().size(), 1u);
  EXPECT_EQ(Calls()[0].size, 4096u);
  ExtraHeap::GetInstance()->Free(block);
}

TEST_F(ExtraHeapCallsTest, EntryAllocOfZeroCallsNoMalloc) {
  EXPECT_EQ(QDExtraHeapAlloc(0), nullptr);
  StopRecording();
  EXPECT_TRUE(Calls().empty());
}

TEST_F(ExtraHeapCallsTest, EntryReAllocToZeroDropsTheBlockReallocReturns) {
  void* block = QDExtraHeapAlloc(32);
  void* handedOut = __real_malloc(16);
  g_blockForReallocToZero = handedOut;
  g_callCount = 0;
  EXPECT_EQ(QDExtraHeapReAlloc(block, 0), nullptr);
  StopRecording();
  ASSERT_EQ(Calls().size(), 1u);
  EXPECT_EQ(Calls()[0].kind, CLibraryCall::kRealloc);
  EXPECT_EQ(Calls()[0].pointer, block);
  EXPECT_EQ(Calls()[0].size, 0u);
  __real_free(handedOut);
}

TEST_F(ExtraHeapCallsTest, EntryReAllocOfNullAllocatesThroughRealloc) {
  void* block = QDExtraHeapReAlloc(nullptr, 40);
  StopRecording();
  ASSERT_NE(block, nullptr);
  ASSERT_EQ(Calls().size(), 1u);
  EXPECT_EQ(Calls()[0].kind, CLibraryCall::kRealloc);
  EXPECT_EQ(Calls()[0].pointer, nullptr);
  EXPECT_EQ(Calls()[0].size, 40u);
  QDExtraHeapFree(block);
}

TEST_F(ExtraHeapCallsTest, EntryFreeOfNullCallsNoFree) {
  QDExtraHeapFree(nullptr);
  StopRecording();
  EXPECT_TRUE(Calls().empty());
}

TEST_F(ExtraHeapCallsTest, EntryFreeOfABlockCallsFreeWithIt) {
  void* block = QDExtraHeapAlloc(24);
  g_callCount = 0;
  QDExtraHeapFree(block);
  StopRecording();
  ASSERT_EQ(Calls().size(), 1u);
  EXPECT_EQ(Calls()[0].kind, CLibraryCall::kFree);
  EXPECT_EQ(Calls()[0].pointer, block);
}

// A request above the largest pooled size reaches the extra heap, and so
// does its release: the C library sees both.
TEST_F(ExtraHeapCallsTest, HeapFreeOfALargeBlockReachesFree) {
  void* large = QDHeapAlloc(4000);
  g_callCount = 0;
  QDHeapFree(large);
  StopRecording();
  ASSERT_EQ(Calls().size(), 1u);
  EXPECT_EQ(Calls()[0].kind, CLibraryCall::kFree);
  EXPECT_EQ(Calls()[0].pointer, large);
}

TEST_F(ExtraHeapCallsTest, HeapReAllocOfNullIsReallocAndItsReleaseReachesFree) {
  void* block = QDHeapReAlloc(nullptr, 16);
  ASSERT_NE(block, nullptr);
  ASSERT_EQ(Calls().size(), 1u);
  EXPECT_EQ(Calls()[0].kind, CLibraryCall::kRealloc);
  EXPECT_EQ(Calls()[0].pointer, nullptr);
  g_callCount = 0;
  QDHeapFree(block);
  StopRecording();
  ASSERT_EQ(Calls().size(), 1u);
  EXPECT_EQ(Calls()[0].kind, CLibraryCall::kFree);
  EXPECT_EQ(Calls()[0].pointer, block);
}

TEST_F(ExtraHeapCallsTest, HeapAllocOfZeroCallsNothing) {
  EXPECT_EQ(QDHeapAlloc(0), nullptr);
  StopRecording();
  EXPECT_TRUE(Calls().empty());
}

}  // namespace
