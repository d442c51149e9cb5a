// The pool chunk allocator over scripted backing heaps: configuration,
// segment and chunk building, size classes, carving, reuse order and routing.
#include <gtest/gtest.h>

#include <stdint.h>
#include <stdlib.h>

#include <cstddef>
#include <vector>

#include "heap/pool_fixture.h"

namespace {

using namespace QuendalTest;

TEST_F(PoolTest, ConstructionGivesTheSmallestPool) {
  EXPECT_EQ(pool.ChunkCount(), 1u);
  EXPECT_EQ(pool.ChunkSize(), 16u);
  EXPECT_EQ(pool.MaxBlockSize(), 8u);
  EXPECT_EQ(pool.ClassCount(), 1u);
  EXPECT_EQ(pool.IsConfigured(), 0);
  EXPECT_EQ(pool.Segment(), nullptr);
  EXPECT_EQ(pool.ClassTable(), nullptr);
  EXPECT_EQ(pool.FreeChunks(), nullptr);
  EXPECT_EQ(pool.AlignedSegment(), 0u);
  EXPECT_EQ(pool.SegmentBytes(), 0u);
  EXPECT_EQ(pool.FreeChunkCount(), 0u);
}

TEST_F(PoolTest, ConfigureTurnsAZeroChunkCountIntoOne) {
  pool.Configure(0, kChunk, 1024);
  EXPECT_EQ(pool.ChunkCount(), 1u);
  EXPECT_EQ(pool.IsConfigured(), 1);
}

TEST_F(PoolTest, ConfigureRaisesAChunkSizeBelow16To16) {
  pool.Configure(4, 15, 1024);
  EXPECT_EQ(pool.ChunkSize(), 16u);
  TestPool other;
  other.Configure(4, 16, 1024);
  EXPECT_EQ(other.ChunkSize(), 16u);
}

TEST_F(PoolTest, LargestPooledSizeBelow8GivesOneClassOf8Bytes) {
  for (uint32_t largest = 0; largest < 8; ++largest) {
    TestPool configured;
    configured.Configure(4, kChunk, largest);
    EXPECT_EQ(configured.MaxBlockSize(), 8u) << largest;
    EXPECT_EQ(configured.ClassCount(), 1u) << largest;
  }
}

TEST_F(PoolTest, LargestPooledSize8To15KeepsItsValueWithOneClass) {
  for (uint32_t largest = 8; largest < 16; ++largest) {
    TestPool configured;
    configured.Configure(4, kChunk, largest);
    EXPECT_EQ(configured.MaxBlockSize(), largest);
    EXPECT_EQ(configured.ClassCount(), 1u);
  }
}

TEST_F(PoolTest, LargestPooledSize20GivesTwoClassesAnd17To20GoToOverflow) {
  Build(4, 0, kChunk, 20);
  EXPECT_EQ(pool.ClassCount(), 2u);
  EXPECT_EQ(pool.MaxBlockSize(), 20u);
  void* sixteen = pool.Alloc(16);
  EXPECT_TRUE(pool.Owns(sixteen));
  for (size_t size = 17; size <= 20; ++size) {
    void* block = pool.Alloc(size);
    EXPECT_FALSE(pool.Owns(block)) << size;
    ASSERT_EQ(RecordingOverflowHeap::calls.back().kind, OverflowCall::kAlloc);
    EXPECT_EQ(RecordingOverflowHeap::calls.back().size, size);
    pool.Free(block);
  }
  EXPECT_TRUE(PoolIsConsistent(pool));
}

TEST_F(PoolTest, SecondConfigureChangesNothing) {
  pool.Configure(4, kChunk, 1024);
  pool.Configure(9, 4096, 64);
  EXPECT_EQ(pool.ChunkCount(), 4u);
  EXPECT_EQ(pool.ChunkSize(), kChunk);
  EXPECT_EQ(pool.MaxBlockSize(), 1024u);
  EXPECT_EQ(pool.ClassCount(), 128u);
}

TEST_F(PoolTest, SegmentRequestIsChunkCountTimesChunkSize) {
  Build(650);
  ASSERT_EQ(ScriptedSegmentHeap::requests.size(), 1u);
  EXPECT_EQ(ScriptedSegmentHeap::requests[0], 650u * kChunk);
}

TEST_F(PoolTest, AlignedSegmentYieldsChunkCountChunksInAddressOrder) {
  Build(4, 0);
  EXPECT_EQ(pool.AlignedSegment(), reinterpret_cast<uintptr_t>(pool.Segment()));
  EXPECT_EQ(pool.SegmentBytes(), 4 * kChunk);
  EXPECT_EQ(pool.FreeChunkCount(), 4u);
  std::vector<ChunkHeader*> chunks = FreeList();
  ASSERT_EQ(chunks.size(), 4u);
  for (size_t k = 0; k < chunks.size(); ++k) {
    EXPECT_EQ(chunks[k], ChunkNumber(k));
    EXPECT_EQ(chunks[k]->chunkBytes, kChunk);
    EXPECT_EQ(chunks[k]->blockSize, 0u);
    EXPECT_EQ(chunks[k]->usedBlocks, 0u);
  }
  EXPECT_EQ(chunks[0]->prevChunk, nullptr);
  EXPECT_TRUE(PoolIsConsistent(pool));
}

TEST_F(PoolTest, MisalignedSegmentGivesUpOneChunkButCountsAllAsFree) {
  Build(4, 8);
  uintptr_t segment = reinterpret_cast<uintptr_t>(pool.Segment());
  EXPECT_EQ(pool.AlignedSegment(), segment + kChunk - 8);
  EXPECT_EQ(pool.AlignedSegment() % kChunk, 0u);
  EXPECT_EQ(pool.SegmentBytes(), 3 * kChunk);
  EXPECT_EQ(FreeList().size(), 3u);
  EXPECT_EQ(pool.FreeChunkCount(), 4u);
  EXPECT_TRUE(PoolIsConsistent(pool));
}

TEST_F(PoolTest, ClassTableHasOneZeroedEntryPerClass) {
  Build(4);
  ASSERT_NE(pool.ClassTable(), nullptr);
  EXPECT_EQ(pool.ClassTableEntries(), 128u);
  for (size_t index = 0; index < 128; ++index) {
    EXPECT_EQ(pool.ClassChunk(index), nullptr);
  }
}

TEST_F(PoolTest, InitializeDoesNothingOnceTheSegmentExists) {
  Build(4);
  void* segment = pool.Segment();
  pool.Initialize();
  EXPECT_EQ(ScriptedSegmentHeap::requests.size(), 1u);
  EXPECT_EQ(pool.Segment(), segment);
}

// With CHUNKS 1 and a misaligned segment no whole chunk lies inside it: the
// pool builds none rather than a chunk past the segment's end.
TEST_F(PoolTest, OneChunkOnAMisalignedSegmentBuildsNoChunk) {
  Build(1, 8);
  EXPECT_EQ(pool.SegmentBytes(), 0u);
  EXPECT_EQ(pool.FreeChunks(), nullptr);
  EXPECT_EQ(pool.FreeChunkCount(), 1u);
  void* block = pool.Alloc(8);
  ASSERT_NE(block, nullptr);
  EXPECT_FALSE(pool.Owns(block));
  EXPECT_EQ(RecordingOverflowHeap::Count(OverflowCall::kAlloc), 1u);
  pool.Free(block);
  EXPECT_EQ(RecordingOverflowHeap::Count(OverflowCall::kFree), 1u);
  EXPECT_EQ(RecordingOverflowHeap::calls.back().pointer, block);
}

TEST_F(PoolTest, OneChunkOnAnAlignedSegmentBuildsOneChunk) {
  Build(1, 0);
  EXPECT_EQ(FreeList().size(), 1u);
  EXPECT_TRUE(pool.Owns(pool.Alloc(8)));
  EXPECT_TRUE(PoolIsConsistent(pool));
}

// A chunk count whose 32-bit product with the chunk size wraps asks for the
// wrapped size; the pool builds only the chunks that fit in what it got.
TEST_F(PoolTest, WrappedSegmentSizeBuildsOnlyChunksInsideTheSegment) {
  Build(0x200001, 0);
  ASSERT_EQ(ScriptedSegmentHeap::requests.size(), 1u);
  EXPECT_EQ(ScriptedSegmentHeap::requests[0], kChunk);
  EXPECT_EQ(FreeList().size(), 1u);
  void* first = pool.Alloc(1024);
  EXPECT_TRUE(pool.Owns(first));
  EXPECT_FALSE(pool.Owns(pool.Alloc(1024)));
}

TEST_F(PoolTest, FailedSegmentRequestLeavesThePoolUninitialisedAndIsRetried) {
  pool.Configure(4, kChunk, 1024);
  ScriptedSegmentHeap::QueueFailure();
  ScriptedSegmentHeap::QueueFailure();
  pool.Initialize();
  EXPECT_EQ(pool.Segment(), nullptr);
  EXPECT_EQ(pool.ClassTable(), nullptr);

  // The allocation retries, fails again and is served by the overflow heap.
  void* fromOverflow = pool.Alloc(8);
  EXPECT_EQ(ScriptedSegmentHeap::requests.size(), 2u);
  EXPECT_FALSE(pool.Owns(fromOverflow));
  EXPECT_EQ(RecordingOverflowHeap::Count(OverflowCall::kAlloc), 1u);

  // Without a class table a release is dropped, not passed on.
  pool.Free(fromOverflow);
  EXPECT_EQ(RecordingOverflowHeap::Count(OverflowCall::kFree), 0u);
  free(fromOverflow);

  void* pooled = pool.Alloc(8);
  EXPECT_EQ(ScriptedSegmentHeap::requests.size(), 3u);
  EXPECT_TRUE(pool.Owns(pooled));
  EXPECT_TRUE(PoolIsConsistent(pool));
}

TEST_F(PoolTest, ChunkSmallerThanItsHeaderIsAcceptedButServesNothing) {
  for (uint32_t chunkSize = 16; chunkSize < kChunkHeaderSize; ++chunkSize) {
    TestPool small;
    small.Configure(4, chunkSize, 8);
    EXPECT_EQ(small.ChunkSize(), chunkSize);
    ScriptedSegmentHeap::QueueOffset(size_t(1) << 20, 0);
    small.Initialize();
    EXPECT_EQ(small.FreeChunks(), nullptr);
    void* block = small.Alloc(8);
    EXPECT_FALSE(small.Owns(block)) << chunkSize;
    small.Free(block);
    free(small.ClassTable());
  }
}

TEST_F(PoolTest, ChunkSizeThatMisalignsHeadersBuildsNoChunk) {
  Build(4, 0, kChunk + 2);
  EXPECT_EQ(pool.FreeChunks(), nullptr);
  EXPECT_FALSE(pool.Owns(pool.Alloc(8)));
}

// A heap call made while the heap initialises finds the pool unconfigured:
// it is initialised from the construction values, then configured.
TEST_F(PoolTest, PoolInitialisedFromDefaultsThenConfiguredServesFromOverflow) {
  pool.Initialize();
  ASSERT_EQ(ScriptedSegmentHeap::requests.size(), 1u);
  EXPECT_EQ(ScriptedSegmentHeap::requests[0], 16u);
  EXPECT_EQ(pool.ClassTableEntries(), 1u);
  EXPECT_EQ(pool.FreeChunks(), nullptr);

  pool.Configure(650, kChunk, 1024);
  EXPECT_EQ(pool.ClassCount(), 128u);
  pool.Initialize();
  EXPECT_EQ(ScriptedSegmentHeap::requests.size(), 1u);
  const size_t sizes[] = {1, 8, 40, 1024};
  for (size_t size : sizes) {
    void* block = pool.Alloc(size);
    EXPECT_FALSE(pool.Owns(block)) << size;
    pool.Free(block);
  }
  EXPECT_EQ(RecordingOverflowHeap::Count(OverflowCall::kFree), 4u);
}

TEST_F(PoolTest, NonPowerOfTwoChunkSizeFindsChunksByDivision) {
  const uint32_t chunkSize = 3000;
  pool.Configure(4, chunkSize, 1024);
  ScriptedSegmentHeap::QueueMultipleOf(chunkSize);
  pool.Initialize();
  ASSERT_EQ(FreeList().size(), 4u);
  void* eight = pool.Alloc(8);
  void* sixteen = pool.Alloc(16);
  EXPECT_EQ(pool.ChunkOf(eight), ChunkNumber(0));
  EXPECT_EQ(pool.ChunkOf(sixteen), ChunkNumber(1));
  pool.Free(eight);
  pool.Free(sixteen);
  EXPECT_EQ(pool.FreeChunks(), ChunkNumber(1));
  EXPECT_EQ(FreeList().size(), 4u);
  EXPECT_TRUE(PoolIsConsistent(pool));
}

TEST_F(PoolTest, Sizes1And8BothTakeAnEightByteBlock) {
  Build(4);
  unsigned char* one = static_cast<unsigned char*>(pool.Alloc(1));
  unsigned char* eight = static_cast<unsigned char*>(pool.Alloc(8));
  EXPECT_EQ(pool.ChunkOf(one), pool.ChunkOf(eight));
  EXPECT_EQ(pool.ChunkOf(one)->blockSize, 8u);
  EXPECT_EQ(eight - one, 8);
  EXPECT_EQ(pool.ClassChunk(0), ChunkNumber(0));
}

TEST_F(PoolTest, Size9TakesASixteenByteBlock) {
  Build(4);
  unsigned char* first = static_cast<unsigned char*>(pool.Alloc(9));
  unsigned char* second = static_cast<unsigned char*>(pool.Alloc(9));
  EXPECT_EQ(pool.ChunkOf(first)->blockSize, 16u);
  EXPECT_EQ(second - first, 16);
  EXPECT_EQ(pool.ClassChunk(1), ChunkNumber(0));
}

TEST_F(PoolTest, FirstBlockOfAChunkLiesBehindItsHeader) {
  Build(4);
  void* block = pool.Alloc(64);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(block), pool.AlignedSegment() + kChunkHeaderSize);
}

