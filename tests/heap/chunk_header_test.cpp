#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "heap/chunk_header.h"
#include "heap/size_class.h"
#include "util/max_align.h"

namespace {

using Quendal::Heap::ChunkHeader;
using Quendal::Heap::ClassIndex;
using Quendal::Heap::ClassSize;
using Quendal::Heap::kChunkHeaderSize;

TEST(ChunkHeaderTest, FundamentalAlignmentMatchesMaxAlignT) {
  EXPECT_EQ(Quendal::kMaxAlign, alignof(std::max_align_t));
}

TEST(ChunkHeaderTest, HeaderIsPaddedToTheFundamentalAlignment) {
  size_t align = alignof(std::max_align_t);
  EXPECT_EQ(kChunkHeaderSize, (sizeof(ChunkHeader) + align - 1) / align * align);
  EXPECT_EQ(kChunkHeaderSize % align, 0u);
#if defined(__arm__)
  EXPECT_EQ(kChunkHeaderSize, 24u);
#elif defined(__i386__)
  EXPECT_EQ(kChunkHeaderSize, 32u);
#elif defined(__x86_64__)
  EXPECT_EQ(kChunkHeaderSize, 48u);
#endif
}

TEST(ChunkHeaderTest, FieldsKeepTheirOrderAndWidths) {
  EXPECT_LT(offsetof(ChunkHeader, chunkBytes), offsetof(ChunkHeader, prevChunk));
  EXPECT_LT(offsetof(ChunkHeader, prevChunk), offsetof(ChunkHeader, nextChunk));
  EXPECT_LT(offsetof(ChunkHeader, nextChunk), offsetof(ChunkHeader, freeBlocks));
  EXPECT_LT(offsetof(ChunkHeader, freeBlocks), offsetof(ChunkHeader, usedBlocks));
  EXPECT_LT(offsetof(ChunkHeader, usedBlocks), offsetof(ChunkHeader, blockSize));
  EXPECT_TRUE((std::is_same<decltype(ChunkHeader::chunkBytes), uint32_t>::value));
  EXPECT_TRUE((std::is_same<decltype(ChunkHeader::usedBlocks), uint16_t>::value));
  EXPECT_TRUE((std::is_same<decltype(ChunkHeader::blockSize), uint32_t>::value));
#if defined(__arm__) || defined(__i386__)
  // Six 32-bit words on the 32-bit targets.
  EXPECT_EQ(sizeof(ChunkHeader), 24u);
#endif
}

TEST(SizeClassTest, SizesRoundUpToMultiplesOfEight) {
  EXPECT_EQ(ClassSize(1), 8u);
  EXPECT_EQ(ClassSize(8), 8u);
  EXPECT_EQ(ClassSize(9), 16u);
  EXPECT_EQ(ClassSize(1017), 1024u);
  EXPECT_EQ(ClassSize(1024), 1024u);
  EXPECT_EQ(ClassIndex(ClassSize(1)), 0u);
  EXPECT_EQ(ClassIndex(ClassSize(9)), 1u);
  EXPECT_EQ(ClassIndex(ClassSize(1024)), 127u);
}

}  // namespace
