// check_markers: the result codes and the order of the checks.
#include <gtest/gtest.h>

#include <cstring>

#include "guarded_block.h"
#include "quendal/validation.h"

namespace {

using quendal_test::GuardedBlock;

// A 64-byte block with intact markers.
class CheckMarkers : public ::testing::Test {
 protected:
  CheckMarkers() : b(64) {}
  void SetUp() override { ASSERT_TRUE(QDValidation::write_markers(b.block(), 64)); }

  int Check() { return QDValidation::check_markers(b.block(), length); }

  GuardedBlock b;
  unsigned int length = 0;
};

TEST_F(CheckMarkers, IntactBlockGivesOkAndItsLength) {
  EXPECT_EQ(QDValidation::eOk, Check());
  EXPECT_EQ(64u, length);
}

TEST_F(CheckMarkers, ResultCodesHaveTheirValues) {
  EXPECT_EQ(0, QDValidation::eOk);
  EXPECT_EQ(1, QDValidation::eNullPointer);
  EXPECT_EQ(2, QDValidation::eFailedStartMarker);
  EXPECT_EQ(3, QDValidation::eFailedEndMarker);
  EXPECT_EQ(4, QDValidation::eFailedLenControl);
  EXPECT_EQ(5, QDValidation::eFailedNullLen);
}

TEST_F(CheckMarkers, PayloadChangesGoUnnoticed) {
  std::memset(b.block() + 8, 0x11, 52);
  EXPECT_EQ(QDValidation::eOk, Check());
}

TEST_F(CheckMarkers, NullBlockGivesNullPointerAndLeavesLengthAlone) {
  length = 77;
  EXPECT_EQ(QDValidation::eNullPointer, QDValidation::check_markers(nullptr, length));
  EXPECT_EQ(77u, length);
}

TEST_F(CheckMarkers, OverwrittenFirstEndMarkerByteGivesFailedEndMarker) {
  b[60] = 0x01;
  EXPECT_EQ(QDValidation::eFailedEndMarker, Check());
  EXPECT_EQ(64u, length);
}

TEST_F(CheckMarkers, AnyEndMarkerByteChangedGivesFailedEndMarker) {
  for (int offset = 60; offset < 64; ++offset) {
    const unsigned char kept = b[offset];
    b[offset] = static_cast<unsigned char>(kept ^ 0x80);
    EXPECT_EQ(QDValidation::eFailedEndMarker, Check()) << "offset " << offset;
    b[offset] = kept;
  }
}

TEST_F(CheckMarkers, AnyStartMarkerByteChangedGivesFailedStartMarker) {
  for (int offset = 4; offset < 7; ++offset) {
    const unsigned char kept = b[offset];
    b[offset] = static_cast<unsigned char>(kept ^ 0x01);
    EXPECT_EQ(QDValidation::eFailedStartMarker, Check()) << "offset " << offset;
    b[offset] = kept;
  }
}

TEST_F(CheckMarkers, ChangedControlByteGivesFailedLenControl) {
  b[7] = 65;
  EXPECT_EQ(QDValidation::eFailedLenControl, Check());
  EXPECT_EQ(64u, length);
}

TEST_F(CheckMarkers, DeletedBlockGivesFailedNullLenAndLengthZero) {
  ASSERT_TRUE(QDValidation::mark_pointer_as_deleted(b.block()));
  length = 99;
  EXPECT_EQ(QDValidation::eFailedNullLen, Check());
  EXPECT_EQ(0u, length);
}

TEST_F(CheckMarkers, DeletedBlockGivesFailedNullLenWhateverItsMarkersHold) {
  ASSERT_TRUE(QDValidation::mark_pointer_as_deleted(b.block()));
  b[4] = 0;
  b[7] = 0x33;
  b[60] = 0x44;
  EXPECT_EQ(QDValidation::eFailedNullLen, Check());
}

TEST_F(CheckMarkers, StoresTheLengthBeforeCheckingTheMarkers) {
  b[5] = 0x42;
  EXPECT_EQ(QDValidation::eFailedStartMarker, Check());
  EXPECT_EQ(64u, length);
}

TEST_F(CheckMarkers, StartMarkerIsCheckedBeforeControlByteAndEndMarker) {
  b[4] = 0;
  b[7] = 0;
  b[60] = 1;
  EXPECT_EQ(QDValidation::eFailedStartMarker, Check());
}

TEST_F(CheckMarkers, ControlByteIsCheckedBeforeEndMarker) {
  b[7] = 0;
  b[63] = 1;
  EXPECT_EQ(QDValidation::eFailedLenControl, Check());
}

TEST_F(CheckMarkers, ChangedLengthUsuallyGivesFailedLenControl) {
  b.SetStoredLength(65);
  EXPECT_EQ(QDValidation::eFailedLenControl, Check());
  EXPECT_EQ(65u, length);
  b.SetStoredLength(63);
  EXPECT_EQ(QDValidation::eFailedLenControl, Check());
}

TEST_F(CheckMarkers, WildLengthWithWrongControlByteIsNotFollowed) {
  b.SetStoredLength(0x7FFFFFF0u);
  EXPECT_EQ(QDValidation::eFailedLenControl, Check());
  EXPECT_EQ(0x7FFFFFF0u, length);
}

TEST(CheckMarkersLength, TwelveChangedTo267GivesFailedEndMarker) {
  // 267 + 267 / 255 = 268, which is 12 mod 256: the control byte still
  // matches, so the end marker is looked for at offset 263.
  GuardedBlock b(267);
  ASSERT_TRUE(QDValidation::write_markers(b.block(), 12));
  b.SetStoredLength(267);
  unsigned int length = 0;
  EXPECT_EQ(QDValidation::eFailedEndMarker, QDValidation::check_markers(b.block(), length));
  EXPECT_EQ(267u, length);
}

TEST(CheckMarkersLength, TwelveChangedTo267PassesWithAnEndMarkerAt263) {
  GuardedBlock b(267);
  ASSERT_TRUE(QDValidation::write_markers(b.block(), 12));
  b.SetStoredLength(267);
  std::memcpy(b.block() + 263, QDValidation::end_markers, 4);
  unsigned int length = 0;
  EXPECT_EQ(QDValidation::eOk, QDValidation::check_markers(b.block(), length));
  EXPECT_EQ(267u, length);
}

TEST(CheckMarkersLength, TwelveIsTheSmallestLengthThatPasses) {
  GuardedBlock b(12);
  ASSERT_TRUE(QDValidation::write_markers(b.block(), 12));
  unsigned int length = 0;
  EXPECT_EQ(QDValidation::eOk, QDValidation::check_markers(b.block(), length));
  EXPECT_EQ(12u, length);
}

TEST(CheckMarkersLength, BelowFourGivesFailedEndMarkerWithoutLeavingTheBlock) {
  // The end marker would lie before the block: the check fails instead of
  // reading there.
  for (unsigned int stored = 1; stored < 4; ++stored) {
    GuardedBlock b(8);
    ASSERT_TRUE(QDValidation::write_markers(b.block(), stored));
    unsigned int length = 0;
    EXPECT_EQ(QDValidation::eFailedEndMarker, QDValidation::check_markers(b.block(), length))
        << "length " << stored;
    EXPECT_EQ(stored, length);
  }
}

}  // namespace
