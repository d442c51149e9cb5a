// QDCheckPointerMarkers, the exported C form of check_markers.
#include <gtest/gtest.h>

#include "guarded_block.h"
#include "message_recorder.h"
#include "quendal/validation.h"

namespace {

using quendal_test::GuardedBlock;

TEST(QDCheckPointerMarkers, NullBlockGivesOne) {
  EXPECT_EQ(1, QDCheckPointerMarkers(nullptr));
}

TEST(QDCheckPointerMarkers, IntactBlockGivesZero) {
  GuardedBlock b(64);
  ASSERT_TRUE(QDValidation::write_markers(b.block(), 64));
  EXPECT_EQ(0, QDCheckPointerMarkers(b.block()));
}

TEST(QDCheckPointerMarkers, GivesEachResultOfCheckMarkers) {
  GuardedBlock b(64);
  ASSERT_TRUE(QDValidation::write_markers(b.block(), 64));
  b[63] = 1;
  EXPECT_EQ(QDValidation::eFailedEndMarker, QDCheckPointerMarkers(b.block()));
  b[7] = 1;
  EXPECT_EQ(QDValidation::eFailedLenControl, QDCheckPointerMarkers(b.block()));
  b[4] = 1;
  EXPECT_EQ(QDValidation::eFailedStartMarker, QDCheckPointerMarkers(b.block()));
  ASSERT_TRUE(QDValidation::mark_pointer_as_deleted(b.block()));
  EXPECT_EQ(QDValidation::eFailedNullLen, QDCheckPointerMarkers(b.block()));
}

TEST(QDCheckPointerMarkers, ReportsNoMessage) {
  quendal_test::MessageRecorder recorder;
  GuardedBlock b(64);
  ASSERT_TRUE(QDValidation::write_markers(b.block(), 64));
  b[60] = 1;
  EXPECT_EQ(QDValidation::eFailedEndMarker, QDCheckPointerMarkers(b.block()));
  EXPECT_EQ(1, QDCheckPointerMarkers(nullptr));
  EXPECT_TRUE(quendal_test::MessageRecorder::messages().empty());
}

}  // namespace