TEST_F(PoolTest, SizeEqualToTheLargestPooledIsPooledAndOneMoreGoesToOverflow) {
  Build(4);
  EXPECT_TRUE(pool.Owns(pool.Alloc(1024)));
  void* larger = pool.Alloc(1025);
  EXPECT_FALSE(pool.Owns(larger));
  ASSERT_EQ(RecordingOverflowHeap::calls.size(), 1u);
  EXPECT_EQ(RecordingOverflowHeap::calls[0].size, 1025u);
  // Its release is routed to the overflow heap by the ownership test.
  pool.Free(larger);
  ASSERT_EQ(RecordingOverflowHeap::calls.size(), 2u);
  EXPECT_EQ(RecordingOverflowHeap::calls[1].kind, OverflowCall::kFree);
  EXPECT_EQ(RecordingOverflowHeap::calls[1].pointer, larger);
}

TEST_F(PoolTest, EightByteChunkHoldsItsBlocksAndTheNextTakesASecondChunk) {
  Build(4);
#if defined(__arm__)
  EXPECT_EQ(kEightByteBlocks, 253u);
#endif
  for (size_t k = 0; k < kEightByteBlocks; ++k) {
    void* block = pool.Alloc(8);
    ASSERT_EQ(pool.ChunkOf(block), ChunkNumber(0)) << k;
  }
  EXPECT_EQ(ChunkNumber(0)->freeBlocks, nullptr);
  EXPECT_EQ(ChunkNumber(0)->usedBlocks, kEightByteBlocks);
  void* next = pool.Alloc(8);
  EXPECT_EQ(pool.ChunkOf(next), ChunkNumber(1));
  EXPECT_EQ(pool.ClassChunk(0), ChunkNumber(0));
  EXPECT_EQ(ChunkNumber(0)->nextChunk, ChunkNumber(1));
  EXPECT_EQ(ChunkNumber(1)->prevChunk, ChunkNumber(0));
  EXPECT_EQ(pool.FreeChunkCount(), 2u);
  EXPECT_TRUE(PoolIsConsistent(pool));
}

