// Shared frame of the reader tests: a scripted executable path and file, the
// three pool values, and the module-limit map emptied after every test so
// that tests sharing a process do not see each other's entries.
#ifndef QUENDAL_TESTS_CONFIG_READER_FIXTURE_H
#define QUENDAL_TESTS_CONFIG_READER_FIXTURE_H

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <utility>

#include "quendal/config_file_reader.h"
#include "support/scripted_platform.h"

namespace QuendalTest {

typedef std::multiset<std::pair<std::string, unsigned long> > Entries;

class ReaderTest : public ::testing::Test {
 protected:
  // A value the reader never writes, to see that it stored its defaults.
  static const unsigned int kUnset = 7;

  void SetUp() override {
    ScriptedPlatform::Reset();
    ScriptedPlatform::SetExecutablePath("/usr/bin/player.bin");
    getModuleLimits().clear();
  }

  void TearDown() override {
    ConfigFileReader::DeInit();
    getModuleLimits().clear();
  }

  // Runs the reader on a file with these contents; returns its result.
  int Read(const std::string& contents) {
    ScriptedPlatform::SetFileContents(contents);
    return ReadWithoutSettingFile();
  }

  int ReadWithoutSettingFile() {
    chunks = chunkSize = segSize = kUnset;
    return ConfigFileReader::ReadConfigValues(chunks, chunkSize, segSize);
  }

  void ExpectDefaults() const {
    EXPECT_EQ(650u, chunks);
    EXPECT_EQ(2048u, chunkSize);
    EXPECT_EQ(1024u, segSize);
  }

  // The map's entries as (name text, limit), whatever their address order.
  static Entries CurrentEntries() {
    Entries entries;
    for (const auto& entry : getModuleLimits()) {
      entries.insert(std::make_pair(std::string(entry.first), entry.second));
    }
    return entries;
  }

  // The key pointer of the only entry named text, or null.
  static char* KeyNamed(const std::string& text) {
    char* found = nullptr;
    for (const auto& entry : getModuleLimits()) {
      if (text == entry.first) {
        EXPECT_EQ(nullptr, found) << "more than one entry named " << text;
        found = entry.first;
      }
    }
    return found;
  }

  unsigned int chunks = 0;
  unsigned int chunkSize = 0;
  unsigned int segSize = 0;
};

inline Entries MakeEntries(std::initializer_list<std::pair<std::string, unsigned long> > list) {
  return Entries(list.begin(), list.end());
}

}  // namespace QuendalTest

#endif
