// Reading a text file through the platform's stream functions.
#include <gtest/gtest.h>

#include <string>

#include "platform/file.h"
#include "support/temp_dir.h"

namespace {

using namespace Quendal::Platform;

TEST(PlatformFile, ReadsLinesUntilTheEndAndReportsIt) {
  QuendalTest::TempDir directory;
  const std::string path = (directory.path() / "lines.mem").string();
  QuendalTest::WriteFile(path, "first\nsecond");
  FILE* file = OpenFile(path.c_str(), "r");
  ASSERT_NE(file, nullptr);
  char line[16];
  ASSERT_EQ(ReadLine(line, sizeof line, file), line);
  EXPECT_STREQ(line, "first\n");
  EXPECT_EQ(FileAtEnd(file), 0);
  ASSERT_EQ(ReadLine(line, sizeof line, file), line);
  EXPECT_STREQ(line, "second");
  EXPECT_NE(FileAtEnd(file), 0);
  EXPECT_EQ(ReadLine(line, sizeof line, file), nullptr);
  EXPECT_EQ(FileError(file), 0);
  EXPECT_EQ(CloseFile(file), 0);
}

TEST(PlatformFile, LineLongerThanTheBufferComesInPieces) {
  QuendalTest::TempDir directory;
  const std::string path = (directory.path() / "long.mem").string();
  QuendalTest::WriteFile(path, "abcdefgh\n");
  FILE* file = OpenFile(path.c_str(), "r");
  ASSERT_NE(file, nullptr);
  char line[4];
  ASSERT_NE(ReadLine(line, sizeof line, file), nullptr);
  EXPECT_STREQ(line, "abc");
  ASSERT_NE(ReadLine(line, sizeof line, file), nullptr);
  EXPECT_STREQ(line, "def");
  CloseFile(file);
}

TEST(PlatformFile, MissingFileGivesNull) {
  QuendalTest::TempDir directory;
  EXPECT_EQ(OpenFile((directory.path() / "absent.mem").c_str(), "r"), nullptr);
}

}  // namespace