TEST_F(PoolTest, LargestClassChunkHoldsOneBlock) {
  Build(4);
  void* first = pool.Alloc(1024);
  void* second = pool.Alloc(1017);
  EXPECT_EQ(pool.ChunkOf(first), ChunkNumber(0));
  EXPECT_EQ(pool.ChunkOf(second), ChunkNumber(1));
  EXPECT_EQ(ChunkNumber(0)->blockSize, 1024u);
  EXPECT_EQ(ChunkNumber(0)->freeBlocks, nullptr);
  EXPECT_EQ(pool.ClassChunk(127), ChunkNumber(0));
  EXPECT_TRUE(PoolIsConsistent(pool));
}

TEST_F(PoolTest, WalkServesTheFirstChunkInListOrderWithAFreeBlock) {
  Build(4);
  std::vector<void*> blocks;
  for (size_t k = 0; k < kEightByteBlocks + 2; ++k) {
    blocks.push_back(pool.Alloc(8));
  }
  void* inFirstChunk = blocks[5];
  pool.Free(inFirstChunk);
  EXPECT_EQ(pool.Alloc(8), inFirstChunk);
  EXPECT_EQ(pool.ChunkOf(pool.Alloc(8)), ChunkNumber(1));
}

TEST_F(PoolTest, BlocksOfAChunkAreReusedLastInFirstOut) {
  Build(4);
  void* a = pool.Alloc(32);
  void* b = pool.Alloc(32);
  void* c = pool.Alloc(32);
  pool.Free(a);
  pool.Free(c);
  EXPECT_EQ(pool.Alloc(32), c);
  EXPECT_EQ(pool.Alloc(32), a);
  EXPECT_EQ(static_cast<char*>(pool.Alloc(32)) - static_cast<char*>(c), 32);
  (void)b;
  EXPECT_TRUE(PoolIsConsistent(pool));
}

