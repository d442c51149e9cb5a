// Looking limits up by key pointer, and releasing the names.
#include <gtest/gtest.h>

#include <string.h>

#include <string>

#include "reader_fixture.h"

namespace {

using QuendalTest::ReaderTest;

TEST_F(ReaderTest, NullNameFindsNoLimit) {
  Read("MODULE_NAME audio LIMIT 4096\n");
  unsigned long limit = 17;
  EXPECT_FALSE(ConfigFileReader::GetConfigModuleLimit(nullptr, limit));
  EXPECT_EQ(17ul, limit);
}

TEST_F(ReaderTest, StoredKeyPointerFindsItsLimit) {
  Read("MODULE_NAME audio LIMIT 4096\nMODULE_NAME net LIMIT -1\n");
  unsigned long limit = 0;
  EXPECT_TRUE(ConfigFileReader::GetConfigModuleLimit(KeyNamed("audio"), limit));
  EXPECT_EQ(4096ul, limit);
  EXPECT_TRUE(ConfigFileReader::GetConfigModuleLimit(KeyNamed("net"), limit));
  EXPECT_EQ(4294967295ul, limit);
}

TEST_F(ReaderTest, StringLiteralWithTheSameTextFindsNoLimit) {
  Read("MODULE_NAME audio LIMIT 4096\n");
  unsigned long limit = 17;
  EXPECT_FALSE(ConfigFileReader::GetConfigModuleLimit("audio", limit));
  EXPECT_EQ(17ul, limit);
}

TEST_F(ReaderTest, CopyOfAStoredNameFindsNoLimit) {
  Read("MODULE_NAME audio LIMIT 4096\n");
  char copy[128];
  strcpy(copy, KeyNamed("audio"));
  unsigned long limit = 17;
  EXPECT_FALSE(ConfigFileReader::GetConfigModuleLimit(copy, limit));
  EXPECT_EQ(17ul, limit);
}

TEST_F(ReaderTest, AddressInsideAStoredNameFindsNoLimit) {
  Read("MODULE_NAME audio LIMIT 4096\n");
  unsigned long limit = 17;
  EXPECT_FALSE(ConfigFileReader::GetConfigModuleLimit(KeyNamed("audio") + 1, limit));
  EXPECT_EQ(17ul, limit);
}

TEST_F(ReaderTest, EmptyMapFindsNoLimit) {
  unsigned long limit = 17;
  EXPECT_FALSE(ConfigFileReader::GetConfigModuleLimit("audio", limit));
  EXPECT_EQ(17ul, limit);
}

TEST_F(ReaderTest, RepeatedNameFindsEachEntryByItsOwnPointer) {
  Read("MODULE_NAME audio LIMIT 1\nMODULE_NAME audio LIMIT 2\n");
  ASSERT_EQ(2u, getModuleLimits().size());
  for (const auto& entry : getModuleLimits()) {
    unsigned long limit = 0;
    EXPECT_TRUE(ConfigFileReader::GetConfigModuleLimit(entry.first, limit));
    EXPECT_EQ(entry.second, limit);
  }
}

TEST_F(ReaderTest, DeInitKeepsTheEntriesAndTheirLookups) {
  Read("MODULE_NAME audio LIMIT 4096\nMODULE_NAME net LIMIT 5\n");
  char* audio = KeyNamed("audio");
  ASSERT_NE(nullptr, audio);
  ConfigFileReader::DeInit();
  EXPECT_EQ(2u, getModuleLimits().size());
  unsigned long limit = 0;
  EXPECT_TRUE(ConfigFileReader::GetConfigModuleLimit(audio, limit));
  EXPECT_EQ(4096ul, limit);
}

TEST_F(ReaderTest, SecondDeInitIsHarmless) {
  Read("MODULE_NAME audio LIMIT 4096\n");
  ConfigFileReader::DeInit();
  ConfigFileReader::DeInit();
  EXPECT_EQ(1u, getModuleLimits().size());
}

TEST_F(ReaderTest, DeInitLeavesKeysItDidNotFileAlone) {
  static char callerName[] = "caller";
  getModuleLimits()[callerName] = 3;
  Read("MODULE_NAME audio LIMIT 4096\n");
  ConfigFileReader::DeInit();
  EXPECT_STREQ("caller", callerName);
  EXPECT_EQ(2u, getModuleLimits().size());
}

TEST_F(ReaderTest, ReadingAfterDeInitFilesNamesAgain) {
  Read("MODULE_NAME audio LIMIT 4096\n");
  char* released = KeyNamed("audio");
  ConfigFileReader::DeInit();
  Read("MODULE_NAME net LIMIT 5\n");
  // Only the new key may be dereferenced: the other one dangles.
  char* net = nullptr;
  for (const auto& entry : getModuleLimits()) {
    if (entry.first != released || getModuleLimits().size() == 1) {
      net = entry.first;
    }
  }
  ASSERT_NE(nullptr, net);
  EXPECT_STREQ("net", net);
  unsigned long limit = 0;
  EXPECT_TRUE(ConfigFileReader::GetConfigModuleLimit(net, limit));
  if (net == released) {
    // The fresh buffer took the released one's address and so met its entry,
    // which keeps the limit it had.
    EXPECT_EQ(1u, getModuleLimits().size());
    EXPECT_EQ(4096ul, limit);
  } else {
    EXPECT_EQ(2u, getModuleLimits().size());
    EXPECT_EQ(5ul, limit);
  }
}

}  // namespace
