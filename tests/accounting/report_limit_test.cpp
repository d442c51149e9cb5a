// A module whose limit the ".mem" file sets still prints -9999 in the memory
// report: limits are filed under the reader's own name buffers, and the
// report asks with its copy of the name.
#include <gtest/gtest.h>

#include <string.h>

#include <string>

#include "captured_stream.h"
#include "quendal/accounting.h"
#include "quendal/classification.h"
#include "quendal/config_file_reader.h"
#include "quendal/module_log.h"
#include "support/scripted_platform.h"

namespace {

using quendal_test::CapturedStream;
namespace ScriptedPlatform = QuendalTest::ScriptedPlatform;

TEST(ReportLimitTest, ConfiguredLimitStillPrintsMinus9999) {
  ScriptedPlatform::Reset();
  ScriptedPlatform::SetExecutablePath("/usr/bin/player.bin");
  ScriptedPlatform::SetFileContents("MODULE_NAME audio LIMIT 4096\n");
  unsigned int chunks = 0;
  unsigned int chunkSize = 0;
  unsigned int segSize = 0;
  ConfigFileReader::ReadConfigValues(chunks, chunkSize, segSize);
  ASSERT_EQ(1u, getModuleLimits().size());
  char* storedName = getModuleLimits().begin()->first;
  ASSERT_STREQ("audio", storedName);
  unsigned long limit = 0;
  ASSERT_TRUE(ConfigFileReader::GetConfigModuleLimit(storedName, limit));
  ASSERT_EQ(4096ul, limit);

  QDLog::SetClassIdCb log;
  const unsigned short audio = Quendal::Classification::LookUpModuleId("audio");
  (*getModuleMemMap())[static_cast<unsigned long>(audio) << 16].used = 64;

  CapturedStream stream;
  AllocMemoryTable::dumpModules(stream.get(), 0);
  const std::string report = stream.Text();
  EXPECT_NE(std::string::npos, report.find("\naudio;0;64;0;-9999;0\n")) << report;
  ConfigFileReader::DeInit();
}

}  // namespace