TEST_F(PoolTest, EmptiedChunkGoesToTheFrontOfTheFreeListAndIsReusedFirst) {
  Build(4);
  void* eight = pool.Alloc(8);
  void* sixteen = pool.Alloc(16);
  ASSERT_EQ(pool.ChunkOf(eight), ChunkNumber(0));
  ASSERT_EQ(pool.ChunkOf(sixteen), ChunkNumber(1));
  pool.Free(eight);
  EXPECT_EQ(pool.FreeChunks(), ChunkNumber(0));
  EXPECT_EQ(ChunkNumber(0)->blockSize, 0u);
  EXPECT_EQ(pool.ClassChunk(0), nullptr);
  EXPECT_EQ(pool.FreeChunkCount(), 3u);
  EXPECT_TRUE(PoolIsConsistent(pool));
  // The next allocation of any class reuses it.
  void* hundred = pool.Alloc(100);
  EXPECT_EQ(pool.ChunkOf(hundred), ChunkNumber(0));
  EXPECT_EQ(ChunkNumber(0)->blockSize, 104u);
  EXPECT_EQ(hundred, static_cast<void*>(reinterpret_cast<unsigned char*>(ChunkNumber(0)) +
                                        kChunkHeaderSize));
}

TEST_F(PoolTest, EmptiedChunksAreReusedLastInFirstOut) {
  Build(4);
  void* a = pool.Alloc(8);
  void* b = pool.Alloc(16);
  void* c = pool.Alloc(24);
  pool.Free(a);
  pool.Free(c);
  std::vector<ChunkHeader*> expected = {ChunkNumber(2), ChunkNumber(0), ChunkNumber(3)};
  EXPECT_EQ(FreeList(), expected);
  EXPECT_EQ(pool.ChunkOf(pool.Alloc(40)), ChunkNumber(2));
  EXPECT_EQ(pool.ChunkOf(pool.Alloc(48)), ChunkNumber(0));
  (void)b;
  EXPECT_TRUE(PoolIsConsistent(pool));
}

