// Classification and heap calls made after the library's statics have ended
// (late_calls_program.cpp): each answers as documented, and nothing reads or
// writes memory the library has already released.
#include <gtest/gtest.h>

#include <string>

#include "support/run_program.h"
#include "support/valgrind_program.h"

namespace {

const char kExpectedOutput[] =
    "before exit ok\n"
    "exit handler: ids 0 0 0, names null null, scope null, read 0/0, after null, "
    "foreign key kept, new ids 0, heap ok\n"
    "global destructor: ids 0 0 0, names null null, scope null, read 0/0, after null, "
    "foreign key kept, new ids 0, heap ok\n";

TEST(LateCalls, AnswerAsForARegistryThatRegistersNothing) {
  const QuendalTest::ProgramResult result = QuendalTest::RunProgram(QUENDAL_LATE_CALLS_PROGRAM, {});
  ASSERT_TRUE(result.exited);
  EXPECT_EQ(0, result.exitCode);
  EXPECT_EQ(kExpectedOutput, result.output);
}

TEST(LateCalls, TouchNoReleasedMemoryUnderValgrind) {
  const std::string why =
      QuendalTest::WhyNotUnderValgrind(QUENDAL_VALGRIND, QUENDAL_VALGRIND_MISSING);
  if (!why.empty()) {
    GTEST_SKIP() << why;
  }
  const QuendalTest::ProgramResult result =
      QuendalTest::RunUnderValgrind(QUENDAL_VALGRIND, QUENDAL_LATE_CALLS_PROGRAM);
  ASSERT_TRUE(result.exited);
  EXPECT_EQ(0, result.exitCode) << "99: valgrind reported errors (see its output above)";
  EXPECT_EQ(kExpectedOutput, result.output);
}

}  // namespace
