// Where the reader's memory comes from and goes, with malloc and free wrapped
// at link time and operator new replaced so that both can fail on cue.
#include <gtest/gtest.h>

#include <stdlib.h>

#include <algorithm>
#include <new>
#include <set>
#include <string>

#include "reader_fixture.h"

extern "C" void* __real_malloc(size_t size);
extern "C" void __real_free(void* pointer);

namespace {

// Plain arrays: recording must not allocate.
const int kMaxRecords = 512;

struct AllocationRecorder {
  bool recording;
  int mallocCount;
  void* mallocPointers[kMaxRecords];
  size_t mallocSizes[kMaxRecords];
  int freeCount;
  void* freePointers[kMaxRecords];
  // malloc of this size returns null this many more times.
  size_t failingMallocSize;
  int failingMallocs;
  // The operator new call that brings this down to 0 throws.
  int newCountdown;
};

AllocationRecorder g_recorder;

}  // namespace

extern "C" void* __wrap_malloc(size_t size) {
  if (g_recorder.failingMallocs > 0 && size == g_recorder.failingMallocSize) {
    --g_recorder.failingMallocs;
    return nullptr;
  }
  void* pointer = __real_malloc(size);
  if (g_recorder.recording && g_recorder.mallocCount < kMaxRecords) {
    g_recorder.mallocPointers[g_recorder.mallocCount] = pointer;
    g_recorder.mallocSizes[g_recorder.mallocCount] = size;
    ++g_recorder.mallocCount;
  }
  return pointer;
}

extern "C" void __wrap_free(void* pointer) {
  if (g_recorder.recording && pointer != nullptr && g_recorder.freeCount < kMaxRecords) {
    g_recorder.freePointers[g_recorder.freeCount++] = pointer;
  }
  __real_free(pointer);
}

void* operator new(size_t size) {
  if (g_recorder.newCountdown > 0 && --g_recorder.newCountdown == 0) {
    throw std::bad_alloc();
  }
  void* pointer = __real_malloc(size == 0 ? 1 : size);
  if (pointer == nullptr) {
    throw std::bad_alloc();
  }
  return pointer;
}

void operator delete(void* pointer) noexcept {
  __real_free(pointer);
}

void operator delete(void* pointer, size_t) noexcept {
  __real_free(pointer);
}

namespace {

using QuendalTest::MakeEntries;
namespace Scripted = QuendalTest::ScriptedPlatform;

class AllocationTest : public QuendalTest::ReaderTest {
 protected:
  void SetUp() override {
    g_recorder = AllocationRecorder();
    ReaderTest::SetUp();
  }

  void TearDown() override {
    g_recorder = AllocationRecorder();
    ReaderTest::TearDown();
  }

  static void StartRecording() {
    g_recorder.mallocCount = 0;
    g_recorder.freeCount = 0;
    g_recorder.recording = true;
  }

  static void StopRecording() { g_recorder.recording = false; }

  static std::multiset<void*> MallocsOfSize(size_t size) {
    std::multiset<void*> pointers;
    for (int i = 0; i < g_recorder.mallocCount; ++i) {
      if (g_recorder.mallocSizes[i] == size) {
        pointers.insert(g_recorder.mallocPointers[i]);
      }
    }
    return pointers;
  }

  static std::multiset<void*> Frees() {
    return std::multiset<void*>(g_recorder.freePointers,
                                g_recorder.freePointers + g_recorder.freeCount);
  }

  // Name-sized blocks taken while recording and not given back since.
  static size_t LiveNameBuffers() {
    std::multiset<void*> taken = MallocsOfSize(128);
    size_t returned = 0;
    for (void* pointer : Frees()) {
      returned += taken.count(pointer) > 0 ? 1 : 0;
    }
    return taken.size() - returned;
  }

  static std::multiset<void*> Keys() {
    std::multiset<void*> keys;
    for (const auto& entry : getModuleLimits()) {
      keys.insert(entry.first);
    }
    return keys;
  }

