// One line at a time, without a file.
#include "config/config_line.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using Quendal::Config::ConfigLine;
using Quendal::Config::ParseConfigLine;

std::string NameOf(const ConfigLine& line) {
  return std::string(line.name, line.nameLength);
}

TEST(ConfigLine, CommentNeedsSlashesInBothFirstColumns) {
  EXPECT_EQ(Quendal::Config::kSkippedLine,
            ParseConfigLine("// CHUNKS 1  CHUNK_SIZE 1 SEG_SIZE 1").kind);
  EXPECT_EQ(Quendal::Config::kSkippedLine, ParseConfigLine("//").kind);
  EXPECT_EQ(Quendal::Config::kIgnoredLine, ParseConfigLine(" //").kind);
  EXPECT_EQ(Quendal::Config::kIgnoredLine, ParseConfigLine("/").kind);
  EXPECT_EQ(Quendal::Config::kIgnoredLine, ParseConfigLine("/ /").kind);
}

TEST(ConfigLine, CommentedModuleLineIsSkipped) {
  EXPECT_EQ(Quendal::Config::kSkippedLine, ParseConfigLine("//MODULE_NAME a LIMIT 1").kind);
}

TEST(ConfigLine, ModuleLineGivesNameAndLimit) {
  ConfigLine line = ParseConfigLine("MODULE_NAME audio LIMIT 4096\n");
  ASSERT_EQ(Quendal::Config::kModuleLimitLine, line.kind);
  EXPECT_EQ("audio", NameOf(line));
  EXPECT_EQ(4096ul, line.limit);
}

TEST(ConfigLine, NegativeLimitKeepsItsThirtyTwoBitMeaning) {
  ConfigLine line = ParseConfigLine("MODULE_NAME audio LIMIT -1");
  ASSERT_EQ(Quendal::Config::kModuleLimitLine, line.kind);
  EXPECT_EQ(4294967295ul, line.limit);
  EXPECT_EQ(2147483648ul, ParseConfigLine("MODULE_NAME a LIMIT -2147483648").limit);
}

TEST(ConfigLine, LimitMayFollowTheKeywordWithoutSpace) {
  ConfigLine line = ParseConfigLine("MODULE_NAME a LIMIT7");
  ASSERT_EQ(Quendal::Config::kModuleLimitLine, line.kind);
  EXPECT_EQ(7ul, line.limit);
}

TEST(ConfigLine, TextAfterTheLimitIsIgnored) {
  ConfigLine line = ParseConfigLine("MODULE_NAME a LIMIT 5 bytes // note\n");
  ASSERT_EQ(Quendal::Config::kModuleLimitLine, line.kind);
  EXPECT_EQ(5ul, line.limit);
}

TEST(ConfigLine, OnlySpacesFrameTheName) {
  ConfigLine line = ParseConfigLine("MODULE_NAME \taudio\t LIMIT 3");
  ASSERT_EQ(Quendal::Config::kModuleLimitLine, line.kind);
  EXPECT_EQ("\taudio\t", NameOf(line));
}

TEST(ConfigLine, NameKeepsInnerSpaces) {
  EXPECT_EQ("net stack", NameOf(ParseConfigLine("MODULE_NAME   net stack   LIMIT 100000")));
}

TEST(ConfigLine, KeyIsMatchedOnItsElevenCharactersOnly) {
  ConfigLine line = ParseConfigLine("MODULE_NAMES x LIMIT 1");
  ASSERT_EQ(Quendal::Config::kModuleLimitLine, line.kind);
  EXPECT_EQ("S x", NameOf(line));
  EXPECT_EQ(Quendal::Config::kIgnoredLine, ParseConfigLine("module_name a LIMIT 1").kind);
  EXPECT_EQ(Quendal::Config::kIgnoredLine, ParseConfigLine(" MODULE_NAME a LIMIT 1").kind);
}

TEST(ConfigLine, ModuleLineWithoutLimitIsSkipped) {
  EXPECT_EQ(Quendal::Config::kSkippedLine, ParseConfigLine("MODULE_NAME audio\n").kind);
  EXPECT_EQ(Quendal::Config::kSkippedLine, ParseConfigLine("MODULE_NAME").kind);
  EXPECT_EQ(Quendal::Config::kSkippedLine, ParseConfigLine("MODULE_NAME audio limit 5").kind);
}

TEST(ConfigLine, EmptyNameIsSkipped) {
  EXPECT_EQ(Quendal::Config::kSkippedLine, ParseConfigLine("MODULE_NAME    LIMIT 5").kind);
  EXPECT_EQ(Quendal::Config::kSkippedLine, ParseConfigLine("MODULE_NAMELIMIT 5").kind);
}

