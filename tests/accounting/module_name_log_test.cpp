// The module-name log: switching it on and off, the names it files, its flat
// copies and its dump. Every test runs in a process of its own, so the
// registry and the log start empty.
#include <gtest/gtest.h>

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>

#include <fstream>
#include <sstream>
#include <string>
#include <thread>

#include "captured_stream.h"
#include "heap/the_heap.h"
#include "quendal/accounting.h"
#include "quendal/classification.h"
#include "quendal/module_log.h"
#include "support/allocated_bytes.h"
#include "support/temp_dir.h"

namespace {

using Quendal::Classification::LookUpModuleId;
using Quendal::Classification::ModuleId;
using Quendal::Classification::ScopedId;
using quendal_test::CapturedStream;

const unsigned char kMappingFill = 0x5A;

// Id and name arrays of N slots, each followed by a canary slot that must
// stay as filled.
template <size_t N>
struct Mapping {
  Mapping() { memset(this, kMappingFill, sizeof(*this)); }
  unsigned short ids[N];
  unsigned short idCanary;
  char names[N][64];
  char nameCanary[64];

  bool SlotIsFilled(size_t i) const {
    return IsFilled(&ids[i], sizeof(ids[i])) && IsFilled(names[i], sizeof(names[i]));
  }
  bool CanariesAreIntact() const {
    return IsFilled(&idCanary, sizeof(idCanary)) && IsFilled(nameCanary, sizeof(nameCanary));
  }
  static bool IsFilled(const void* memory, size_t size) {
    const unsigned char* bytes = static_cast<const unsigned char*>(memory);
    for (size_t i = 0; i < size; ++i) {
      if (bytes[i] != kMappingFill) {
        return false;
      }
    }
    return true;
  }
};

std::string NameOf(int i) {
  return "module " + std::to_string(i);
}

void LookUpNames(int count) {
  for (int i = 1; i <= count; ++i) {
    LookUpModuleId(NameOf(i).c_str());
  }
}

std::string Dump() {
  CapturedStream stream;
  QDLog::dump_map_to_file(stream.get());
  stream.MarkClosedByCallee();
  return stream.Text();
}

int CountDumpLines(const std::string& text) {
  int lines = 0;
  for (char c : text) {
    lines += c == '\n';
  }
  return lines;
}

TEST(ModuleNameLogTest, TwoNewNamesAreDumpedNewestFirstAndTheStreamIsClosed) {
  QDLog::SetClassIdCb log;
  EXPECT_EQ(1, LookUpModuleId("a"));
  EXPECT_EQ(2, LookUpModuleId("b"));

  QuendalTest::TempDir dir;
  const std::string path = (dir.path() / "modules.txt").string();
  FILE* stream = fopen(path.c_str(), "w");
  ASSERT_NE(nullptr, stream);
  const int descriptor = fileno(stream);
  QDLog::dump_map_to_file(stream);

  errno = 0;
  EXPECT_EQ(-1, fcntl(descriptor, F_GETFD));
  EXPECT_EQ(EBADF, errno);
  std::ifstream written(path, std::ios::binary);
  std::stringstream text;
  text << written.rdbuf();
  EXPECT_EQ("2;b;\n1;a;\n", text.str());
}

TEST(ModuleNameLogTest, DumpToNullStreamDoesNothing) {
  QDLog::SetClassIdCb log;
  LookUpModuleId("a");
  QDLog::dump_map_to_file(nullptr);
  EXPECT_EQ("1;a;\n", Dump());
}

TEST(ModuleNameLogTest, DumpOfAnEmptyLogWritesNothing) {
  EXPECT_EQ("", Dump());
}

TEST(ModuleNameLogTest, LogNeverSwitchedOnGivesEmptyMappings) {
  EXPECT_EQ(1, LookUpModuleId("audio"));
  Mapping<256> mapping;
  EXPECT_EQ(4294967295ul, QDgetModuleIdMapping(mapping.ids, mapping.names));
  EXPECT_TRUE(mapping.SlotIsFilled(0));

  unsigned long count = 7;
  EXPECT_FALSE(AllocMemoryTable::getModuleIdMapping(count, mapping.ids, mapping.names));
  EXPECT_EQ(0ul, count);
  EXPECT_TRUE(mapping.SlotIsFilled(0));
}

TEST(ModuleNameLogTest, ExportedMappingInitialisesTheLibraryOnFirstCall) {
  ASSERT_EQ(1, Quendal::Heap::InitNeeded());
  Mapping<256> mapping;
  QDgetModuleIdMapping(mapping.ids, mapping.names);
  EXPECT_EQ(0, Quendal::Heap::InitNeeded());
}

TEST(ModuleNameLogTest, SwitchingOnGivesTheTableFortyOneBuckets) {
  EXPECT_EQ(17u, getIDModuleMap().GetBucketCount());
  QDLog::SetClassIdCb log;
  EXPECT_EQ(41u, getIDModuleMap().GetBucketCount());
  EXPECT_TRUE(getIDModuleMap().HasBucketTable());
}

TEST(ModuleNameLogTest, NamesLookedUpBeforeSwitchingOnNeverAppear) {
  LookUpModuleId("early");
  QDLog::SetClassIdCb log;
  LookUpModuleId("late");
  EXPECT_EQ("2;late;\n", Dump());
}

TEST(ModuleNameLogTest, FlatCopyGivesIdsAndNamesWithTheFullCount) {
  QDLog::SetClassIdCb log;
  LookUpModuleId("audio");
  LookUpModuleId("net stack");
  Mapping<257> mapping;
  unsigned long count = 0;
  EXPECT_TRUE(AllocMemoryTable::getModuleIdMapping(count, mapping.ids, mapping.names));
  EXPECT_EQ(2ul, count);
  EXPECT_EQ(2, mapping.ids[0]);
  EXPECT_STREQ("net stack", mapping.names[0]);
  EXPECT_EQ(1, mapping.ids[1]);
  EXPECT_STREQ("audio", mapping.names[1]);
  EXPECT_TRUE(mapping.SlotIsFilled(2));

  Mapping<256> exported;
  EXPECT_EQ(2ul, QDgetModuleIdMapping(exported.ids, exported.names));
  EXPECT_STREQ("audio", exported.names[1]);
}

TEST(ModuleNameLogTest, SixtyThreeCharacterNameIsKept) {
  QDLog::SetClassIdCb log;
  const std::string name(63, 'n');
  EXPECT_EQ(1, LookUpModuleId(name.c_str()));
  EXPECT_EQ(name, getIDModuleMap()[1]);
  EXPECT_EQ("1;" + name + ";\n", Dump());
}

TEST(ModuleNameLogTest, SixtyFourCharacterNameIsLoggedAsUnderscoreAndId) {
  QDLog::SetClassIdCb log;
  LookUpModuleId("first");
  const std::string name(64, 'n');
  EXPECT_EQ(2, LookUpModuleId(name.c_str()));
  EXPECT_STREQ("_2", getIDModuleMap()[2]);

  Mapping<257> mapping;
  unsigned long count = 0;
  ASSERT_TRUE(AllocMemoryTable::getModuleIdMapping(count, mapping.ids, mapping.names));
  EXPECT_EQ(2, mapping.ids[0]);
  EXPECT_STREQ("_2", mapping.names[0]);
}

TEST(ModuleNameLogTest, NullNameIsLoggedAsUnderscoreAndId) {
  QuendalTest::LeaksIgnored leaksIgnored;
  QDLog::OnNewModule(nullptr, 12);
  EXPECT_STREQ("_12", getIDModuleMap()[12]);
}

TEST(ModuleNameLogTest, RepeatedIdShowsTheNewerName) {
  QuendalTest::LeaksIgnored leaksIgnored;
  QDLog::OnNewModule("older", 1);
  QDLog::OnNewModule("newer", 1);
  EXPECT_EQ(1u, getIDModuleMap().GetCount());
  EXPECT_EQ("1;newer;\n", Dump());
}

TEST(ModuleNameLogTest, ReadScopeIdWithoutScopeYieldsZeros) {
  unsigned short module = 9;
  unsigned short subModule = 9;
  QDLog::ReadScopeId(module, subModule);
  EXPECT_EQ(0, module);
  EXPECT_EQ(0, subModule);
}

TEST(ModuleNameLogTest, ReadScopeIdInsideScopeYieldsItsIds) {
  LookUpModuleId("first");
  ScopedId outer(ModuleId("audio"), 3, __FILE__, __LINE__);
  unsigned short module = 0;
  unsigned short subModule = 0;
  QDLog::ReadScopeId(module, subModule);
  EXPECT_EQ(2, module);
  EXPECT_EQ(3, subModule);
  {
    ScopedId inner(ModuleId("video"), 4, __FILE__, __LINE__);
    QDLog::ReadScopeId(module, subModule);
    EXPECT_EQ(3, module);
    EXPECT_EQ(4, subModule);
  }
  QDLog::ReadScopeId(module, subModule);
  EXPECT_EQ(2, module);
  EXPECT_EQ(3, subModule);
}

TEST(ModuleNameLogTest, ReadScopeIdSeesOnlyTheCallingThreadsScope) {
  ScopedId scope(ModuleId("audio"), 3, __FILE__, __LINE__);
  unsigned short module = 9;
  unsigned short subModule = 9;
  std::thread other([&] { QDLog::ReadScopeId(module, subModule); });
  other.join();
  EXPECT_EQ(0, module);
  EXPECT_EQ(0, subModule);
}

TEST(ModuleNameLogTest, ThreeHundredEntriesCopy256AndCount300) {
  QDLog::SetClassIdCb log;
  LookUpNames(300);
  Mapping<257> mapping;
  unsigned long count = 0;
  EXPECT_TRUE(AllocMemoryTable::getModuleIdMapping(count, mapping.ids, mapping.names));
  EXPECT_EQ(300ul, count);
  EXPECT_FALSE(mapping.SlotIsFilled(255));
  EXPECT_TRUE(mapping.SlotIsFilled(256));
  EXPECT_TRUE(mapping.CanariesAreIntact());
  EXPECT_EQ(NameOf(mapping.ids[100]), mapping.names[100]);
}

TEST(ModuleNameLogTest, Exactly257EntriesCopyAll257) {
  QDLog::SetClassIdCb log;
  LookUpNames(257);
  Mapping<257> mapping;
  unsigned long count = 0;
  EXPECT_TRUE(AllocMemoryTable::getModuleIdMapping(count, mapping.ids, mapping.names));
  EXPECT_EQ(257ul, count);
  EXPECT_FALSE(mapping.SlotIsFilled(256));
  EXPECT_EQ(NameOf(mapping.ids[256]), mapping.names[256]);
  EXPECT_TRUE(mapping.CanariesAreIntact());
}

TEST(ModuleNameLogTest, ExportedMappingNeverWritesPast256SlotsWith257Entries) {
  QDLog::SetClassIdCb log;
  LookUpNames(257);
  Mapping<256> mapping;
  EXPECT_EQ(257ul, QDgetModuleIdMapping(mapping.ids, mapping.names));
  EXPECT_FALSE(mapping.SlotIsFilled(255));
  EXPECT_TRUE(mapping.CanariesAreIntact());
}

TEST(ModuleNameLogTest, ExportedMappingWithNullArraysReturnsTheCount) {
  QDLog::SetClassIdCb log;
  LookUpNames(3);
  EXPECT_EQ(3ul, QDgetModuleIdMapping(nullptr, nullptr));
}

TEST(ModuleNameLogTest, DumpOf300NamesPrintsTheFirst256) {
  QDLog::SetClassIdCb log;
  LookUpNames(300);
  const std::string text = Dump();
  EXPECT_EQ(256, CountDumpLines(text));
}

TEST(ModuleNameLogTest, DumpOf257NamesPrintsAll257) {
  QDLog::SetClassIdCb log;
  LookUpNames(257);
  const std::string text = Dump();
  EXPECT_EQ(257, CountDumpLines(text));
  EXPECT_NE(std::string::npos, text.find(";module 257;\n"));
}

TEST(ModuleNameLogTest, SecondSwitchEmptiesTheBucketsButKeepsTheCount) {
  QuendalTest::LeaksIgnored leaksIgnored;
  QDLog::SetClassIdCb first;
  LookUpModuleId("a");
  LookUpModuleId("b");
  QDLog::SetClassIdCb second;
  EXPECT_EQ(2u, getIDModuleMap().GetCount());

  Mapping<257> mapping;
  unsigned long count = 0;
  EXPECT_TRUE(AllocMemoryTable::getModuleIdMapping(count, mapping.ids, mapping.names));
  EXPECT_EQ(2ul, count);
  EXPECT_TRUE(mapping.SlotIsFilled(0));
  EXPECT_EQ("", Dump());

  LookUpModuleId("c");
  EXPECT_EQ(3u, getIDModuleMap().GetCount());
  EXPECT_EQ("3;c;\n", Dump());
}

TEST(ModuleNameLogTest, SwitchingOffFreesNamesAndCopiesThenShowMAndTheId) {
  QuendalTest::LeaksIgnored leaksIgnored;
  {
    QDLog::SetClassIdCb log;
    LookUpModuleId("audio");
    LookUpModuleId("video");
  }
  EXPECT_EQ(2u, getIDModuleMap().GetCount());
  EXPECT_EQ(nullptr, getIDModuleMap()[1]);
  EXPECT_EQ(nullptr, getIDModuleMap()[2]);
  EXPECT_EQ("2;M_2;\n1;M_1;\n", Dump());

  // The callback stays in place: later names are still logged.
  LookUpModuleId("late");
  EXPECT_EQ("3;late;\n2;M_2;\n1;M_1;\n", Dump());
}

}  // namespace
