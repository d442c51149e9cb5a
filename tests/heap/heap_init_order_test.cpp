// The order of the heap's lazy initialisation, watched from the outside: the
// thread key of the classification, the extra heap, the .mem file, then the
// allocator's construction (its lock) and the segment. Also a heap
// entry called while the .mem file is read, before the pool is configured.
#include <gtest/gtest.h>

#include <pthread.h>
#include <string.h>

#include <string>
#include <vector>

#include "heap/the_heap.h"
#include "quendal/extra_heap.h"
#include "quendal/heap.h"
#include "support/scripted_platform.h"

namespace {

using Quendal::Heap::InitNeeded;
using Quendal::Heap::TheHeap;
namespace Scripted = QuendalTest::ScriptedPlatform;

bool recording = false;
std::vector<std::string> events;

void Record(const std::string& event) {
  if (recording) {
    recording = false;  // the vector may allocate: no events of our own
    events.push_back(event);
    recording = true;
  }
}

}  // namespace

// The library is linked statically into this program, so its calls of these
// two functions land here first and go on to the C library's. The heap's
// lock is the first lock of the library here (the module registry is not
// created), so building it installs the fork handlers.
// Sanitizer runtimes create keys while they start, before dlsym can be
// used, so the key goes straight to glibc's own entry.
extern "C" int __pthread_key_create(pthread_key_t* key, void (*destructor)(void*));

extern "C" int pthread_key_create(pthread_key_t* key, void (*destructor)(void*)) {
  Record("thread key");
  return __pthread_key_create(key, destructor);
}

// pthread_atfork itself is a stub of the program that passes its module's
// handle on to glibc.
extern "C" int __register_atfork(void (*prepare)(void), void (*parent)(void), void (*child)(void),
                                 void* module);
extern "C" void* __dso_handle;

extern "C" int pthread_atfork(void (*prepare)(void), void (*parent)(void),
                              void (*child)(void)) throw() {
  Record("fork handlers");
  return __register_atfork(prepare, parent, child, &__dso_handle);
}

namespace {

class HeapInitOrderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Scripted::Reset();
    Scripted::SetExecutablePath("/opt/app/player.bin");
    Scripted::SetFileContents("// pool of the player\nCHUNKS 40  CHUNK_SIZE 1 SEG_SIZE 1\n");
  }
};

TEST_F(HeapInitOrderTest, KeyThenExtraHeapThenMemFileThenAllocatorThenSegment) {
  Scripted::SetLineCallback([](int line) {
    if (line != 1) {
      return;
    }
    EXPECT_EQ(InitNeeded(), 0);
    EXPECT_NE(ExtraHeap::GetInstance(), nullptr);
    EXPECT_EQ(TheHeap::IsInitialized(), 0);
    Record("mem file line");
  });
  recording = true;
  void* block = QDHeapAlloc(32);
  recording = false;

  const std::vector<std::string> expected = {"thread key", "mem file line", "fork handlers"};
  EXPECT_EQ(events, expected);
  ASSERT_EQ(Scripted::OpenedPaths().size(), 1u);
  EXPECT_EQ(Scripted::OpenedPaths()[0], "/opt/app/player.mem");
  Quendal::Heap::Pool& pool = TheHeap::getInstance(false)->GetPool();
  EXPECT_EQ(TheHeap::IsInitialized(), 1);
  EXPECT_EQ(pool.ChunkCount(), 40u);
  EXPECT_NE(pool.Segment(), nullptr);
  EXPECT_TRUE(pool.Owns(block));
  QDHeapFree(block);
}

TEST_F(HeapInitOrderTest, EntryCalledWhileTheMemFileIsReadBuildsTheDefaultPool) {
  void* inner = nullptr;
  Scripted::SetLineCallback([&inner](int line) {
    if (line == 1) {
      // initNeeded is already 0: no second initialisation, but the allocator
      // is constructed and initialised from its construction values.
      inner = QDHeapAlloc(8);
      EXPECT_EQ(InitNeeded(), 0);
      EXPECT_EQ(TheHeap::IsInitialized(), 1);
    }
  });
  ASSERT_EQ(QDHeapInit(), 1);
  EXPECT_EQ(Scripted::CommandNameCalls(), 1);

  Quendal::Heap::Pool& pool = TheHeap::getInstance(false)->GetPool();
  // Configured afterwards with the file's values, but the class table and the
  // segment stay as the construction values sized them.
  EXPECT_EQ(pool.ChunkCount(), 40u);
  EXPECT_EQ(pool.ChunkSize(), 2048u);
  EXPECT_EQ(pool.MaxBlockSize(), 1024u);
  EXPECT_EQ(pool.ClassTableEntries(), 1u);
  // One 16-byte chunk fits only when malloc's block happens to be 16-aligned
  // (8 is all 32-bit ARM promises); a misaligned one loses its only chunk.
  const uint32_t expectedBytes = reinterpret_cast<uintptr_t>(pool.Segment()) % 16 == 0 ? 16u : 0u;
  EXPECT_EQ(pool.SegmentBytes(), expectedBytes);
  ASSERT_NE(inner, nullptr);
  EXPECT_FALSE(pool.Owns(inner));

  // The segment holds no 2048-byte chunk and the table no class
  // beyond the first, so everything goes to the extra heap, unharmed.
  void* small = QDHeapAlloc(8);
  void* larger = QDHeapAlloc(100);
  ASSERT_NE(small, nullptr);
  ASSERT_NE(larger, nullptr);
  EXPECT_FALSE(pool.Owns(small));
  EXPECT_FALSE(pool.Owns(larger));
  memset(larger, 0x5A, 100);
  QDHeapFree(small);
  QDHeapFree(larger);
  QDHeapFree(inner);
}

}  // namespace
