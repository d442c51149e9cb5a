// Why the line classifier gives a line no effect, and the ".mem" path rules
// as plain string work.
#include <gtest/gtest.h>

#include <string.h>

#include <string>

#include "config/config_line.h"
#include "config/mem_file_path.h"

namespace {

using Quendal::Config::ConfigLine;
using Quendal::Config::ParseConfigLine;
namespace Config = Quendal::Config;

Config::IgnoredBecause Why(const char* line) {
  return ParseConfigLine(line).ignoredBecause;
}

TEST(IgnoredBecause, LinesWithAnEffectHaveNoReason) {
  EXPECT_EQ(Config::kHasEffect, Why("CHUNKS 800  CHUNK_SIZE 2048 SEG_SIZE 1024\n"));
  EXPECT_EQ(Config::kHasEffect, Why("MODULE_NAME audio LIMIT 4096\n"));
  EXPECT_EQ(3, ParseConfigLine("CHUNKS 1 CHUNK_SIZE 2 SEG_SIZE 3").poolNumbers);
}

TEST(IgnoredBecause, CommentsAreTold) {
  EXPECT_EQ(Config::kComment, Why("// note\n"));
  EXPECT_EQ(Config::kComment, Why("//MODULE_NAME a LIMIT 1"));
}

TEST(IgnoredBecause, BlankLines) {
  EXPECT_EQ(Config::kBlank, Why(""));
  EXPECT_EQ(Config::kBlank, Why("\n"));
  EXPECT_EQ(Config::kBlank, Why(" \t\r\n"));
}

TEST(IgnoredBecause, IndentedKeys) {
  EXPECT_EQ(Config::kLeadingSpace, Why("  CHUNKS 800  CHUNK_SIZE 4096 SEG_SIZE 64\n"));
  EXPECT_EQ(Config::kLeadingSpace, Why("\tMODULE_NAME a LIMIT 1\n"));
  EXPECT_EQ(Config::kLeadingSpace, Why(" // note\n"));
}

TEST(IgnoredBecause, UnknownStart) {
  EXPECT_EQ(Config::kUnknownStart, Why("chunks 800  CHUNK_SIZE 1 SEG_SIZE 1\n"));
  EXPECT_EQ(Config::kUnknownStart, Why("  hello\n"));
  EXPECT_EQ(Config::kUnknownStart, Why("/ /\n"));
}

TEST(IgnoredBecause, PoolLineEndingEarly) {
  ConfigLine line = ParseConfigLine("CHUNKS 800 CHUNK_SIZE 4096\n");
  EXPECT_EQ(Config::kTooFewNumbers, line.ignoredBecause);
  EXPECT_EQ(2, line.poolNumbers);
  EXPECT_EQ(Config::kTooFewNumbers, Why("CHUNKS 800"));
  EXPECT_EQ(1, ParseConfigLine("CHUNKS 800").poolNumbers);
  EXPECT_EQ(Config::kTooFewNumbers, Why("CHUNKS"));
  EXPECT_EQ(0, ParseConfigLine("CHUNKS").poolNumbers);
  EXPECT_EQ(Config::kTooFewNumbers, Why("CHUNKS 1  CHUNK_SIZE 2 SEG_SIZE \r\n"));
}

TEST(IgnoredBecause, PoolNumberThatDoesNotParse) {
  ConfigLine line = ParseConfigLine("CHUNKS 800  CHUNK_SIZE 4096 SEG_SIZE x\n");
  EXPECT_EQ(Config::kBadNumber, line.ignoredBecause);
  EXPECT_EQ(2, line.poolNumbers);
  EXPECT_EQ(Config::kBadNumber, Why("CHUNKS many  CHUNK_SIZE 1 SEG_SIZE 1"));
  EXPECT_EQ(0, ParseConfigLine("CHUNKS many  CHUNK_SIZE 1 SEG_SIZE 1").poolNumbers);
  EXPECT_EQ(Config::kBadNumber, Why("CHUNKS 1  CHUNK_SIZE - SEG_SIZE 1"));
}

TEST(IgnoredBecause, PoolKeyMissing) {
  ConfigLine line = ParseConfigLine("CHUNKS 800 SEG_SIZE 1024\n");
  EXPECT_EQ(Config::kMissingPoolKey, line.ignoredBecause);
  EXPECT_EQ(1, line.poolNumbers);
  EXPECT_EQ(Config::kMissingPoolKey, Why("CHUNKS 1  CHUNK_SIZE 2 SEGSIZE 3"));
}

TEST(IgnoredBecause, ModuleLines) {
  EXPECT_EQ(Config::kNoLimitKey, Why("MODULE_NAME audio\n"));
  EXPECT_EQ(Config::kNoLimitKey, Why("MODULE_NAME audio limit 5\n"));
  EXPECT_EQ(Config::kEmptyName, Why("MODULE_NAME    LIMIT 5\n"));
  EXPECT_EQ(Config::kEmptyName, Why("MODULE_NAME LIMITER LIMIT 5\n"));
  EXPECT_EQ(Config::kBadNumber, Why("MODULE_NAME audio LIMIT x\n"));
  EXPECT_EQ(Config::kBadNumber, Why("MODULE_NAME UNLIMITED LIMIT 5\n"));
}

TEST(MemFilePath, CutAtTheLastDotOfTheWholePath) {
  char buffer[Config::kPathBufferSize];
  EXPECT_EQ(8, Config::CopyPathWithoutExtension("/opt/app.d/server", buffer, sizeof(buffer)));
  EXPECT_STREQ("/opt/app", buffer);
  ASSERT_TRUE(Config::AppendMemExtension(buffer, 8));
  EXPECT_STREQ("/opt/app.mem", buffer);
}

TEST(MemFilePath, PathThatDoesNotFitLeavesTheBufferAlone) {
  char buffer[4] = {'X', 'X', 'X', 'X'};
  EXPECT_EQ(-1, Config::CopyPathWithoutExtension("/abc", buffer, 4));
  EXPECT_EQ('X', buffer[0]);
  EXPECT_EQ(3, Config::CopyPathWithoutExtension("/ab", buffer, 4));
}

TEST(MemFilePath, MemNameMustFitTheBuffer) {
  char buffer[Config::kPathBufferSize];
  std::string longest(251, 'p');
  strcpy(buffer, longest.c_str());
  EXPECT_FALSE(Config::AppendMemExtension(buffer, 252));
  EXPECT_TRUE(Config::AppendMemExtension(buffer, 251));
  EXPECT_EQ(255u, strlen(buffer));
  EXPECT_FALSE(Config::AppendMemExtension(buffer, -1));
}

}  // namespace
