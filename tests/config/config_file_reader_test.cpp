// Finding, opening and walking the ".mem" file, over a scripted platform.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "reader_fixture.h"
#include "support/mem_file_text.h"

namespace {

using QuendalTest::CommentLines;
using QuendalTest::kMemFileReadBound;

using QuendalTest::Entries;
using QuendalTest::MakeEntries;
using QuendalTest::ReaderTest;
namespace Scripted = QuendalTest::ScriptedPlatform;

typedef std::vector<std::string> Log;

TEST_F(ReaderTest, OpensThePathWithoutExtensionPlusMem) {
  Read("");
  EXPECT_EQ(std::vector<std::string>{"/usr/bin/player.mem"}, Scripted::OpenedPaths());
}

TEST_F(ReaderTest, DottedDirectoryLosesEverythingFromItsDot) {
  Scripted::SetExecutablePath("/opt/app.d/server");
  Read("");
  EXPECT_EQ(std::vector<std::string>{"/opt/app.mem"}, Scripted::OpenedPaths());
}

TEST_F(ReaderTest, ReturnsZeroWithAFile) {
  EXPECT_EQ(0, Read("CHUNKS 1  CHUNK_SIZE 1 SEG_SIZE 1\n"));
}

TEST_F(ReaderTest, FileThatCannotBeOpenedLeavesTheDefaults) {
  Scripted::FailOpenFile();
  getModuleLimits()[const_cast<char*>("kept")] = 5;
  EXPECT_EQ(0, ReadWithoutSettingFile());
  ExpectDefaults();
  EXPECT_EQ(MakeEntries({{"kept", 5}}), CurrentEntries());
  EXPECT_EQ(1u, Scripted::OpenedPaths().size());
  EXPECT_TRUE(Scripted::StreamLog().empty());
  getModuleLimits().clear();
}

TEST_F(ReaderTest, PathThatCannotBeObtainedMeansNoFile) {
  Scripted::FailExecutablePath();
  EXPECT_EQ(0, Read("CHUNKS 800  CHUNK_SIZE 1 SEG_SIZE 1\nMODULE_NAME a LIMIT 1\n"));
  ExpectDefaults();
  EXPECT_TRUE(Scripted::OpenedPaths().empty());
  EXPECT_TRUE(getModuleLimits().empty());
}

TEST_F(ReaderTest, ThreeHundredCharacterPathMeansNoFile) {
  std::string path = "/" + std::string(295, 'd') + "/a.bin";
  ASSERT_EQ(302u, path.size());
  Scripted::SetExecutablePath(path);
  EXPECT_EQ(0, Read("CHUNKS 800  CHUNK_SIZE 1 SEG_SIZE 1\n"));
  ExpectDefaults();
  EXPECT_TRUE(Scripted::OpenedPaths().empty());
}

TEST_F(ReaderTest, LongestPathThatStillFitsWithItsExtensionIsOpened) {
  // 251 characters plus ".mem" and the terminator fill the 256-byte buffer.
  std::string path = "/" + std::string(250, 'p');
  Scripted::SetExecutablePath(path);
  Read("CHUNKS 800  CHUNK_SIZE 1 SEG_SIZE 1\n");
  EXPECT_EQ(std::vector<std::string>{path + ".mem"}, Scripted::OpenedPaths());
  EXPECT_EQ(800u, chunks);
}

TEST_F(ReaderTest, PathOneCharacterTooLongForItsExtensionMeansNoFile) {
  Scripted::SetExecutablePath("/" + std::string(251, 'p'));
  Read("CHUNKS 800  CHUNK_SIZE 1 SEG_SIZE 1\n");
  EXPECT_TRUE(Scripted::OpenedPaths().empty());
  ExpectDefaults();
}

TEST_F(ReaderTest, UnknownLongestPathStillFindsTheFile) {
  Scripted::SetMaxPathLength(-1);
  Read("CHUNKS 800  CHUNK_SIZE 1 SEG_SIZE 1\n");
  EXPECT_EQ(256u, Scripted::LastCommandNameSize());
  EXPECT_EQ(std::vector<std::string>{"/usr/bin/player.mem"}, Scripted::OpenedPaths());
  EXPECT_EQ(800u, chunks);
}

TEST_F(ReaderTest, ReadErrorStopsReadingAndKeepsWhatWasRead) {
  Scripted::ReportErrorFromLine(2);
  Read(
      "CHUNKS 5  CHUNK_SIZE 1 SEG_SIZE 1\n"
      "MODULE_NAME a LIMIT 1\n"
      "CHUNKS 9  CHUNK_SIZE 1 SEG_SIZE 1\n"
      "MODULE_NAME b LIMIT 2\n");
  EXPECT_EQ(5u, chunks);
  EXPECT_EQ(MakeEntries({{"a", 1}}), CurrentEntries());
  EXPECT_EQ((Log{"read", "error?", "end?", "read", "error?", "close"}), Scripted::StreamLog());
}

TEST_F(ReaderTest, ReportedEndStopsReading) {
  Scripted::ReportEndFromLine(1);
  Read("CHUNKS 5  CHUNK_SIZE 1 SEG_SIZE 1\nCHUNKS 9  CHUNK_SIZE 1 SEG_SIZE 1\n");
  EXPECT_EQ(5u, chunks);
  EXPECT_EQ((Log{"read", "error?", "end?", "close"}), Scripted::StreamLog());
}

TEST_F(ReaderTest, StreamIsNotTestedAfterACommentOrAModuleLineWithoutLimit) {
  Scripted::ReportErrorFromLine(1);
  Read(
      "// comment\n"
      "MODULE_NAME a\n"
      "MODULE_NAME    LIMIT 3\n"
      "MODULE_NAME b LIMIT 2\n"
      "MODULE_NAME c LIMIT 3\n");
  EXPECT_EQ(MakeEntries({{"b", 2}}), CurrentEntries());
  EXPECT_EQ((Log{"read", "read", "read", "read", "error?", "close"}), Scripted::StreamLog());
}

TEST_F(ReaderTest, StreamIsTestedAfterABadModuleLine) {
  Scripted::ReportErrorFromLine(1);
  Read("MODULE_NAME a LIMIT x\nMODULE_NAME b LIMIT 2\n");
  EXPECT_TRUE(getModuleLimits().empty());
  EXPECT_EQ((Log{"read", "error?", "close"}), Scripted::StreamLog());
}

TEST_F(ReaderTest, StreamIsTestedAfterEveryPoolLineEvenAnUnmatchedOne) {
  Scripted::ReportEndFromLine(1);
  Read("\nCHUNKS 9  CHUNK_SIZE 1 SEG_SIZE 1\n");
  EXPECT_EQ(650u, chunks);
  EXPECT_EQ((Log{"read", "error?", "end?", "close"}), Scripted::StreamLog());
}

TEST_F(ReaderTest, WholeFileIsReadAndClosedOnce) {
  Read("CHUNKS 5  CHUNK_SIZE 1 SEG_SIZE 1\n// note\n");
  EXPECT_EQ((Log{"read", "error?", "end?", "read", "read-none", "close"}), Scripted::StreamLog());
}

TEST_F(ReaderTest, EmptyFileLeavesTheDefaults) {
  EXPECT_EQ(0, Read(""));
  ExpectDefaults();
  EXPECT_EQ((Log{"read-none", "close"}), Scripted::StreamLog());
}

TEST_F(ReaderTest, LineWithoutFinalNewlineEndsTheFile) {
  Read("MODULE_NAME a LIMIT 1\nCHUNKS 5  CHUNK_SIZE 1 SEG_SIZE 1");
  EXPECT_EQ(5u, chunks);
  EXPECT_EQ(MakeEntries({{"a", 1}}), CurrentEntries());
  // The real end-of-file test ends the loop right after the unterminated line.
  EXPECT_EQ((Log{"read", "error?", "end?", "read", "error?", "end?", "close"}),
            Scripted::StreamLog());
}

TEST_F(ReaderTest, ModuleLineWithoutFinalNewlineIsFiled) {
  Read("MODULE_NAME audio LIMIT 4096");
  EXPECT_EQ(MakeEntries({{"audio", 4096}}), CurrentEntries());
}

TEST_F(ReaderTest, LinesThatEndWithinTheFirstMebibyteAreUsed) {
  const std::string first = "CHUNKS 5  CHUNK_SIZE 1 SEG_SIZE 1\n";
  const std::string last = "MODULE_NAME last LIMIT 1\n";
  std::string contents =
      first + CommentLines(kMemFileReadBound - first.size() - last.size()) + last;
  ASSERT_EQ(kMemFileReadBound, contents.size());
  Read(contents + "CHUNKS 9  CHUNK_SIZE 1 SEG_SIZE 1\nMODULE_NAME after LIMIT 2\n");
  EXPECT_EQ(5u, chunks);
  EXPECT_EQ(MakeEntries({{"last", 1}}), CurrentEntries());
  // The read past the bound is neither used nor followed by a stream test.
  const Log& log = Scripted::StreamLog();
  ASSERT_GE(log.size(), 4u);
  EXPECT_EQ((Log{"error?", "end?", "read", "close"}), Log(log.end() - 4, log.end()));
}

TEST_F(ReaderTest, LineThatCrossesTheFirstMebibyteIsNotUsed) {
  const std::string first = "CHUNKS 5  CHUNK_SIZE 1 SEG_SIZE 1\n";
  Read(first + CommentLines(kMemFileReadBound - first.size() - 10) +
       "MODULE_NAME across LIMIT 1\n" + "CHUNKS 9  CHUNK_SIZE 1 SEG_SIZE 1\n");
  EXPECT_EQ(5u, chunks);
  EXPECT_TRUE(getModuleLimits().empty());
}

TEST_F(ReaderTest, FileOfExactlyAMebibyteIsReadToItsEnd) {
  const std::string last = "CHUNKS 9  CHUNK_SIZE 1 SEG_SIZE 1\n";
  Read(CommentLines(kMemFileReadBound - last.size()) + last);
  EXPECT_EQ(9u, chunks);
  const Log& log = Scripted::StreamLog();
  ASSERT_GE(log.size(), 2u);
  EXPECT_EQ((Log{"read-none", "close"}), Log(log.end() - 2, log.end()));
}

TEST_F(ReaderTest, PositionThatCannotBeToldStopsReading) {
  Scripted::LosePositionFromLine(2);
  Read("CHUNKS 5  CHUNK_SIZE 1 SEG_SIZE 1\nCHUNKS 9  CHUNK_SIZE 1 SEG_SIZE 1\n");
  EXPECT_EQ(5u, chunks);
  EXPECT_EQ((Log{"read", "error?", "end?", "read", "close"}), Scripted::StreamLog());
}

}  // namespace
