// Look-ups by name and by id in the module registry. Every test runs in a
// process of its own, so the registry starts empty in each.
#include <gtest/gtest.h>

#include <string.h>

#include <string>

#include "classification/new_id_callback.h"
#include "new_id_recorder.h"
#include "quendal/classification.h"

namespace {

using namespace Quendal::Classification;
using quendal_test::NewIdRecorderTest;
using quendal_test::RecordedNewIds;

using ModuleRegistryTest = NewIdRecorderTest;

TEST_F(ModuleRegistryTest, FirstNameGetsOneAndRepeatingItCallsNoSecondCallback) {
  EXPECT_EQ(1, LookUpModuleId("audio"));
  ASSERT_EQ(1u, RecordedNewIds().size());

  EXPECT_EQ(1, LookUpModuleId("audio"));
  EXPECT_EQ(1, getmoduleRegistry().LookUp("audio"));
  EXPECT_EQ(1u, RecordedNewIds().size());
}

TEST_F(ModuleRegistryTest, IdsFollowOrderOfFirstLookUpNotAlphabeticalOrder) {
  EXPECT_EQ(1, LookUpModuleId("zeta"));
  EXPECT_EQ(2, LookUpModuleId("alpha"));
  EXPECT_EQ(3, LookUpModuleId("mu"));

  EXPECT_EQ(2, LookUpModuleId("alpha"));
  EXPECT_EQ(1, LookUpModuleId("zeta"));
  EXPECT_STREQ("mu", LookUpModuleName(3));
}

TEST_F(ModuleRegistryTest, EmptyStringIsAnOrdinaryNameWithAnId) {
  EXPECT_EQ(1, LookUpModuleId(""));
  EXPECT_EQ(2, LookUpModuleId("x"));
  EXPECT_EQ(1, LookUpModuleId(""));

  const char* name = LookUpModuleName(1);
  ASSERT_NE(nullptr, name);
  EXPECT_STREQ("", name);
  ASSERT_EQ(2u, RecordedNewIds().size());
  EXPECT_EQ("", RecordedNewIds()[0].name);
  EXPECT_EQ(1, RecordedNewIds()[0].id);
}

TEST_F(ModuleRegistryTest, NamesDifferingOnlyInLetterCaseGetDifferentIds) {
  EXPECT_EQ(1, LookUpModuleId("Audio"));
  EXPECT_EQ(2, LookUpModuleId("audio"));
  EXPECT_EQ(3, LookUpModuleId("AUDIO"));
  EXPECT_STREQ("audio", LookUpModuleName(2));
}

TEST_F(ModuleRegistryTest, NameOfIdZeroIsNullWhileFewerThan65536Names) {
  EXPECT_EQ(nullptr, LookUpModuleName(0));
  LookUpModuleId("one");
  LookUpModuleId("two");
  EXPECT_EQ(nullptr, LookUpModuleName(0));
}

TEST_F(ModuleRegistryTest, NameOfIdNeverHandedOutIsNull) {
  LookUpModuleId("one");
  LookUpModuleId("two");
  LookUpModuleId("three");

  EXPECT_STREQ("three", LookUpModuleName(3));
  EXPECT_EQ(nullptr, LookUpModuleName(4));
  EXPECT_EQ(nullptr, LookUpModuleName(65535));
}

TEST_F(ModuleRegistryTest, NameOfAnIdIsTheSamePointerOnEveryCall) {
  LookUpModuleId("first");
  LookUpModuleId("second");
  const char* before = LookUpModuleName(2);
  ASSERT_NE(nullptr, before);

  // Enough further names to rebalance the tree many times over.
  for (int i = 0; i < 500; ++i) {
    LookUpModuleId(("filler" + std::to_string(i)).c_str());
  }

  EXPECT_EQ(before, LookUpModuleName(2));
  EXPECT_EQ(before, getmoduleRegistry().LookUpName(2));
  EXPECT_STREQ("second", before);
}

TEST_F(ModuleRegistryTest, RegistryKeepsItsOwnCopyOfTheName) {
  char buffer[] = "video";
  EXPECT_EQ(1, LookUpModuleId(buffer));
  strcpy(buffer, "radio");

  const char* stored = LookUpModuleName(1);
  EXPECT_NE(static_cast<const char*>(buffer), stored);
  EXPECT_STREQ("video", stored);
  EXPECT_EQ(2, LookUpModuleId(buffer));
  EXPECT_EQ(1, LookUpModuleId("video"));
}

TEST_F(ModuleRegistryTest, CallbackGetsCallersPointerAndNewIdOncePerNewNameBeforeReturn) {
  char first[] = "net";
  char second[] = "disk";

  EXPECT_EQ(1, LookUpModuleId(first));
  // Recorded already when LookUp returns.
  ASSERT_EQ(1u, RecordedNewIds().size());
  EXPECT_EQ(first, RecordedNewIds()[0].pointer);
  EXPECT_EQ("net", RecordedNewIds()[0].name);
  EXPECT_EQ(1, RecordedNewIds()[0].id);

  EXPECT_EQ(2, LookUpModuleId(second));
  ASSERT_EQ(2u, RecordedNewIds().size());
  EXPECT_EQ(second, RecordedNewIds()[1].pointer);
  EXPECT_EQ(2, RecordedNewIds()[1].id);

  LookUpModuleId(first);
  LookUpModuleId(second);
  ModuleId again(first);
  EXPECT_EQ(2u, RecordedNewIds().size());
}

namespace {
int g_otherCalls = 0;
void CountOtherCall(const char*, unsigned short) {
  ++g_otherCalls;
}
}  // namespace

TEST_F(ModuleRegistryTest, SettingTheCallbackReplacesThePreviousOne) {
  LookUpModuleId("a");
  SetNewIdCallback(&CountOtherCall);
  EXPECT_EQ(2, LookUpModuleId("b"));
  EXPECT_EQ(1, g_otherCalls);
  EXPECT_EQ(1u, RecordedNewIds().size());

  SetNewIdCallback(nullptr);
  EXPECT_EQ(nullptr, pNewIdCB);
  EXPECT_EQ(3, LookUpModuleId("c"));
  EXPECT_EQ(1, g_otherCalls);
  EXPECT_EQ(1u, RecordedNewIds().size());
}

TEST(ModuleRegistryStart, CallbackPointerStartsNull) {
  EXPECT_EQ(nullptr, pNewIdCB);
}

TEST_F(ModuleRegistryTest, NullNameGivesZeroRegistersNothingAndCallsNoCallback) {
  EXPECT_EQ(0, LookUpModuleId(nullptr));
  EXPECT_EQ(0, getmoduleRegistry().LookUp(nullptr));
  EXPECT_TRUE(RecordedNewIds().empty());
  EXPECT_EQ(nullptr, LookUpModuleName(0));
  EXPECT_EQ(nullptr, LookUpModuleName(1));

  EXPECT_EQ(1, LookUpModuleId("after-null"));
}

TEST_F(ModuleRegistryTest, ModuleIdHoldsTheLookedUpIdAndCopiesIt) {
  LookUpModuleId("first");
  ModuleId module("second");
  EXPECT_EQ(2, module.m_id);
  ASSERT_EQ(2u, RecordedNewIds().size());
  EXPECT_EQ("second", RecordedNewIds()[1].name);
  EXPECT_EQ(2, RecordedNewIds()[1].id);

  ModuleId copy = module;
  EXPECT_EQ(2, copy.m_id);
  EXPECT_EQ(1, ModuleId("first").m_id);
  EXPECT_EQ(2u, RecordedNewIds().size());
}

TEST_F(ModuleRegistryTest, ScopedIdStaticsForwardToTheRegistry) {
  SetNewIdCallback(nullptr);
  ScopedId::SetOnNewIdCallback(&quendal_test::RecordNewId);
  EXPECT_EQ(&quendal_test::RecordNewId, pNewIdCB);

  LookUpModuleId("gfx");
  ASSERT_EQ(1u, RecordedNewIds().size());
  EXPECT_EQ(LookUpModuleName(1), ScopedId::LookUpName(1));
  EXPECT_STREQ("gfx", ScopedId::LookUpName(1));
  EXPECT_EQ(nullptr, ScopedId::LookUpName(2));
}

TEST(ModuleRegistryStart, EveryCallReturnsTheSameRegistry) {
  ModuleRegistry<Mutex>& registry = getmoduleRegistry();
  EXPECT_EQ(&registry, &getmoduleRegistry());
  EXPECT_EQ(1, registry.LookUp("shared"));
  EXPECT_EQ(1, LookUpModuleId("shared"));
}

}  // namespace