TEST_F(PoolTest, EmptiedChunkInTheMiddleOfItsClassIsUnlinked) {
  Build(4);
  void* first = pool.Alloc(1024);
  void* middle = pool.Alloc(1024);
  void* last = pool.Alloc(1024);
  pool.Free(middle);
  EXPECT_EQ(ChunkNumber(0)->nextChunk, ChunkNumber(2));
  EXPECT_EQ(ChunkNumber(2)->prevChunk, ChunkNumber(0));
  EXPECT_EQ(pool.FreeChunks(), ChunkNumber(1));
  EXPECT_TRUE(PoolIsConsistent(pool));
  pool.Free(first);
  EXPECT_EQ(pool.ClassChunk(127), ChunkNumber(2));
  EXPECT_EQ(ChunkNumber(2)->prevChunk, nullptr);
  pool.Free(last);
  EXPECT_EQ(pool.ClassChunk(127), nullptr);
  EXPECT_EQ(FreeList().size(), 4u);
  EXPECT_TRUE(PoolIsConsistent(pool));
}

TEST_F(PoolTest, ExhaustedPoolRoutesToOverflowAndTheReleaseFollows) {
  Build(2);
  EXPECT_TRUE(pool.Owns(pool.Alloc(1024)));
  EXPECT_TRUE(pool.Owns(pool.Alloc(1024)));
  void* large = pool.Alloc(1024);
  void* small = pool.Alloc(8);
  EXPECT_FALSE(pool.Owns(large));
  EXPECT_FALSE(pool.Owns(small));
  EXPECT_EQ(RecordingOverflowHeap::Count(OverflowCall::kAlloc), 2u);
  EXPECT_EQ(RecordingOverflowHeap::calls[1].size, 8u);
  pool.Free(small);
  pool.Free(large);
  EXPECT_EQ(RecordingOverflowHeap::Count(OverflowCall::kFree), 2u);
  EXPECT_EQ(RecordingOverflowHeap::calls[2].pointer, small);
  EXPECT_TRUE(PoolIsConsistent(pool));
}

