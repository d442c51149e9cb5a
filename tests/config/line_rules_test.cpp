// What single lines and whole files do to the pool values and the limit map.
#include <gtest/gtest.h>

#include <string>

#include "reader_fixture.h"

namespace {

using QuendalTest::Entries;
using QuendalTest::MakeEntries;
using QuendalTest::ReaderTest;
namespace Scripted = QuendalTest::ScriptedPlatform;

TEST_F(ReaderTest, NoFileGivesDefaultsAndLeavesTheMap) {
  getModuleLimits()[const_cast<char*>("earlier")] = 1;
  Scripted::FailOpenFile();
  EXPECT_EQ(0, ReadWithoutSettingFile());
  ExpectDefaults();
  EXPECT_EQ(MakeEntries({{"earlier", 1}}), CurrentEntries());
  getModuleLimits().clear();
}

TEST_F(ReaderTest, CompletePoolLineSetsOnlyTheChunkCount) {
  Read("CHUNKS 800  CHUNK_SIZE 4096 SEG_SIZE 64\n");
  EXPECT_EQ(800u, chunks);
  EXPECT_EQ(2048u, chunkSize);
  EXPECT_EQ(1024u, segSize);
}

TEST_F(ReaderTest, PoolLineWithTwoNumbersHasNoEffect) {
  Read("CHUNKS 800 CHUNK_SIZE 4096\n");
  ExpectDefaults();
}

TEST_F(ReaderTest, PoolLineWithLeadingSpacesHasNoEffect) {
  Read("  CHUNKS 800  CHUNK_SIZE 4096 SEG_SIZE 64\n");
  ExpectDefaults();
}

TEST_F(ReaderTest, LaterCompletePoolLineWins) {
  Read(
      "CHUNKS 800  CHUNK_SIZE 4096 SEG_SIZE 64\n"
      "CHUNKS 900  CHUNK_SIZE 1 SEG_SIZE 1\n"
      "CHUNKS 950 CHUNK_SIZE 1\n");
  EXPECT_EQ(900u, chunks);
}

TEST_F(ReaderTest, ZeroChunksArePassedOn) {
  Read("CHUNKS 0  CHUNK_SIZE 1 SEG_SIZE 1\n");
  EXPECT_EQ(0u, chunks);
}

TEST_F(ReaderTest, ModuleLineAddsAnEntry) {
  Read("MODULE_NAME audio LIMIT 4096\n");
  EXPECT_EQ(MakeEntries({{"audio", 4096}}), CurrentEntries());
  ExpectDefaults();
}

TEST_F(ReaderTest, OuterSpacesOfANameAreTrimmedInnerOnesKept) {
  Read("MODULE_NAME   net stack   LIMIT 100000\n");
  EXPECT_EQ(MakeEntries({{"net stack", 100000}}), CurrentEntries());
}

TEST_F(ReaderTest, NameStartsRightBehindTheKey) {
  Read("MODULE_NAMEaudio LIMIT 10\n");
  EXPECT_EQ(MakeEntries({{"audio", 10}}), CurrentEntries());
}

TEST_F(ReaderTest, ModuleLineWithoutLimitAddsNothing) {
  Read("MODULE_NAME audio\n");
  EXPECT_TRUE(getModuleLimits().empty());
}

TEST_F(ReaderTest, ModuleLineWithNonNumericLimitAddsNothing) {
  Read("MODULE_NAME audio LIMIT x\n");
  EXPECT_TRUE(getModuleLimits().empty());
}

TEST_F(ReaderTest, CommentedPoolLineIsIgnored) {
  Read("// CHUNKS 10  CHUNK_SIZE 1 SEG_SIZE 1\n");
  ExpectDefaults();
}

TEST_F(ReaderTest, RepeatedModuleLineAddsTwoEntries) {
  Read("MODULE_NAME audio LIMIT 1\nMODULE_NAME audio LIMIT 1\n");
  EXPECT_EQ(MakeEntries({{"audio", 1}, {"audio", 1}}), CurrentEntries());
  EXPECT_EQ(2u, getModuleLimits().size());
}

TEST_F(ReaderTest, ExampleFileOfThePlayer) {
  Read(
      "// pool setup for the player\n"
      "CHUNKS 800  CHUNK_SIZE 2048 SEG_SIZE 1024\n"
      "MODULE_NAME audio LIMIT 4096\n"
      "MODULE_NAME net stack LIMIT 100000\n");
  EXPECT_EQ(800u, chunks);
  EXPECT_EQ(2048u, chunkSize);
  EXPECT_EQ(1024u, segSize);
  EXPECT_EQ(MakeEntries({{"audio", 4096}, {"net stack", 100000}}), CurrentEntries());
}

TEST_F(ReaderTest, MinusOneLimitIsStoredAs4294967295) {
  Read("MODULE_NAME audio LIMIT -1\n");
  EXPECT_EQ(MakeEntries({{"audio", 4294967295ul}}), CurrentEntries());
}

TEST_F(ReaderTest, LongPhysicalLineIsReadAsSeveralLines) {
  // 127 characters fill the line buffer; the rest of the physical line
  // arrives as a line of its own and is a complete pool line.
  Read(std::string(127, 'x') + "CHUNKS 9  CHUNK_SIZE 1 SEG_SIZE 1\n");
  EXPECT_EQ(9u, chunks);
}

TEST_F(ReaderTest, ModuleLineCutByTheLineBufferAddsNothing) {
  // The first 127 characters hold no "LIMIT"; the rest is no line of any kind.
  Read("MODULE_NAME " + std::string(120, 'n') + " LIMIT 5\n");
  EXPECT_TRUE(getModuleLimits().empty());
}

TEST_F(ReaderTest, CommentCutByTheLineBufferContinuesAsAnOrdinaryLine) {
  Read("//" + std::string(125, ' ') + "CHUNKS 9  CHUNK_SIZE 1 SEG_SIZE 1\n");
  EXPECT_EQ(9u, chunks);
}

TEST_F(ReaderTest, LongestModuleLineKeepsItsWholeName) {
  std::string name(107, 'n');
  std::string line = "MODULE_NAME " + name + " LIMIT 1";
  ASSERT_EQ(127u, line.size());
  Read(line + "\n");
  EXPECT_EQ(MakeEntries({{name, 1}}), CurrentEntries());
}

TEST_F(ReaderTest, NameBufferEndsWithAZeroByte) {
  Read("MODULE_NAME audio LIMIT 1\n");
  char* key = KeyNamed("audio");
  ASSERT_NE(nullptr, key);
  EXPECT_EQ('\0', key[127]);
}

TEST_F(ReaderTest, SlashesBeyondTheFirstColumnsAreNoComment) {
  Read(
      "MODULE_NAME a // LIMIT 5\n"
      "CHUNKS 9  CHUNK_SIZE 1 SEG_SIZE 1 // nine\n"
      " // CHUNKS 10  CHUNK_SIZE 1 SEG_SIZE 1\n");
  EXPECT_EQ(9u, chunks);
  EXPECT_EQ(MakeEntries({{"a //", 5}}), CurrentEntries());
}

TEST_F(ReaderTest, TabsAreNotSkippedInNames) {
  Read("MODULE_NAME\taudio LIMIT 1\nMODULE_NAME net\t LIMIT 2\n");
  EXPECT_EQ(MakeEntries({{"\taudio", 1}, {"net\t", 2}}), CurrentEntries());
}

TEST_F(ReaderTest, EmptyNameLineIsSkipped) {
  Read("MODULE_NAME     LIMIT 5\nMODULE_NAMELIMIT 6\nMODULE_NAME audio LIMIT 7\n");
  EXPECT_EQ(MakeEntries({{"audio", 7}}), CurrentEntries());
}

TEST_F(ReaderTest, NameBeginningWithLimitIsSkipped) {
  Read("MODULE_NAME LIMIT 5\nMODULE_NAME LIMITER LIMIT 6\nMODULE_NAME audio LIMIT 7\n");
  EXPECT_EQ(MakeEntries({{"audio", 7}}), CurrentEntries());
}

TEST_F(ReaderTest, WindowsLineEndsAreTextAfterTheNumbers) {
  Read("CHUNKS 5  CHUNK_SIZE 1 SEG_SIZE 1\r\nMODULE_NAME audio LIMIT 4\r\n");
  EXPECT_EQ(5u, chunks);
  EXPECT_EQ(MakeEntries({{"audio", 4}}), CurrentEntries());
}

TEST_F(ReaderTest, SecondRunAddsASecondSetOfEntries) {
  const std::string file = "CHUNKS 5  CHUNK_SIZE 1 SEG_SIZE 1\nMODULE_NAME audio LIMIT 4096\n";
  Read(file);
  char* first = KeyNamed("audio");
  ASSERT_NE(nullptr, first);
  Read(file);
  EXPECT_EQ(5u, chunks);
  EXPECT_EQ(MakeEntries({{"audio", 4096}, {"audio", 4096}}), CurrentEntries());
  EXPECT_EQ(1u, getModuleLimits().count(first));
}

}  // namespace
