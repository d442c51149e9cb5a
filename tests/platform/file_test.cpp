// Reading a text file through the platform's stream functions.
#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "platform/file.h"
#include "support/temp_dir.h"

namespace {

using namespace Quendal::Platform;

TEST(PlatformFile, ReadsLinesUntilTheEndAndReportsIt) {
  QuendalTest::TempDir directory;
  const std::string path = (directory.path() / "lines.mem").string();
  QuendalTest::WriteFile(path, "first\nsecond");
  FILE* file = OpenRegularFile(path.c_str());
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
  FILE* file = OpenRegularFile(path.c_str());
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
  EXPECT_EQ(OpenRegularFile((directory.path() / "absent.mem").c_str()), nullptr);
}

TEST(PlatformFile, PositionCountsTheBytesTheReadsTook) {
  QuendalTest::TempDir directory;
  const std::string path = (directory.path() / "lines.mem").string();
  QuendalTest::WriteFile(path, std::string("ab\0d\nxyz", 8));
  FILE* file = OpenRegularFile(path.c_str());
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(ReadPosition(file), 0);
  char line[16];
  ASSERT_NE(ReadLine(line, sizeof line, file), nullptr);
  EXPECT_EQ(ReadPosition(file), 5);
  ASSERT_NE(ReadLine(line, sizeof line, file), nullptr);
  EXPECT_EQ(ReadPosition(file), 8);
  CloseFile(file);
}

TEST(PlatformFile, LinkToARegularFileIsOpened) {
  QuendalTest::TempDir directory;
  QuendalTest::WriteFile(directory.path() / "target", "line\n");
  std::filesystem::create_symlink(directory.path() / "target", directory.path() / "link.mem");
  FILE* file = OpenRegularFile((directory.path() / "link.mem").c_str());
  ASSERT_NE(file, nullptr);
  char line[16];
  ASSERT_NE(ReadLine(line, sizeof line, file), nullptr);
  EXPECT_STREQ(line, "line\n");
  CloseFile(file);
}

// Opening a FIFO nobody writes to would wait for a writer.
TEST(PlatformFile, FifoGivesNull) {
  QuendalTest::TempDir directory;
  const std::string path = (directory.path() / "fifo.mem").string();
  ASSERT_EQ(mkfifo(path.c_str(), 0644), 0);
  EXPECT_EQ(OpenRegularFile(path.c_str()), nullptr);
}

TEST(PlatformFile, DirectoryGivesNull) {
  QuendalTest::TempDir directory;
  EXPECT_EQ(OpenRegularFile(directory.path().c_str()), nullptr);
}

TEST(PlatformFile, DeviceGivesNull) {
  EXPECT_EQ(OpenRegularFile("/dev/zero"), nullptr);
  EXPECT_EQ(OpenRegularFile("/dev/null"), nullptr);
}

}  // namespace
