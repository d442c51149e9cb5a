// The pool's figures on the target the test runs on. 32-bit ARM is the
// production target and must show the literal figures: a 24-byte chunk
// header, 253 blocks in a chunk of the 8-byte class and a 1,331,200-byte
// segment for the default 650 chunks. The other targets pad the header to
// their larger fundamental alignment and hold fewer blocks per chunk.
#include <gtest/gtest.h>

#include <stddef.h>
#include <stdint.h>

#include "heap/pool_fixture.h"
#include "quendal/config_file_reader.h"

namespace {

using namespace QuendalTest;

#if defined(__arm__)
const size_t kExpectedHeaderBytes = 24;
#elif defined(__i386__)
const size_t kExpectedHeaderBytes = 32;
#elif defined(__x86_64__)
const size_t kExpectedHeaderBytes = 48;
#endif

TEST_F(PoolTest, DefaultConfigurationAsksForASegmentOf1331200Bytes) {
  unsigned int chunks = 0;
  unsigned int chunkSize = 0;
  unsigned int largest = 0;
  // No ".mem" file lies beside the test binary: these are the defaults.
  ConfigFileReader::ReadConfigValues(chunks, chunkSize, largest);
  ASSERT_EQ(chunks, 650u);
  ASSERT_EQ(chunkSize, 2048u);
  ASSERT_EQ(largest, 1024u);
  Build(chunks, 0, chunkSize, largest);
  ASSERT_EQ(ScriptedSegmentHeap::requests.size(), 1u);
  EXPECT_EQ(ScriptedSegmentHeap::requests[0], 1331200u);
  EXPECT_EQ(pool.ClassCount(), 128u);
}

#if defined(__arm__) || defined(__i386__) || defined(__x86_64__)

TEST_F(PoolTest, FirstBlockOfAChunkStartsBehindTheTargetsHeaderSize) {
  Build(4);
  void* block = pool.Alloc(8);
  ASSERT_TRUE(pool.Owns(block));
  EXPECT_EQ(reinterpret_cast<uintptr_t>(block) - pool.AlignedSegment(), kExpectedHeaderBytes);
  EXPECT_EQ(kChunkHeaderSize, kExpectedHeaderBytes);
}

TEST_F(PoolTest, ChunkOfTheEightByteClassHoldsTheTargetsBlockCount) {
  Build(4);
  size_t blocksInFirstChunk = 0;
  while (pool.ChunkOf(pool.Alloc(8)) == ChunkNumber(0)) {
    ++blocksInFirstChunk;
  }
  EXPECT_EQ(blocksInFirstChunk, (2048 - kExpectedHeaderBytes) / 8);
#if defined(__arm__)
  EXPECT_EQ(blocksInFirstChunk, 253u);
#endif
}

#endif

}  // namespace
