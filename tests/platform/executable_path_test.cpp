// The running executable's path as the operating system reports it.
#include <gtest/gtest.h>

#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "platform/executable_path.h"

namespace {

using Quendal::Platform::CommandName;
using Quendal::Platform::MaxPathLength;

std::string RealExecutablePath() {
  char path[PATH_MAX];
  ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
  if (length <= 0) {
    return std::string();
  }
  return std::string(path, static_cast<size_t>(length));
}

TEST(ExecutablePath, LongestPathIsThePlatformsLimit) {
  EXPECT_EQ(MaxPathLength(), pathconf("/", _PC_PATH_MAX));
  EXPECT_GE(MaxPathLength(), 256);
}

TEST(ExecutablePath, CommandNameIsTheFullPathOfThisProgram) {
  const std::string expected = RealExecutablePath();
  ASSERT_FALSE(expected.empty());
  char buffer[PATH_MAX];
  memset(buffer, 'x', sizeof buffer);
  ASSERT_EQ(CommandName(buffer, sizeof buffer), buffer);
  EXPECT_EQ(std::string(buffer), expected);
  EXPECT_EQ(buffer[0], '/');
}

TEST(ExecutablePath, PathWithOneSpareByteFits) {
  const std::string expected = RealExecutablePath();
  std::string buffer(expected.size() + 2, 'x');
  ASSERT_EQ(CommandName(&buffer[0], buffer.size()), &buffer[0]);
  EXPECT_EQ(std::string(buffer.c_str()), expected);
}

// readlink does not say whether it cut the path, so a path that fills the
// buffer up to its terminator counts as cut.
TEST(ExecutablePath, PathThatFillsTheBufferExactlyCountsAsCut) {
  const std::string expected = RealExecutablePath();
  std::string buffer(expected.size() + 1, 'x');
  EXPECT_EQ(CommandName(&buffer[0], buffer.size()), nullptr);
}

TEST(ExecutablePath, BufferOneByteShortGivesNullAndNoOverrun) {
  const std::string expected = RealExecutablePath();
  // A guard byte behind the buffer the call is told about.
  std::string buffer(expected.size() + 1, 'x');
  EXPECT_EQ(CommandName(&buffer[0], expected.size()), nullptr);
  EXPECT_EQ(buffer[expected.size()], 'x');
}

TEST(ExecutablePath, NullOrTinyBufferGivesNull) {
  char buffer[1] = {'x'};
  EXPECT_EQ(CommandName(nullptr, 100), nullptr);
  EXPECT_EQ(CommandName(buffer, 0), nullptr);
  EXPECT_EQ(CommandName(buffer, 1), nullptr);
  EXPECT_EQ(buffer[0], 'x');
}

}  // namespace
