// write_markers and mark_pointer_as_deleted: what they write into a block.
#include <gtest/gtest.h>

#include <cstdint>

#include "guarded_block.h"
#include "quendal/validation.h"

namespace {

using quendal_test::GuardedBlock;

// Start marker, control byte and end marker of a 64-byte block.
void ExpectMarkersOf64ByteBlock(GuardedBlock& b) {
  EXPECT_EQ(0xFF, b[4]);
  EXPECT_EQ(0x00, b[5]);
  EXPECT_EQ(0xFF, b[6]);
  EXPECT_EQ(64, b[7]);
  EXPECT_EQ(0x00, b[60]);
  EXPECT_EQ(0xFF, b[61]);
  EXPECT_EQ(0xFF, b[62]);
  EXPECT_EQ(0x00, b[63]);
}

TEST(WriteMarkers, LaysOutLengthStartMarkerControlByteAndEndMarker) {
  GuardedBlock b(64);
  ASSERT_TRUE(QDValidation::write_markers(b.block(), 64));
  EXPECT_EQ(64u, b.StoredLength());
  ExpectMarkersOf64ByteBlock(b);
}

TEST(WriteMarkers, StoresTheLengthInHostByteOrder) {
  GuardedBlock b(0x0304);
  ASSERT_TRUE(QDValidation::write_markers(b.block(), 0x0304));
  const std::uint32_t one = 1;
  const bool littleEndian = *reinterpret_cast<const unsigned char*>(&one) == 1;
  EXPECT_EQ(littleEndian ? 0x04 : 0x00, b[0]);
  EXPECT_EQ(littleEndian ? 0x03 : 0x00, b[1]);
  EXPECT_EQ(littleEndian ? 0x00 : 0x03, b[2]);
  EXPECT_EQ(littleEndian ? 0x00 : 0x04, b[3]);
}

TEST(WriteMarkers, LeavesThePayloadAndTheBytesAroundTheBlockAlone) {
  GuardedBlock b(64);
  ASSERT_TRUE(QDValidation::write_markers(b.block(), 64));
  EXPECT_TRUE(b.Untouched(8, 60));
  EXPECT_TRUE(b.BytesBeforeUntouched());
  EXPECT_TRUE(b.BytesAfterUntouched());
}

TEST(WriteMarkers, NeedsNoAlignment) {
  GuardedBlock b(41);
  unsigned char* odd = b.block() + 1;
  ASSERT_TRUE(QDValidation::write_markers(odd, 40));
  unsigned int length = 0;
  EXPECT_EQ(QDValidation::eOk, QDValidation::check_markers(odd, length));
  EXPECT_EQ(40u, length);
}

TEST(WriteMarkers, NullBlockGivesFalse) {
  EXPECT_FALSE(QDValidation::write_markers(nullptr, 64));
  EXPECT_FALSE(QDValidation::write_markers(nullptr, 0));
}

TEST(WriteMarkers, NullBlockLeavesLenCtrlFlagAsItWas) {
  GuardedBlock b(64);
  ASSERT_TRUE(QDValidation::write_markers(b.block(), 64));
  ASSERT_FALSE(QDValidation::write_markers(nullptr, 65));
  EXPECT_EQ(64, QDValidation::lenCtrlFlag);
}

// Each test runs in a process of its own, so this sees the value at load.
TEST(WriteMarkers, LenCtrlFlagIsZeroAtLoad) {
  EXPECT_EQ(0, QDValidation::lenCtrlFlag);
}

TEST(WriteMarkers, LenCtrlFlagHoldsTheLastControlByte) {
  GuardedBlock first(1000);
  GuardedBlock second(300);
  ASSERT_TRUE(QDValidation::write_markers(first.block(), 1000));
  EXPECT_EQ(0xEB, QDValidation::lenCtrlFlag);
  ASSERT_TRUE(QDValidation::write_markers(second.block(), 300));
  EXPECT_EQ((300 + 1) % 256, QDValidation::lenCtrlFlag);
  EXPECT_EQ(0xEB, first[7]);
}

TEST(WriteMarkers, GlobalsHoldTheMarkers) {
  EXPECT_EQ(0xFF, QDValidation::start_markers[0]);
  EXPECT_EQ(0x00, QDValidation::start_markers[1]);
  EXPECT_EQ(0xFF, QDValidation::start_markers[2]);
  EXPECT_EQ(0x00, QDValidation::end_markers[0]);
  EXPECT_EQ(0xFF, QDValidation::end_markers[1]);
  EXPECT_EQ(0xFF, QDValidation::end_markers[2]);
  EXPECT_EQ(0x00, QDValidation::end_markers[3]);
}

TEST(WriteMarkers, MarkersComeFromTheGlobalsAtEachCall) {
  QDValidation::start_markers[1] = 0x5A;
  QDValidation::end_markers[3] = 0x3C;
  GuardedBlock b(32);
  ASSERT_TRUE(QDValidation::write_markers(b.block(), 32));
  EXPECT_EQ(0x5A, b[5]);
  EXPECT_EQ(0x3C, b[31]);
  unsigned int length = 0;
  EXPECT_EQ(QDValidation::eOk, QDValidation::check_markers(b.block(), length));
  QDValidation::start_markers[1] = 0x00;
  QDValidation::end_markers[3] = 0x00;
}

TEST(WriteMarkers, LengthUnderTwelveLetsTheEndMarkerOverlapTheHeader) {
  GuardedBlock b(8);
  ASSERT_TRUE(QDValidation::write_markers(b.block(), 8));
  // The end marker at offset 4 replaces the start marker and the control byte.
  EXPECT_EQ(0x00, b[4]);
  EXPECT_EQ(0xFF, b[5]);
  EXPECT_EQ(0xFF, b[6]);
  EXPECT_EQ(0x00, b[7]);
  EXPECT_EQ(8u, b.StoredLength());
  EXPECT_TRUE(b.BytesAfterUntouched());
  unsigned int length = 0;
  EXPECT_EQ(QDValidation::eFailedStartMarker, QDValidation::check_markers(b.block(), length));
}

TEST(WriteMarkers, LengthBelowFourWritesNothingBeforeTheBlock) {
  for (unsigned int length = 0; length < 4; ++length) {
    GuardedBlock b(8);
    ASSERT_TRUE(QDValidation::write_markers(b.block(), length));
    EXPECT_TRUE(b.BytesBeforeUntouched()) << "length " << length;
    EXPECT_EQ(length, b.StoredLength());
    EXPECT_EQ(0xFF, b[4]);
    EXPECT_EQ(0x00, b[5]);
    EXPECT_EQ(0xFF, b[6]);
    EXPECT_EQ(length, b[7]);
  }
}

TEST(MarkPointerAsDeleted, ZeroesOnlyTheLengthField) {
  GuardedBlock b(64);
  ASSERT_TRUE(QDValidation::write_markers(b.block(), 64));
  ASSERT_TRUE(QDValidation::mark_pointer_as_deleted(b.block()));
  EXPECT_EQ(0u, b.StoredLength());
  ExpectMarkersOf64ByteBlock(b);
  EXPECT_TRUE(b.Untouched(8, 60));
}

TEST(MarkPointerAsDeleted, NeedsNoMarkersAndNoAlignment) {
  GuardedBlock b(8);
  ASSERT_TRUE(QDValidation::mark_pointer_as_deleted(b.block() + 3));
  EXPECT_TRUE(b.Untouched(0, 3));
  EXPECT_EQ(0, b[3]);
  EXPECT_EQ(0, b[6]);
  EXPECT_TRUE(b.Untouched(7, 8));
}

TEST(MarkPointerAsDeleted, NullBlockGivesFalse) {
  EXPECT_FALSE(QDValidation::mark_pointer_as_deleted(nullptr));
}

}  // namespace