TEST_F(PoolTest, ForeignPointerGoesToOverflowFree) {
  Build(4);
  void* foreign = malloc(32);
  pool.Free(foreign);
  ASSERT_EQ(RecordingOverflowHeap::calls.size(), 1u);
  EXPECT_EQ(RecordingOverflowHeap::calls[0].kind, OverflowCall::kFree);
  EXPECT_EQ(RecordingOverflowHeap::calls[0].pointer, foreign);
}

TEST_F(PoolTest, LateSecondReleaseIntoAFreeChunkIsIgnored) {
  Build(4);
  void* block = pool.Alloc(8);
  pool.Free(block);
  ChunkHeader* chunk = ChunkNumber(0);
  void* freeBlocks = chunk->freeBlocks;
  pool.Free(block);
  EXPECT_EQ(chunk->usedBlocks, 0u);
  EXPECT_EQ(chunk->freeBlocks, freeBlocks);
  EXPECT_EQ(FreeList().size(), 4u);
  EXPECT_TRUE(RecordingOverflowHeap::calls.empty());
  EXPECT_TRUE(PoolIsConsistent(pool));
}

// The same second release straight after the first, with nothing read in
// between: the chunk is free again, so the block is not listed twice.
TEST_F(PoolTest, SecondReleaseStraightAfterTheChunkEmptiedIsIgnored) {
  Build(4);
  void* block = pool.Alloc(8);
  pool.Free(block);
  pool.Free(block);
  EXPECT_EQ(pool.FreeChunkCount(), 4u);
  EXPECT_TRUE(PoolIsConsistent(pool));
  void* first = pool.Alloc(8);
  void* second = pool.Alloc(8);
  EXPECT_EQ(first, block);
  EXPECT_EQ(second, static_cast<unsigned char*>(block) + 8);
  EXPECT_TRUE(RecordingOverflowHeap::calls.empty());
}

