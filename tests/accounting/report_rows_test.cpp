// The row forms of the memory report and the name look-up that picks them,
// including the form with a configured limit, which the report itself never
// reaches because limits are filed under the reader's own name buffers.
#include <gtest/gtest.h>

#include <string>

#include "accounting/report_rows.h"
#include "captured_stream.h"

namespace {

using namespace Quendal::Accounting;
using quendal_test::CapturedStream;

QDCurrentHeapAlloc MakeRecord(unsigned short module, unsigned short subModule, int used,
                              int maxUsed, int count) {
  QDCurrentHeapAlloc record = {module, subModule, used, maxUsed, count, 0};
  return record;
}

std::string NamedRow(bool limitFound, unsigned long limit) {
  CapturedStream stream;
  WriteNamedRow(stream.get(), "audio", MakeRecord(1, 2, 30, 40, 5), limitFound, limit);
  return stream.Text();
}

TEST(ReportRowsTest, NamedRowWithALimitPrintsItWithoutTrailingSemicolon) {
  EXPECT_EQ("audio;2;30;40;4096;5\n", NamedRow(true, 4096));
}

TEST(ReportRowsTest, NamedRowWithoutALimitPrintsMinus9999) {
  EXPECT_EQ("audio;2;30;40;-9999;5\n", NamedRow(false, 4096));
}

TEST(ReportRowsTest, LimitOf2147483648OrMorePrintsNegative) {
  EXPECT_EQ("audio;2;30;40;2147483647;5\n", NamedRow(true, 2147483647ul));
  EXPECT_EQ("audio;2;30;40;-2147483648;5\n", NamedRow(true, 2147483648ul));
  EXPECT_EQ("audio;2;30;40;-1;5\n", NamedRow(true, 4294967295ul));
}

TEST(ReportRowsTest, NamelessRowPrintsTheIdMinus999AndATrailingSemicolon) {
  CapturedStream stream;
  WriteNamelessRow(stream.get(), MakeRecord(65535, 0, 1, 2, 3));
  EXPECT_EQ("65535;0;1;2;-999;3;\n", stream.Text());
}

TEST(ReportRowsTest, TrailerPrintsTheSumsEachFollowedBySemicolon) {
  CapturedStream stream;
  QDSumHeapAlloc sums = {1, 2, 3, 4};
  WriteSumsTrailer(stream.get(), sums);
  EXPECT_EQ("\nCurrentSum;MaxSum;AdditionalStore;MaxAddStore;\n4;2;3;1;\n", stream.Text());
}

TEST(ReportRowsTest, LaterOfTwoPairsWithTheSameIdGivesTheName) {
  unsigned short ids[3] = {5, 7, 5};
  char names[3][64] = {"first", "other", "second"};
  EXPECT_STREQ("second", FindModuleName(ids, names, 3, 5));
  EXPECT_STREQ("other", FindModuleName(ids, names, 3, 7));
}

TEST(ReportRowsTest, IdAbsentFromThePairsGivesNoName) {
  unsigned short ids[2] = {5, 7};
  char names[2][64] = {"first", "other"};
  EXPECT_EQ(nullptr, FindModuleName(ids, names, 2, 6));
  EXPECT_EQ(nullptr, FindModuleName(ids, names, 0, 5));
}

TEST(ReportRowsTest, OnlyTheGivenNumberOfPairsIsScanned) {
  unsigned short ids[3] = {5, 7, 5};
  char names[3][64] = {"first", "other", "second"};
  EXPECT_STREQ("first", FindModuleName(ids, names, 2, 5));
}

}  // namespace
