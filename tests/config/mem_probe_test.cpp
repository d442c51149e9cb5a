// The reader inside a real process: the probe program is copied beside a
// ".mem" file in a directory of this test process's own and run there.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <utility>

#include "support/run_program.h"
#include "support/temp_dir.h"

namespace {

namespace fs = std::filesystem;

const char kExampleFile[] =
    "// pool setup for the player\n"
    "CHUNKS 800  CHUNK_SIZE 2048 SEG_SIZE 1024\n"
    "MODULE_NAME audio LIMIT 4096\n"
    "MODULE_NAME net stack LIMIT 100000\n";

typedef std::multiset<std::pair<unsigned long, std::string> > Modules;

struct ProbeOutput {
  std::map<std::string, std::string> values;
  Modules modules;
};

ProbeOutput ParseOutput(const std::string& text) {
  ProbeOutput output;
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    size_t space = line.find(' ');
    std::string key = line.substr(0, space);
    std::string rest = space == std::string::npos ? "" : line.substr(space + 1);
    if (key == "module") {
      size_t nameStart = rest.find(' ');
      output.modules.insert(
          std::make_pair(std::stoul(rest.substr(0, nameStart)), rest.substr(nameStart + 1)));
    } else {
      output.values[key] = rest;
    }
  }
  return output;
}

class MemProbeTest : public ::testing::Test {
 protected:
  // Copies the probe to relative (inside the temp dir) and returns its path.
  fs::path Install(const fs::path& relative) {
    fs::path target = base / relative;
    QuendalTest::CopyExecutable(QUENDAL_MEM_PROBE_PATH, target);
    return target;
  }

  ProbeOutput Run(const fs::path& program, const std::string& mode, int expectedExit = 0) {
    QuendalTest::ProgramResult result = QuendalTest::RunProgram(program.string(), {mode});
    EXPECT_TRUE(result.exited) << program;
    EXPECT_EQ(expectedExit, result.exitCode) << result.output;
    return ParseOutput(result.output);
  }

  static void ExpectDefaults(const ProbeOutput& output) {
    EXPECT_EQ("650", output.values.at("chunks"));
    EXPECT_EQ("2048", output.values.at("chunkSize"));
    EXPECT_EQ("1024", output.values.at("segSize"));
  }

  QuendalTest::TempDir temp;
  // Resolved, as the running program sees its own path.
  fs::path base = fs::canonical(temp.path());
};

TEST_F(MemProbeTest, PlayerBinReadsPlayerMem) {
  fs::path program = Install("player.bin");
  QuendalTest::WriteFile(base / "player.mem", kExampleFile);
  ProbeOutput output = Run(program, "config");
  EXPECT_EQ("0", output.values.at("result"));
  EXPECT_EQ("800", output.values.at("chunks"));
  EXPECT_EQ("2048", output.values.at("chunkSize"));
  EXPECT_EQ("1024", output.values.at("segSize"));
  EXPECT_EQ((Modules{{4096, "audio"}, {100000, "net stack"}}), output.modules);
}

TEST_F(MemProbeTest, DottedDirectoryNamesTheFileBesideIt) {
  fs::path program = Install("x/app.d/server");
  QuendalTest::WriteFile(base / "x/app.mem", "CHUNKS 42  CHUNK_SIZE 1 SEG_SIZE 1\n");
  QuendalTest::WriteFile(base / "x/app.d/server.mem", "CHUNKS 43  CHUNK_SIZE 1 SEG_SIZE 1\n");
  EXPECT_EQ("42", Run(program, "config").values.at("chunks"));
}

TEST_F(MemProbeTest, NoFileGivesDefaults) {
  ProbeOutput output = Run(Install("player.bin"), "config");
  EXPECT_EQ("0", output.values.at("result"));
  ExpectDefaults(output);
  EXPECT_TRUE(output.modules.empty());
}

TEST_F(MemProbeTest, LaterLinesWinAndRepeatedModulesAddEntries) {
  fs::path program = Install("player.bin");
  QuendalTest::WriteFile(base / "player.mem",
                         "CHUNKS 800  CHUNK_SIZE 4096 SEG_SIZE 64\n"
                         "MODULE_NAME audio LIMIT -1\n"
                         "CHUNKS 900  CHUNK_SIZE 4096 SEG_SIZE 64\n"
                         "MODULE_NAME audio LIMIT -1");
  ProbeOutput output = Run(program, "config");
  EXPECT_EQ("900", output.values.at("chunks"));
  EXPECT_EQ("2048", output.values.at("chunkSize"));
  EXPECT_EQ((Modules{{4294967295ul, "audio"}, {4294967295ul, "audio"}}), output.modules);
}

TEST_F(MemProbeTest, ThreeHundredCharacterPathGivesDefaults) {
  // Two directory levels, each within the file system's name limit.
  size_t padding = 300 - base.string().size() - std::string("/p.bin").size() - 1;
  ASSERT_GT(padding, 3u) << "temp dir path too long: " << base;
  size_t first = padding / 2;
  fs::path directory = fs::path(std::string(first, 'd')) / std::string(padding - first - 1, 'e');
  fs::path program = Install(directory / "p.bin");
  ASSERT_EQ(300u, program.string().size());
  QuendalTest::WriteFile(base / directory / "p.mem", kExampleFile);
  ProbeOutput output = Run(program, "config");
  ExpectDefaults(output);
  EXPECT_TRUE(output.modules.empty());
}

TEST_F(MemProbeTest, ReadingDuringExitAfterTheMapIsGoneIsHarmless) {
  fs::path program = Install("player.bin");
  QuendalTest::WriteFile(base / "player.mem", kExampleFile);
  ProbeOutput output = Run(program, "after-exit");
  EXPECT_EQ("800", output.values.at("chunks"));
  EXPECT_EQ("chunks 800 found 0", output.values.at("after-exit"));
}

TEST_F(MemProbeTest, PoolHasTheConfiguredChunkCount) {
  fs::path program = Install("player.bin");
  QuendalTest::WriteFile(base / "player.mem", "CHUNKS 5  CHUNK_SIZE 1 SEG_SIZE 1\n");
  QuendalTest::ProgramResult result = QuendalTest::RunProgram(program.string(), {"pool"});
  ASSERT_TRUE(result.exited);
  ASSERT_EQ(0, result.exitCode) << result.output;
  int run = std::stoi(ParseOutput(result.output).values.at("pool-run"));
  // Five chunks when the segment happens to be chunk-aligned, else four.
  EXPECT_GE(run, 4);
  EXPECT_LE(run, 5);
}

}  // namespace