  // Makes the n-th operator new after line `line` was read throw.
  static void FailNewAfterLine(int line, int n) {
    Scripted::SetLineCallback([line, n](int read) {
      if (read == line) {
        g_recorder.newCountdown = n;
      }
    });
  }
};

TEST_F(AllocationTest, NamesLiveIn128ByteMallocBlocks) {
  StartRecording();
  Read("MODULE_NAME audio LIMIT 1\nMODULE_NAME net LIMIT 2\n");
  StopRecording();
  std::multiset<void*> keys = Keys();
  ASSERT_EQ(2u, keys.size());
  EXPECT_EQ(keys, MallocsOfSize(128));
}

TEST_F(AllocationTest, BadLimitLeavesNoNameBufferBehind) {
  StartRecording();
  Read("MODULE_NAME audio LIMIT x\n");
  StopRecording();
  EXPECT_TRUE(getModuleLimits().empty());
  EXPECT_EQ(0u, LiveNameBuffers());
}

TEST_F(AllocationTest, DeInitFreesEveryNameOnce) {
  Read("MODULE_NAME a LIMIT 1\nMODULE_NAME b LIMIT 2\nMODULE_NAME a LIMIT 1\n");
  std::multiset<void*> keys = Keys();
  ASSERT_EQ(3u, keys.size());
  StartRecording();
  ConfigFileReader::DeInit();
  ConfigFileReader::DeInit();
  StopRecording();
  EXPECT_EQ(keys, Frees());
  EXPECT_EQ(keys, Keys());
}

TEST_F(AllocationTest, DeInitAfterASecondReadFreesOnlyTheNewNames) {
  Read("MODULE_NAME a LIMIT 1\n");
  ConfigFileReader::DeInit();
  StartRecording();
  Read("MODULE_NAME b LIMIT 2\n");
  StopRecording();
  std::multiset<void*> filed = MallocsOfSize(128);
  StartRecording();
  ConfigFileReader::DeInit();
  StopRecording();
  ASSERT_EQ(1u, filed.size());
  EXPECT_EQ(filed, Frees());
  EXPECT_EQ(1u, Keys().count(*filed.begin()));
}

TEST_F(AllocationTest, NameBufferThatCannotBeTakenSkipsOnlyItsLine) {
  g_recorder.failingMallocSize = 128;
  g_recorder.failingMallocs = 1;
  Read("MODULE_NAME a LIMIT 1\nMODULE_NAME b LIMIT 2\n");
  EXPECT_EQ(MakeEntries({{"b", 2}}), CurrentEntries());
}

TEST_F(AllocationTest, ScratchThatCannotBeTakenMeansNoPath) {
  Scripted::SetMaxPathLength(4096);
  g_recorder.failingMallocSize = 4096;
  g_recorder.failingMallocs = 1;
  char buffer[16] = "untouched";
  EXPECT_EQ(-1, ConfigFileReader::GetExecutablePathWithoutExtension(buffer, sizeof(buffer)));
  EXPECT_STREQ("untouched", buffer);
  EXPECT_EQ(0, Scripted::CommandNameCalls());

  g_recorder.failingMallocs = 1;
  Read("CHUNKS 5  CHUNK_SIZE 1 SEG_SIZE 1\n");
  ExpectDefaults();
  EXPECT_TRUE(Scripted::OpenedPaths().empty());
}

TEST_F(AllocationTest, ScratchIsFreedOnEveryPath) {
  Scripted::SetMaxPathLength(3000);
  char buffer[256];
  StartRecording();
  ConfigFileReader::GetExecutablePathWithoutExtension(buffer, sizeof(buffer));
  Scripted::SetExecutablePath("/" + std::string(299, 'q'));
  ConfigFileReader::GetExecutablePathWithoutExtension(buffer, sizeof(buffer));
  Scripted::FailExecutablePath();
  ConfigFileReader::GetExecutablePathWithoutExtension(buffer, sizeof(buffer));
  StopRecording();
  std::multiset<void*> scratches = MallocsOfSize(3000);
  EXPECT_EQ(3u, scratches.size());
  for (void* scratch : scratches) {
    EXPECT_EQ(scratches.count(scratch), Frees().count(scratch));
  }
}

TEST_F(AllocationTest, NameThatCannotBeTrackedIsDroppedAndFreed) {
  FailNewAfterLine(1, 1);
  StartRecording();
  Read("MODULE_NAME a LIMIT 1\nMODULE_NAME b LIMIT 2\n");
  StopRecording();
  EXPECT_EQ(MakeEntries({{"b", 2}}), CurrentEntries());
  EXPECT_EQ(2u, MallocsOfSize(128).size());
  EXPECT_EQ(1u, LiveNameBuffers());
}

TEST_F(AllocationTest, NameThatCannotEnterTheMapIsDroppedAndFreed) {
  FailNewAfterLine(1, 2);
  StartRecording();
  Read("MODULE_NAME a LIMIT 1\nMODULE_NAME b LIMIT 2\n");
  StopRecording();
  EXPECT_EQ(MakeEntries({{"b", 2}}), CurrentEntries());
  EXPECT_EQ(2u, MallocsOfSize(128).size());
  EXPECT_EQ(1u, LiveNameBuffers());
  // DeInit then frees exactly the one filed name.
  std::multiset<void*> keys = Keys();
  StartRecording();
  ConfigFileReader::DeInit();
  StopRecording();
  EXPECT_EQ(keys, Frees());
}

}  // namespace
