// Classification and heap calls made after the library's statics have ended
// (late_calls_program.cpp): each answers as documented, and nothing reads or
// writes memory the library has already released.
#include <gtest/gtest.h>

#include <stdlib.h>

#include <string>

#include "support/run_program.h"

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
  const std::string valgrind = QUENDAL_VALGRIND;
  if (valgrind.empty()) {
    GTEST_SKIP() << QUENDAL_VALGRIND_MISSING;
  }
  if (getenv("QUENDAL_TEST_EMULATOR") != nullptr) {
    GTEST_SKIP() << "skipped: this configuration runs its programs under an emulator, "
                    "not under valgrind";
  }
  const QuendalTest::ProgramResult result = QuendalTest::RunProgram(
      valgrind, {"--error-exitcode=99", "--leak-check=no", QUENDAL_LATE_CALLS_PROGRAM});
  ASSERT_TRUE(result.exited);
  EXPECT_EQ(0, result.exitCode) << "99: valgrind reported errors (see its output above)";
  EXPECT_EQ(kExpectedOutput, result.output);
}

}  // namespace
