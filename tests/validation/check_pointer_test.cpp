// check_pointer: its result and the one message it passes on per failure.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "guarded_block.h"
#include "message_recorder.h"
#include "quendal/hooks.h"
#include "quendal/validation.h"
#include "validation/check_report.h"

namespace {

using quendal_test::AddressText;
using quendal_test::GuardedBlock;
using quendal_test::MessageRecorder;

// A 64-byte block with intact markers, and the messages check_pointer sends.
class CheckPointer : public ::testing::Test {
 protected:
  CheckPointer() : b(64) {}
  void SetUp() override { ASSERT_TRUE(QDValidation::write_markers(b.block(), 64)); }

  const std::vector<std::string>& messages() { return MessageRecorder::messages(); }
  std::string address() { return AddressText(b.block()); }

  GuardedBlock b;
  MessageRecorder recorder;
};

TEST_F(CheckPointer, IntactBlockGivesTrueAndNoMessage) {
  EXPECT_TRUE(QDValidation::check_pointer(b.block()));
  EXPECT_TRUE(messages().empty());
}

TEST_F(CheckPointer, NullBlockReportsNullPointer) {
  EXPECT_FALSE(QDValidation::check_pointer(nullptr));
  EXPECT_EQ(std::vector<std::string>{"QDValidation::check_pointer: Null pointer."}, messages());
}

TEST_F(CheckPointer, FailedStartMarkerMessageStartsWithASpace) {
  b[6] = 0;
  EXPECT_FALSE(QDValidation::check_pointer(b.block()));
  EXPECT_EQ(
      std::vector<std::string>{" QDValidation::check_pointer eFailedStartMarker " + address()},
      messages());
}

TEST_F(CheckPointer, FailedEndMarkerMessageGivesAddressAndLength) {
  b[60] = 0xEE;
  EXPECT_FALSE(QDValidation::check_pointer(b.block()));
  EXPECT_EQ(std::vector<std::string>{"QDValidation::check_pointer eFailedEndMarker " + address() +
                                     " len 64"},
            messages());
}

TEST_F(CheckPointer, FailedLenControlMessageGivesAddressAndStoredLength) {
  b.SetStoredLength(1000);
  EXPECT_FALSE(QDValidation::check_pointer(b.block()));
  EXPECT_EQ(std::vector<std::string>{"QDValidation::check_pointer eFailedLenControl " + address() +
                                     " len 1000"},
            messages());
}

TEST_F(CheckPointer, FailedNullLenMessageSuspectsADoubleDelete) {
  ASSERT_TRUE(QDValidation::mark_pointer_as_deleted(b.block()));
  EXPECT_FALSE(QDValidation::check_pointer(b.block()));
  EXPECT_EQ(std::vector<std::string>{"QDValidation::check_pointer eFailedNullLen " + address() +
                                     ": Length is 0, might be deleted twice"},
            messages());
}

TEST_F(CheckPointer, LengthOf2To31OrMorePrintsAsNegative) {
  // A 32-bit long, as on the target, shows such a length with a sign.
  b.SetStoredLength(0x80000000u);
  b[7] = 0;
  EXPECT_FALSE(QDValidation::check_pointer(b.block()));
  EXPECT_EQ(std::vector<std::string>{"QDValidation::check_pointer eFailedLenControl " + address() +
                                     " len -2147483648"},
            messages());
}

TEST_F(CheckPointer, ReportsOnlyTheFirstFailedCheck) {
  b[4] = 0;
  b[7] = 0;
  b[60] = 0xEE;
  EXPECT_FALSE(QDValidation::check_pointer(b.block()));
  ASSERT_EQ(1u, messages().size());
  EXPECT_EQ(" QDValidation::check_pointer eFailedStartMarker " + address(), messages()[0]);
}

TEST_F(CheckPointer, EachCallReportsAgain) {
  b[60] = 0xEE;
  EXPECT_FALSE(QDValidation::check_pointer(b.block()));
  EXPECT_FALSE(QDValidation::check_pointer(b.block()));
  EXPECT_EQ(2u, messages().size());
}

TEST_F(CheckPointer, UnknownResultGetsTheGuardMessage) {
  Quendal::Validation::ReportCheckFailure(6, b.block(), 64);
  EXPECT_EQ(
      std::vector<std::string>{"QDValidation::check_pointer " + address() + ": unknown error."},
      messages());
}

TEST_F(CheckPointer, LongestMessagesFitTheirBuffer) {
  Quendal::Validation::ReportCheckFailure(QDValidation::eFailedLenControl, b.block(), 0x7FFFFFFFu);
  Quendal::Validation::ReportCheckFailure(QDValidation::eFailedNullLen, b.block(), 0);
  ASSERT_EQ(2u, messages().size());
  EXPECT_EQ("QDValidation::check_pointer eFailedLenControl " + address() + " len 2147483647",
            messages()[0]);
  EXPECT_EQ("QDValidation::check_pointer eFailedNullLen " + address() +
                ": Length is 0, might be deleted twice",
            messages()[1]);
  EXPECT_LT(messages()[1].size(), Quendal::Validation::kMessageBufferSize);
}

TEST(CheckPointerSink, MessagesGoToTheExceptionFileHook) {
  EXPECT_EQ(&QDExcHdlWriteMessageToExceptionFile, Quendal::Validation::messageSink);
}

TEST(CheckPointerSink, FailureWithTheHookGivesFalseAndGoesOn) {
  GuardedBlock b(64);
  ASSERT_TRUE(QDValidation::write_markers(b.block(), 64));
  b[60] = 0xEE;
  EXPECT_FALSE(QDValidation::check_pointer(b.block()));
  EXPECT_FALSE(QDValidation::check_pointer(nullptr));
}

}  // namespace
