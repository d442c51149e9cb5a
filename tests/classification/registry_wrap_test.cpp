// Ids are 16 bits wide and wrap: the 65536th name gets 0, the next 1 again.
// When two names share an id, the reverse look-up returns the one that sorts
// first bytewise.
#include <gtest/gtest.h>

#include <stdio.h>

#include <string>

#include "new_id_recorder.h"
#include "quendal/classification.h"

namespace {

using namespace Quendal::Classification;
using quendal_test::NewIdRecorderTest;
using quendal_test::RecordedNewIds;

using ModuleIdWrapTest = NewIdRecorderTest;

// Looks up new names "m00002", "m00003"... until the registry holds count
// names; each must get the next id.
void FillRegistryTo(unsigned count, unsigned alreadyThere) {
  char name[16];
  for (unsigned n = alreadyThere + 1; n <= count; ++n) {
    snprintf(name, sizeof name, "m%05u", n);
    ASSERT_EQ(static_cast<unsigned short>(n), LookUpModuleId(name)) << name;
  }
}

TEST_F(ModuleIdWrapTest, After65535NamesTheNextGetsZeroAndTheOneAfterGetsOne) {
  EXPECT_EQ(1, LookUpModuleId("m00001"));
  FillRegistryTo(65535, 1);
  EXPECT_STREQ("m65535", LookUpModuleName(65535));
  EXPECT_EQ(nullptr, LookUpModuleName(0));

  RecordedNewIds().clear();
  EXPECT_EQ(0, LookUpModuleId("wrap-zero"));
  EXPECT_EQ(1, LookUpModuleId("wrap-one"));
  ASSERT_EQ(2u, RecordedNewIds().size());
  EXPECT_EQ(0, RecordedNewIds()[0].id);
  EXPECT_EQ(1, RecordedNewIds()[1].id);

  EXPECT_STREQ("wrap-zero", LookUpModuleName(0));
  // "m00001" sorts before "wrap-one".
  EXPECT_STREQ("m00001", LookUpModuleName(1));
  EXPECT_EQ(1, LookUpModuleId("m00001"));
  EXPECT_EQ(1, LookUpModuleId("wrap-one"));
  EXPECT_EQ(2u, RecordedNewIds().size());
}

TEST_F(ModuleIdWrapTest, SharedIdNamesTheLaterNameWhenItSortsFirst) {
  EXPECT_EQ(1, LookUpModuleId("n-first"));
  FillRegistryTo(65535, 1);
  EXPECT_EQ(0, LookUpModuleId("wrap-zero"));
  EXPECT_EQ(1, LookUpModuleId("a-later"));

  EXPECT_STREQ("a-later", LookUpModuleName(1));
  EXPECT_EQ(1, LookUpModuleId("n-first"));
}

TEST_F(ModuleIdWrapTest, SharedIdOrderComparesBytesAsUnsigned) {
  // As an unsigned byte 0xE9 sorts after 'z'; as a signed char it would sort
  // before it.
  EXPECT_EQ(1, LookUpModuleId("\xe9t\xe9"));
  FillRegistryTo(65535, 1);
  EXPECT_EQ(0, LookUpModuleId("wrap-zero"));
  EXPECT_EQ(1, LookUpModuleId("zz"));

  EXPECT_STREQ("zz", LookUpModuleName(1));
}

TEST_F(ModuleIdWrapTest, SharedIdOrderPutsAPrefixBeforeTheLongerName) {
  EXPECT_EQ(1, LookUpModuleId("abc"));
  FillRegistryTo(65535, 1);
  EXPECT_EQ(0, LookUpModuleId("wrap-zero"));
  EXPECT_EQ(1, LookUpModuleId("ab"));

  EXPECT_STREQ("ab", LookUpModuleName(1));
}

TEST_F(ModuleIdWrapTest, IdsKeepWrappingPastTheSecondRound) {
  FillRegistryTo(65535, 0);
  EXPECT_EQ(0, LookUpModuleId("wrap-zero"));
  EXPECT_EQ(1, LookUpModuleId("wrap-one"));
  EXPECT_EQ(2, LookUpModuleId("wrap-two"));
  // "m00002" sorts before "wrap-two".
  EXPECT_STREQ("m00002", LookUpModuleName(2));
}

}  // namespace
