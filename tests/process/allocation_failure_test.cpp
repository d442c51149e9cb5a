// Runs the allocation failure programs (allocation_failure_program.cpp): a
// script's requests of the C library's allocator fail in turn, each in a
// child process, over libQuendal.so and over the drop-in.
#include <gtest/gtest.h>

#include <stdlib.h>

#include <string>

#include "support/run_program.h"

namespace {

// The program's last line: "<n> allocations, each failed in turn: <k>
// problems". Returns n, and 0 when the line is missing.
unsigned long AllocationsTried(const std::string& output) {
  size_t start = output.rfind('\n', output.empty() ? 0 : output.size() - 2);
  start = start == std::string::npos ? 0 : start + 1;
  const std::string line = output.substr(start);
  if (line.find(" allocations, each failed in turn: ") == std::string::npos) {
    return 0;
  }
  return strtoul(line.c_str(), nullptr, 10);
}

void RunFailureProgram(const std::string& program) {
  QuendalTest::ProgramResult result = QuendalTest::RunProgram(program, {});
  ASSERT_TRUE(result.exited) << result.output;
  EXPECT_EQ(result.exitCode, 0) << result.output;
  // Module look-ups, reallocations, the extra heap, the memory report and
  // the log all ask: a script that asked for a handful would prove little.
  EXPECT_GE(AllocationsTried(result.output), 10u) << result.output;
}

TEST(AllocationFailure, EveryRequestOfTheLibraryFailsInTurn) {
  if (std::string(QUENDAL_FAILURE_PROGRAM).empty()) {
    GTEST_SKIP() << QUENDAL_FAILURE_SKIP_REASON;
  }
  RunFailureProgram(QUENDAL_FAILURE_PROGRAM);
}

TEST(AllocationFailure, EveryRequestOfTheDropInToTheCLibraryFailsInTurn) {
  if (std::string(QUENDAL_DROP_IN_FAILURE_PROGRAM).empty()) {
    GTEST_SKIP() << (std::string(QUENDAL_FAILURE_SKIP_REASON).empty()
                         ? "the drop-in allocator is not built here"
                         : QUENDAL_FAILURE_SKIP_REASON);
  }
  RunFailureProgram(QUENDAL_DROP_IN_FAILURE_PROGRAM);
}

}  // namespace
