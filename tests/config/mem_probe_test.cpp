// The reader inside a real process: the probe program is copied beside a
// ".mem" file in a directory of this test process's own and run there.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <utility>

#include "support/mem_file_text.h"
#include "support/run_program.h"
#include "support/temp_dir.h"

namespace {

using QuendalTest::CommentLines;
using QuendalTest::kMemFileReadBound;

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

  // Runs program under the watchdog: a run that hangs or never ends reading
  // fails the test instead of stalling it.
  ProbeOutput RunGuarded(const fs::path& program, const std::string& mode,
                         QuendalTest::RunOptions options = QuendalTest::RunOptions()) {
    options.watchdogSeconds = kWatchdogSeconds;
    QuendalTest::ProgramResult result = QuendalTest::RunProgram(program.string(), {mode}, options);
    EXPECT_FALSE(result.timedOut) << program << " was still running after " << kWatchdogSeconds
                                  << " seconds and was killed";
    EXPECT_TRUE(result.exited) << program;
    EXPECT_EQ(0, result.exitCode) << result.output;
    return ParseOutput(result.output);
  }

  // What the first heap call left when it found no file.
  static void ExpectHeapDefaults(const ProbeOutput& output) {
    EXPECT_EQ("650", output.values.count("heap-chunks") ? output.values.at("heap-chunks") : "none");
    EXPECT_TRUE(output.modules.empty());
  }

  // Generous: a run takes well under a second, emulated or sanitized.
  static constexpr unsigned kWatchdogSeconds = 60;

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

// Only a regular file is read: whatever else bears the name counts as no
// file. A FIFO nobody writes to would block the first heap call for ever.
TEST_F(MemProbeTest, FifoWithoutAWriterIsNoFile) {
  fs::path program = Install("player.bin");
  ASSERT_EQ(0, mkfifo((base / "player.mem").c_str(), 0644));
  ExpectHeapDefaults(RunGuarded(program, "heap"));
}

// Devices that never end: read to the end, they would keep the first heap
// call reading for ever.
TEST_F(MemProbeTest, LinkToDevZeroIsNoFile) {
  fs::path program = Install("player.bin");
  fs::create_symlink("/dev/zero", base / "player.mem");
  ExpectHeapDefaults(RunGuarded(program, "heap"));
}

TEST_F(MemProbeTest, LinkToDevUrandomIsNoFile) {
  fs::path program = Install("player.bin");
  fs::create_symlink("/dev/urandom", base / "player.mem");
  ExpectHeapDefaults(RunGuarded(program, "heap"));
}

TEST_F(MemProbeTest, DirectoryIsNoFile) {
  fs::path program = Install("player.bin");
  fs::create_directory(base / "player.mem");
  QuendalTest::WriteFile(base / "player.mem" / "player.mem", kExampleFile);
  ExpectHeapDefaults(RunGuarded(program, "heap"));
}

TEST_F(MemProbeTest, UnreadableFileIsNoFile) {
  const int kUnprivilegedUser = 65534;
  fs::path program = Install("player.bin");
  fs::path mem = base / "player.mem";
  QuendalTest::WriteFile(mem, kExampleFile);
  QuendalTest::RunOptions options;
  if (geteuid() == 0) {
    // Root reads any file: the program runs as an unprivileged user, who
    // must reach it and its directory.
    options.userId = kUnprivilegedUser;
    fs::permissions(base, fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                              fs::perms::others_read | fs::perms::others_exec);
  }
  // As that user the program first reads the file while it is readable.
  options.watchdogSeconds = kWatchdogSeconds;
  QuendalTest::ProgramResult readable =
      QuendalTest::RunProgram(program.string(), {"heap"}, options);
  if (readable.userSwitchFailed) {
    GTEST_SKIP() << "cannot run the program as user " << kUnprivilegedUser
                 << " (no right to switch users here), and root reads every file";
  }
  // 127: the loader could not load the library for that user.
  if (options.userId >= 0 && (readable.execFailed || readable.exitCode == 127)) {
    GTEST_SKIP() << "the program does not start as user " << kUnprivilegedUser
                 << " (is the build tree readable by it?), and root reads every file";
  }
  ASSERT_FALSE(readable.timedOut);
  ASSERT_EQ("800", ParseOutput(readable.output).values["heap-chunks"]) << readable.output;

  fs::permissions(mem, fs::perms::none);
  ExpectHeapDefaults(RunGuarded(program, "heap", options));
}

TEST_F(MemProbeTest, OnlyTheFirstMebibyteIsRead) {
  fs::path program = Install("player.bin");
  const std::string first = "CHUNKS 800  CHUNK_SIZE 2048 SEG_SIZE 1024\n";
  const std::string last = "MODULE_NAME last LIMIT 1\n";
  std::string contents =
      first + CommentLines(kMemFileReadBound - first.size() - last.size()) + last;
  ASSERT_EQ(kMemFileReadBound, contents.size());
  contents += "CHUNKS 900  CHUNK_SIZE 2048 SEG_SIZE 1024\nMODULE_NAME after LIMIT 2\n";
  contents += CommentLines(kMemFileReadBound);
  QuendalTest::WriteFile(base / "player.mem", contents);
  ProbeOutput output = RunGuarded(program, "heap");
  EXPECT_EQ("800", output.values["heap-chunks"]);
  EXPECT_EQ((Modules{{1, "last"}}), output.modules);
}

TEST_F(MemProbeTest, LineAcrossTheFirstMebibyteIsNotUsed) {
  fs::path program = Install("player.bin");
  const std::string first = "CHUNKS 800  CHUNK_SIZE 2048 SEG_SIZE 1024\n";
  std::string contents = first + CommentLines(kMemFileReadBound - first.size() - 10);
  contents += "CHUNKS 900  CHUNK_SIZE 2048 SEG_SIZE 1024\n";
  QuendalTest::WriteFile(base / "player.mem", contents);
  EXPECT_EQ("800", RunGuarded(program, "heap").values["heap-chunks"]);
}

}  // namespace
