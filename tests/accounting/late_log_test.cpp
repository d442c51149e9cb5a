// The module-name log and the accounting table used after their end at exit
// while the module registry still lives (late_log_program.cpp): the late
// new name is not filed, every query answers as for empty tables, and
// nothing reads or writes memory the tables have already released.
#include <gtest/gtest.h>

#include <string>

#include "support/report_text.h"
#include "support/run_program.h"
#include "support/valgrind_program.h"

namespace {

using QuendalTest::kReportHead;

const std::string kExpectedOutput =
    std::string(
        "before exit: mapping 2, copy true 2, heap alloc 1, copy true 1, current sum 64, "
        "log table 2, accounting table 1, messages 0\n"
        "2;video;\n"
        "1;audio;\n") +
    kReportHead +
    "audio;2;64;0;-9999;0\n"
    "\nCurrentSum;MaxSum;AdditionalStore;MaxAddStore;\n64;0;0;0;\n"
    "late: ids 1 3\n"
    "late: mapping 4294967295, copy false 0, heap alloc 4294967295, copy false 0, "
    "current sum 64, log table 0, accounting table 0, messages 0\n" +
    kReportHead + "\nCurrentSum;MaxSum;AdditionalStore;MaxAddStore;\n64;0;0;0;\n";

TEST(LateLog, AnswersAsForEmptyTablesAndFilesNothing) {
  const QuendalTest::ProgramResult result = QuendalTest::RunProgram(QUENDAL_LATE_LOG_PROGRAM, {});
  ASSERT_TRUE(result.exited);
  EXPECT_EQ(0, result.exitCode);
  EXPECT_EQ(kExpectedOutput, result.output);
}

TEST(LateLog, TouchesNoReleasedMemoryUnderValgrind) {
  const std::string why =
      QuendalTest::WhyNotUnderValgrind(QUENDAL_VALGRIND, QUENDAL_VALGRIND_MISSING);
  if (!why.empty()) {
    GTEST_SKIP() << why;
  }
  const QuendalTest::ProgramResult result =
      QuendalTest::RunUnderValgrind(QUENDAL_VALGRIND, QUENDAL_LATE_LOG_PROGRAM);
  ASSERT_TRUE(result.exited);
  EXPECT_EQ(0, result.exitCode) << "99: valgrind reported errors (see its output above)";
  EXPECT_EQ(kExpectedOutput, result.output);
}

}  // namespace
