// QNX's source of the executable's path (platform/qnx/executable_path.cpp),
// run on the build machine over a scripted _cmdname that gives the answers
// QNX documents: the full path written into a buffer of PATH_MAX bytes and
// the buffer returned, or null on failure.
#include <gtest/gtest.h>

#include <limits.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include "platform/executable_path.h"

namespace {

// What the scripted _cmdname answers, and what it was asked.
const char* answer = nullptr;
int calls = 0;
char* lastBuffer = nullptr;

}  // namespace

// NOLINTNEXTLINE(bugprone-reserved-identifier): QNX's name for the call.
extern "C" char* _cmdname(char* name) {
  ++calls;
  lastBuffer = name;
  if (answer == nullptr) {
    return nullptr;
  }
  strcpy(name, answer);
  return name;
}

namespace {

using Quendal::Platform::CommandName;
using Quendal::Platform::MaxPathLength;

TEST(QnxExecutablePath, LongestPathIsTheFileSystemsLimit) {
  EXPECT_EQ(MaxPathLength(), pathconf("/", _PC_PATH_MAX));
}

TEST(QnxExecutablePath, ThePathQnxWritesIsTheAnswer) {
  answer = "/usr/apps/bin/navigation";
  std::string buffer(PATH_MAX, 'x');
  EXPECT_EQ(CommandName(&buffer[0], buffer.size()), &buffer[0]);
  EXPECT_STREQ(buffer.c_str(), "/usr/apps/bin/navigation");
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(lastBuffer, &buffer[0]);
}

// The longest path QNX can write fills PATH_MAX bytes with its terminator.
TEST(QnxExecutablePath, APathOfPathMaxBytesWithItsTerminatorFits) {
  std::string longest(PATH_MAX - 1, 'p');
  longest[0] = '/';
  answer = longest.c_str();
  std::string buffer(PATH_MAX + 1, 'x');
  EXPECT_EQ(CommandName(&buffer[0], PATH_MAX), &buffer[0]);
  EXPECT_EQ(std::string(buffer.c_str()), longest);
  EXPECT_EQ(buffer[PATH_MAX], 'x');
}

TEST(QnxExecutablePath, AFailureIsNull) {
  answer = nullptr;
  std::string buffer(PATH_MAX, 'x');
  EXPECT_EQ(CommandName(&buffer[0], buffer.size()), nullptr);
  EXPECT_EQ(calls, 1);
}

// _cmdname may write PATH_MAX bytes: a smaller buffer is never handed to it.
TEST(QnxExecutablePath, ABufferBelowPathMaxIsRefusedUnasked) {
  answer = "/a";
  std::string buffer(PATH_MAX - 1, 'x');
  EXPECT_EQ(CommandName(&buffer[0], buffer.size()), nullptr);
  EXPECT_EQ(CommandName(nullptr, PATH_MAX), nullptr);
  EXPECT_EQ(calls, 0);
  EXPECT_EQ(buffer[0], 'x');
}

}  // namespace
