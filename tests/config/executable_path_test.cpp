// The executable's path without its extension, over a scripted platform.
#include <gtest/gtest.h>

#include <string.h>

#include <string>
#include <vector>

#include "quendal/config_file_reader.h"
#include "support/scripted_platform.h"

namespace {

namespace Scripted = QuendalTest::ScriptedPlatform;

class ExecutablePathTest : public ::testing::Test {
 protected:
  void SetUp() override { Scripted::Reset(); }

  // Runs the call on a buffer of length bytes, filled with 'X' beforehand.
  int PathWithoutExtension(const std::string& executable, int length) {
    Scripted::SetExecutablePath(executable);
    buffer.assign(static_cast<size_t>(length), 'X');
    return ConfigFileReader::GetExecutablePathWithoutExtension(buffer.data(), length);
  }

  bool BufferUntouched() const {
    for (char byte : buffer) {
      if (byte != 'X') {
        return false;
      }
    }
    return true;
  }

  std::vector<char> buffer;
};

TEST_F(ExecutablePathTest, ExtensionIsRemoved) {
  EXPECT_EQ(15, PathWithoutExtension("/usr/bin/player.bin", 256));
  EXPECT_STREQ("/usr/bin/player", buffer.data());
}

TEST_F(ExecutablePathTest, LastDotOfTheWholePathCutsIt) {
  EXPECT_EQ(8, PathWithoutExtension("/opt/app.d/server", 256));
  EXPECT_STREQ("/opt/app", buffer.data());
}

TEST_F(ExecutablePathTest, OnlyTheLastExtensionIsRemoved) {
  EXPECT_EQ(8, PathWithoutExtension("/a/b.tar.gz", 256));
  EXPECT_STREQ("/a/b.tar", buffer.data());
}

TEST_F(ExecutablePathTest, PathWithoutDotIsKept) {
  EXPECT_EQ(15, PathWithoutExtension("/usr/bin/player", 256));
  EXPECT_STREQ("/usr/bin/player", buffer.data());
}

TEST_F(ExecutablePathTest, LeadingDotOfAFileNameCutsTheWholeName) {
  EXPECT_EQ(9, PathWithoutExtension("/usr/bin/.player", 256));
  EXPECT_STREQ("/usr/bin/", buffer.data());
}

TEST_F(ExecutablePathTest, RestOfTheBufferIsZeroFilled) {
  // The copy pads behind the whole path; the cut then ends it at the dot.
  ASSERT_EQ(4, PathWithoutExtension("/a/b.c", 32));
  EXPECT_EQ(0, memcmp(buffer.data(), "/a/b\0c", 7));
  for (size_t i = 7; i < buffer.size(); ++i) {
    EXPECT_EQ('\0', buffer[i]) << "at " << i;
  }
}

TEST_F(ExecutablePathTest, PathThatCannotBeObtainedLeavesBufferAlone) {
  Scripted::FailExecutablePath();
  buffer.assign(256, 'X');
  EXPECT_EQ(-1, ConfigFileReader::GetExecutablePathWithoutExtension(buffer.data(), 256));
  EXPECT_TRUE(BufferUntouched());
  EXPECT_EQ(1, Scripted::CommandNameCalls());
}

TEST_F(ExecutablePathTest, PathLongerThanTheBufferLeavesItAlone) {
  std::string longPath = "/" + std::string(295, 'd') + "/a.bin";
  ASSERT_EQ(302u, longPath.size());
  EXPECT_EQ(-1, PathWithoutExtension(longPath, 256));
  EXPECT_TRUE(BufferUntouched());
}

TEST_F(ExecutablePathTest, PathIsJudgedBeforeItsExtensionIsCut) {
  // 258 characters, 254 once cut: still refused, as the cut comes later.
  std::string path = "/" + std::string(253, 'p') + ".bin";
  ASSERT_EQ(258u, path.size());
  EXPECT_EQ(-1, PathWithoutExtension(path, 256));
  EXPECT_TRUE(BufferUntouched());
}

TEST_F(ExecutablePathTest, PathNeedsRoomForItsTerminator) {
  std::string path = "/" + std::string(9, 'p');
  EXPECT_EQ(-1, PathWithoutExtension(path, 10));
  EXPECT_TRUE(BufferUntouched());
  EXPECT_EQ(10, PathWithoutExtension(path, 11));
  EXPECT_EQ(path, std::string(buffer.data()));
}

TEST_F(ExecutablePathTest, ScratchIsSizedByTheLongestPath) {
  Scripted::SetMaxPathLength(1024);
  PathWithoutExtension("/usr/bin/player.bin", 256);
  EXPECT_EQ(1024u, Scripted::LastCommandNameSize());
}

TEST_F(ExecutablePathTest, UnknownLongestPathGivesA256ByteScratch) {
  Scripted::SetMaxPathLength(-1);
  EXPECT_EQ(15, PathWithoutExtension("/usr/bin/player.bin", 256));
  EXPECT_EQ(256u, Scripted::LastCommandNameSize());
}

TEST_F(ExecutablePathTest, PathTooLongForThe256ByteScratchCannotBeObtained) {
  Scripted::SetMaxPathLength(-1);
  std::string path = "/" + std::string(299, 'q');
  EXPECT_EQ(-1, PathWithoutExtension(path, 4096));
  EXPECT_TRUE(BufferUntouched());
}

TEST_F(ExecutablePathTest, NullBufferOrEmptyLengthGivesMinusOne) {
  Scripted::SetExecutablePath("/usr/bin/player.bin");
  EXPECT_EQ(-1, ConfigFileReader::GetExecutablePathWithoutExtension(nullptr, 256));
  char byte = 'X';
  EXPECT_EQ(-1, ConfigFileReader::GetExecutablePathWithoutExtension(&byte, 0));
  EXPECT_EQ(-1, ConfigFileReader::GetExecutablePathWithoutExtension(&byte, -5));
  EXPECT_EQ('X', byte);
  EXPECT_EQ(0, Scripted::CommandNameCalls());
}

}  // namespace
