// The reader's first-call flag, in a process of its own so that no earlier
// read has set it.
#include "config/first_call_flag.h"

#include <gtest/gtest.h>

#include "quendal/config_file_reader.h"
#include "support/scripted_platform.h"

namespace {

TEST(FirstCallFlag, SetByTheFirstReadEvenWithoutAFile) {
  QuendalTest::ScriptedPlatform::Reset();
  EXPECT_EQ(0, Quendal::Config::ReaderFirstCallFlag());
  unsigned int chunks = 0;
  unsigned int chunkSize = 0;
  unsigned int segSize = 0;
  ConfigFileReader::ReadConfigValues(chunks, chunkSize, segSize);
  EXPECT_EQ(1, Quendal::Config::ReaderFirstCallFlag());
  ConfigFileReader::ReadConfigValues(chunks, chunkSize, segSize);
  EXPECT_EQ(1, Quendal::Config::ReaderFirstCallFlag());
}

}  // namespace