// A pointer into a chunk that no request has taken yet finds a free chunk:
// the release is ignored, and the chunks are taken in address order as ever.
TEST_F(PoolTest, ReleaseIntoAChunkNeverTakenIsIgnored) {
  Build(4);
  unsigned char* third = reinterpret_cast<unsigned char*>(pool.AlignedSegment() + 2 * kChunk);
  pool.Free(third + kChunkHeaderSize + 16);
  EXPECT_TRUE(RecordingOverflowHeap::calls.empty());
  EXPECT_EQ(pool.FreeChunkCount(), 4u);
  EXPECT_TRUE(PoolIsConsistent(pool));
  EXPECT_EQ(pool.Alloc(1024), third - 2 * kChunk + kChunkHeaderSize);
  EXPECT_EQ(pool.Alloc(1024), third - kChunk + kChunkHeaderSize);
  EXPECT_EQ(pool.Alloc(1024), third + kChunkHeaderSize);
  EXPECT_TRUE(PoolIsConsistent(pool));
}

// An assigned chunk takes a second release of a block as it stands: with one
// other block still out, the count reaches 0 and the chunk leaves its class.
TEST_F(PoolTest, SecondReleaseWhileTheChunkIsAssignedIsNotDetected) {
  Build(4);
  void* a = pool.Alloc(8);
  void* b = pool.Alloc(8);
  pool.Free(a);
  pool.Free(a);
  EXPECT_EQ(pool.FreeChunks(), ChunkNumber(0));
  EXPECT_EQ(pool.ClassChunk(0), nullptr);
  (void)b;
}

// A chunk of the 8-byte class with 65536 blocks: handing them all out wraps
// the 16-bit used count to 0.
TEST_F(PoolTest, UsedBlockCountWrapsPast65535) {
  const uint32_t chunkSize = static_cast<uint32_t>(8 * 65536 + kChunkHeaderSize);
  pool.Configure(1, chunkSize, 1024);
  ScriptedSegmentHeap::QueueMultipleOf(chunkSize);
  pool.Initialize();
  for (size_t k = 0; k < 65536; ++k) {
    ASSERT_TRUE(pool.Owns(pool.Alloc(8))) << k;
  }
  EXPECT_EQ(ChunkNumber(0)->usedBlocks, 0u);
  EXPECT_EQ(ChunkNumber(0)->freeBlocks, nullptr);
  EXPECT_TRUE(PoolIsConsistent(pool));
}

// With 65537 blocks out the count reads 1; one release brings it to 0 and the
// chunk returns to the free chunk list while 65536 blocks are still out.
TEST_F(PoolTest, WrappedCountReturnsTheChunkWhileBlocksAreOut) {
  const uint32_t chunkSize = static_cast<uint32_t>(8 * 65537 + kChunkHeaderSize);
  pool.Configure(1, chunkSize, 1024);
  ScriptedSegmentHeap::QueueMultipleOf(chunkSize);
  pool.Initialize();
  void* last = nullptr;
  for (size_t k = 0; k < 65537; ++k) {
    last = pool.Alloc(8);
  }
  EXPECT_EQ(ChunkNumber(0)->usedBlocks, 1u);
  pool.Free(last);
  EXPECT_EQ(pool.FreeChunks(), ChunkNumber(0));
  EXPECT_EQ(ChunkNumber(0)->blockSize, 0u);
  EXPECT_EQ(pool.ClassChunk(0), nullptr);
}

TEST_F(PoolTest, PooledBlocksAreAlignedLikeMallocForTheirSize) {
  Build(130);
  for (size_t size = 8; size <= 1024; size += 8) {
    for (int k = 0; k < 3; ++k) {
      uintptr_t address = reinterpret_cast<uintptr_t>(pool.Alloc(size));
      size_t natural = size & (~size + 1);
      size_t expected = natural < alignof(std::max_align_t) ? natural : alignof(std::max_align_t);
      ASSERT_EQ(address % expected, 0u) << size;
    }
  }
}

}  // namespace