TEST(ConfigLine, NameBeginningWithLimitIsSkipped) {
  EXPECT_EQ(Quendal::Config::kSkippedLine, ParseConfigLine("MODULE_NAME LIMIT 5").kind);
  EXPECT_EQ(Quendal::Config::kSkippedLine, ParseConfigLine("MODULE_NAME LIMITER LIMIT 5").kind);
}

TEST(ConfigLine, FirstLimitInsideANameEndsIt) {
  // "UNLIMITED" holds the first "LIMIT": the name is "UN" and the number
  // after that "LIMIT" does not parse.
  EXPECT_EQ(Quendal::Config::kBadModuleLine, ParseConfigLine("MODULE_NAME UNLIMITED LIMIT 5").kind);
}

TEST(ConfigLine, LimitThatIsNoNumberIsBad) {
  EXPECT_EQ(Quendal::Config::kBadModuleLine, ParseConfigLine("MODULE_NAME audio LIMIT x").kind);
  EXPECT_EQ(Quendal::Config::kBadModuleLine, ParseConfigLine("MODULE_NAME audio LIMIT").kind);
  EXPECT_EQ(Quendal::Config::kBadModuleLine, ParseConfigLine("MODULE_NAME audio LIMIT\n").kind);
}

TEST(ConfigLine, PoolLineGivesChunks) {
  ConfigLine line = ParseConfigLine("CHUNKS 800  CHUNK_SIZE 4096 SEG_SIZE 64\n");
  ASSERT_EQ(Quendal::Config::kPoolLine, line.kind);
  EXPECT_EQ(800u, line.chunks);
}

TEST(ConfigLine, PoolLineWhitespaceMatchesAnyRunOrNone) {
  EXPECT_EQ(5u, ParseConfigLine("CHUNKS 5 CHUNK_SIZE 6 SEG_SIZE 7").chunks);
  EXPECT_EQ(5u, ParseConfigLine("CHUNKS5CHUNK_SIZE6SEG_SIZE7").chunks);
  EXPECT_EQ(5u, ParseConfigLine("CHUNKS\t5\t\tCHUNK_SIZE   6\tSEG_SIZE\t7").chunks);
  EXPECT_EQ(Quendal::Config::kPoolLine, ParseConfigLine("CHUNKS5CHUNK_SIZE6SEG_SIZE7").kind);
}

TEST(ConfigLine, PoolLineNeedsAllThreeNumbers) {
  EXPECT_EQ(Quendal::Config::kIgnoredLine, ParseConfigLine("CHUNKS 800 CHUNK_SIZE 4096").kind);
  EXPECT_EQ(Quendal::Config::kIgnoredLine,
            ParseConfigLine("CHUNKS 800  CHUNK_SIZE 4096 SEG_SIZE x").kind);
  EXPECT_EQ(Quendal::Config::kIgnoredLine, ParseConfigLine("CHUNKS").kind);
}

TEST(ConfigLine, PoolLineMustStartInColumnOne) {
  EXPECT_EQ(Quendal::Config::kIgnoredLine,
            ParseConfigLine("  CHUNKS 800  CHUNK_SIZE 4096 SEG_SIZE 64").kind);
}

TEST(ConfigLine, TextAfterThePoolNumbersIsIgnored) {
  EXPECT_EQ(9u, ParseConfigLine("CHUNKS 9  CHUNK_SIZE 1 SEG_SIZE 1 // nine\r\n").chunks);
}

TEST(ConfigLine, NegativeChunksKeepTheirThirtyTwoBitMeaning) {
  EXPECT_EQ(4294967295u, ParseConfigLine("CHUNKS -1  CHUNK_SIZE 1 SEG_SIZE 1").chunks);
}

TEST(ConfigLine, BlankLinesAreIgnored) {
  EXPECT_EQ(Quendal::Config::kIgnoredLine, ParseConfigLine("").kind);
  EXPECT_EQ(Quendal::Config::kIgnoredLine, ParseConfigLine("\n").kind);
  EXPECT_EQ(Quendal::Config::kIgnoredLine, ParseConfigLine("   \t\n").kind);
}

TEST(ConfigLine, StreamIsTestedAfterEveryLineButSkippedOnes) {
  EXPECT_FALSE(Quendal::Config::ChecksStreamAfter(Quendal::Config::kSkippedLine));
  EXPECT_TRUE(Quendal::Config::ChecksStreamAfter(Quendal::Config::kModuleLimitLine));
  EXPECT_TRUE(Quendal::Config::ChecksStreamAfter(Quendal::Config::kBadModuleLine));
  EXPECT_TRUE(Quendal::Config::ChecksStreamAfter(Quendal::Config::kPoolLine));
  EXPECT_TRUE(Quendal::Config::ChecksStreamAfter(Quendal::Config::kIgnoredLine));
}

}  // namespace
