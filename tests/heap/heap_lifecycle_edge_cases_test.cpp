// The pool keeps the parameters of the first initialisation: a second
// QDHeapInit, or one after my_unload, reads the .mem file again but neither
// reconfigures nor rebuilds the pool, even when the file now says otherwise.
#include <gtest/gtest.h>

#include <stdint.h>

#include "heap/the_heap.h"
#include "heap/the_pool.h"
#include "quendal/extra_heap.h"
#include "quendal/heap.h"
#include "support/scripted_platform.h"

namespace {

using Quendal::Heap::InitNeeded;
using Quendal::Heap::Pool;
using Quendal::Heap::TheHeap;
namespace Scripted = QuendalTest::ScriptedPlatform;

using QuendalTest::ThePool;

class HeapReinitTest : public ::testing::Test {
 protected:
  void SetUp() override {
    Scripted::Reset();
    Scripted::SetExecutablePath("/opt/app/player.bin");
    Scripted::SetFileContents("CHUNKS 40  CHUNK_SIZE 2048 SEG_SIZE 1024\n");
  }
};

TEST_F(HeapReinitTest, SecondInitReturnsOneAndKeepsTheFirstParameters) {
  ASSERT_EQ(QDHeapInit(), 1);
  ASSERT_EQ(ThePool().ChunkCount(), 40u);
  void* segment = ThePool().Segment();
  uint32_t segmentBytes = ThePool().SegmentBytes();

  Scripted::SetFileContents("CHUNKS 80  CHUNK_SIZE 2048 SEG_SIZE 1024\n");
  EXPECT_EQ(QDHeapInit(), 1);
  // The file was read a second time; its values were discarded.
  EXPECT_EQ(Scripted::OpenedPaths().size(), 2u);
  EXPECT_EQ(ThePool().ChunkCount(), 40u);
  EXPECT_EQ(ThePool().ChunkSize(), 2048u);
  EXPECT_EQ(ThePool().MaxBlockSize(), 1024u);
  EXPECT_EQ(ThePool().ClassCount(), 128u);
  EXPECT_EQ(ThePool().Segment(), segment);
  EXPECT_EQ(ThePool().SegmentBytes(), segmentBytes);
}

TEST_F(HeapReinitTest, InitAfterUnloadKeepsTheFirstConfiguration) {
  void* before = QDHeapAlloc(8);
  ASSERT_TRUE(ThePool().Owns(before));
  void* segment = ThePool().Segment();

  my_unload();
  ASSERT_EQ(InitNeeded(), 1);
  Scripted::SetFileContents("CHUNKS 0  CHUNK_SIZE 2048 SEG_SIZE 1024\n");
  void* after = QDHeapAlloc(8);

  EXPECT_EQ(InitNeeded(), 0);
  EXPECT_NE(ExtraHeap::GetInstance(), nullptr);
  EXPECT_EQ(Scripted::OpenedPaths().size(), 2u);
  EXPECT_EQ(ThePool().ChunkCount(), 40u);
  EXPECT_EQ(ThePool().Segment(), segment);
  EXPECT_EQ(ThePool().FreeChunkCount(), 39u);
  EXPECT_TRUE(ThePool().Owns(after));
  QDHeapFree(after);
  QDHeapFree(before);
}

}  // namespace
