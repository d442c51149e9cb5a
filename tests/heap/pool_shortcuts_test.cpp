// The pool reaches a class's first chunk with a free block without walking
// the full ones, and does not carve again a chunk whose links are still as
// carving left them. Both must be invisible: these tests drive long seeded
// sequences and check every step against what the plain algorithm gives.
#include <gtest/gtest.h>

#include <stdint.h>
#include <string.h>

#include <random>
#include <vector>

#include "heap/pool_fixture.h"
#include "heap/size_class.h"

namespace QuendalTest {
namespace {

using Quendal::Heap::ClassIndex;
using Quendal::Heap::ClassSize;
using Quendal::Heap::FirstBlock;

class PoolShortcutsTest : public PoolTest {
 protected:
  // The block a walk from the class's head would hand out: the first free
  // block of the first chunk that has one, else the first block of the
  // chunk the free chunk list would give, else none (the overflow heap).
  void* BlockAWalkWouldTake(size_t size) const {
    size_t blockSize = ClassSize(size);
    for (ChunkHeader* chunk = pool.ClassChunk(ClassIndex(blockSize)); chunk != nullptr;
         chunk = chunk->nextChunk) {
      if (chunk->freeBlocks != nullptr) {
        return chunk->freeBlocks;
      }
    }
    return pool.FreeChunks() != nullptr ? FirstBlock(pool.FreeChunks()) : nullptr;
  }

  // A chunk just given to a class, after its first block went out: the
  // rest of its blocks are listed in address order, as carving lists them.
  static ::testing::AssertionResult ListedAsCarved(ChunkHeader* chunk) {
    size_t blockSize = chunk->blockSize;
    size_t count = (chunk->chunkBytes - kChunkHeaderSize) / blockSize;
    unsigned char* expected = static_cast<unsigned char*>(FirstBlock(chunk)) + blockSize;
    void* block = chunk->freeBlocks;
    for (size_t k = 1; k < count; ++k, expected += blockSize) {
      if (block != expected) {
        return ::testing::AssertionFailure() << "block " << k << " of " << count << " is " << block
                                             << ", carving lists " << static_cast<void*>(expected);
      }
      block = *static_cast<void**>(block);
    }
    if (block != nullptr) {
      return ::testing::AssertionFailure() << "the list goes on past the last block";
    }
    return ::testing::AssertionSuccess();
  }

  // Runs a seeded sequence of allocations and releases of the given sizes,
  // the live blocks written over like a client would, and checks every step.
  void RunSequence(uint64_t seed, const std::vector<size_t>& sizes, size_t steps) {
    std::mt19937_64 random(seed);
    std::vector<void*> live;
    for (size_t step = 0; step < steps; ++step) {
      bool allocate = live.empty() || random() % 100 < 55;
      if (allocate) {
        size_t size = sizes[random() % sizes.size()];
        void* expected = BlockAWalkWouldTake(size);
        ChunkHeader* nextFreeChunk = pool.FreeChunks();
        void* block = pool.Alloc(size);
        ASSERT_NE(block, nullptr);
        if (expected != nullptr) {
          ASSERT_EQ(block, expected) << "step " << step << ", size " << size;
        } else {
          ASSERT_FALSE(pool.Owns(block)) << "step " << step;
        }
        if (nextFreeChunk != nullptr && nextFreeChunk->blockSize != 0) {
          ASSERT_TRUE(ListedAsCarved(nextFreeChunk)) << "step " << step;
        }
        if (pool.Owns(block)) {
          memset(block, 0x5A, ClassSize(size));
        } else {
          memset(block, 0x5A, size);
        }
        live.push_back(block);
      } else {
        // Mostly the newest block, sometimes any: both orders of release
        // occur, and so do chunks emptied and given back.
        size_t index = random() % 4 == 0 ? random() % live.size() : live.size() - 1;
        pool.Free(live[index]);
        live.erase(live.begin() + static_cast<std::ptrdiff_t>(index));
      }
      ASSERT_TRUE(PoolIsConsistent(pool)) << "step " << step;
    }
    for (void* block : live) {
      pool.Free(block);
    }
    EXPECT_TRUE(PoolIsConsistent(pool));
  }
};

TEST_F(PoolShortcutsTest, AllocationTakesTheBlockAWalkFromTheClassHeadWouldTake) {
  Build(24);
  RunSequence(1, {8, 16, 24, 40, 200}, 20000);
}

TEST_F(PoolShortcutsTest, ExhaustedPoolStillMatchesTheWalkAndOverflows) {
  Build(6);
  RunSequence(2, {8, 64, 1000, 1024}, 20000);
}

TEST_F(PoolShortcutsTest, ChunkGivenBackAndReassignedIsListedAsCarvingListsIt) {
  Build(4);
  // Allocate and release one block: the chunk empties, goes back to the
  // free chunk list, and the next allocation of the same size takes it again.
  for (int round = 0; round < 3; ++round) {
    ChunkHeader* chunk = pool.FreeChunks();
    void* block = pool.Alloc(16);
    EXPECT_EQ(block, FirstBlock(chunk));
    EXPECT_TRUE(ListedAsCarved(chunk));
    pool.Free(block);
    EXPECT_EQ(pool.FreeChunks(), chunk);
  }
  // The same chunk taken by another class is listed for that class.
  ChunkHeader* chunk = pool.FreeChunks();
  void* block = pool.Alloc(24);
  EXPECT_EQ(block, FirstBlock(chunk));
  EXPECT_TRUE(ListedAsCarved(chunk));
  pool.Free(block);
}

TEST_F(PoolShortcutsTest, ChunkEmptiedOutOfOrderIsListedAsCarvingListsItWhenReassigned) {
  Build(4);
  ChunkHeader* chunk = pool.FreeChunks();
  void* first = pool.Alloc(16);
  void* second = pool.Alloc(16);
  void* third = pool.Alloc(16);
  // The first block comes back last, so the list starts where carving
  // starts it, but the two behind it are swapped.
  pool.Free(second);
  pool.Free(third);
  pool.Free(first);
  ASSERT_EQ(pool.FreeChunks(), chunk);
  EXPECT_EQ(pool.Alloc(16), FirstBlock(chunk));
  EXPECT_TRUE(ListedAsCarved(chunk));
}

TEST_F(PoolShortcutsTest, FullClassChunksAheadOfAFreedBlockAreWalkedToIt) {
  Build(8);
  size_t perChunk = (kChunk - kChunkHeaderSize) / 64;
  std::vector<void*> blocks;
  for (size_t k = 0; k < perChunk * 3; ++k) {
    blocks.push_back(pool.Alloc(64));
  }
  // The first chunk gets a free block while the third is the one in use.
  pool.Free(blocks[1]);
  EXPECT_EQ(pool.Alloc(64), blocks[1]);
  pool.Free(blocks[perChunk + 2]);
  EXPECT_EQ(pool.Alloc(64), blocks[perChunk + 2]);
  EXPECT_TRUE(PoolIsConsistent(pool));
  for (void* block : blocks) {
    pool.Free(block);
  }
}

}  // namespace
}  // namespace QuendalTest
