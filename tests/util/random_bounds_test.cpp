// getRandNum_User: the bound through single precision, a 15-bit draw scaled
// by 2^-15, and truncation toward zero.
#include <gtest/gtest.h>

#include <cstdlib>

#include "quendal/random.h"
#include "scripted_draw.h"

namespace {

using quendal_test::ScriptedDraw;

const int kLargestDraw = 32767;

TEST(GetRandNumUser, ZeroBoundGivesZero) {
  RandomNumberGenerator generator;
  ScriptedDraw draw(kLargestDraw);
  EXPECT_EQ(0u, generator.getRandNum_User(0));
  draw.Set(0);
  EXPECT_EQ(0u, generator.getRandNum_User(0));
}

TEST(GetRandNumUser, BoundOfOneAlwaysGivesZero) {
  RandomNumberGenerator generator;
  ScriptedDraw draw(0);
  for (int value = 0; value <= kLargestDraw; value += 127) {
    draw.Set(value);
    EXPECT_EQ(0u, generator.getRandNum_User(1)) << "draw " << value;
  }
  draw.Set(kLargestDraw);
  EXPECT_EQ(0u, generator.getRandNum_User(1));
}

TEST(GetRandNumUser, DrawsOncePerCall) {
  RandomNumberGenerator generator;
  ScriptedDraw draw(5);
  generator.getRandNum_User(10);
  generator.getRandNum_User(0);
  EXPECT_EQ(2, draw.count());
}

TEST(GetRandNumUser, ScalesTheDrawBy2ToTheMinus15) {
  RandomNumberGenerator generator;
  ScriptedDraw draw(0);
  EXPECT_EQ(0u, generator.getRandNum_User(32768));
  draw.Set(1);
  EXPECT_EQ(1u, generator.getRandNum_User(32768));
  EXPECT_EQ(2u, generator.getRandNum_User(65536));
  draw.Set(16384);
  EXPECT_EQ(500u, generator.getRandNum_User(1000));
  draw.Set(kLargestDraw);
  EXPECT_EQ(32767u, generator.getRandNum_User(32768));
  EXPECT_EQ(65534u, generator.getRandNum_User(65536));
}

TEST(GetRandNumUser, TruncatesTowardZero) {
  RandomNumberGenerator generator;
  // 10 * 16383 / 32768 = 4.9997.
  ScriptedDraw draw(16383);
  EXPECT_EQ(4u, generator.getRandNum_User(10));
  // 3 * 32767 / 32768 = 2.9999.
  draw.Set(kLargestDraw);
  EXPECT_EQ(2u, generator.getRandNum_User(3));
}

TEST(GetRandNumUser, LargestDrawStaysBelowTheBound) {
  RandomNumberGenerator generator;
  ScriptedDraw draw(kLargestDraw);
  const unsigned int bounds[] = {2u,        7u,        100u,        32767u,
                                 32768u,    32769u,    1000000u,    16777215u,
                                 16777216u, 16777217u, 0x7FFFFFFFu, 0xFFFFFFFFu};
  for (unsigned int bound : bounds) {
    EXPECT_LT(generator.getRandNum_User(bound), bound) << "bound " << bound;
  }
}

TEST(GetRandNumUser, Bound16777217NeverGivesMoreThan16777215) {
  RandomNumberGenerator generator;
  ScriptedDraw draw(kLargestDraw);
  // The bound becomes 16777216 in single precision: 16777216 * 32767 / 32768.
  EXPECT_EQ(16776704u, generator.getRandNum_User(16777217));
  EXPECT_LE(generator.getRandNum_User(16777217), 16777215u);
  draw.Set(16384);
  EXPECT_EQ(8388608u, generator.getRandNum_User(16777217));
}

TEST(GetRandNumUser, BoundLosesItsLowBitsInSinglePrecision) {
  RandomNumberGenerator generator;
  ScriptedDraw draw(kLargestDraw);
  // 33554431 rounds up to 2^25 and 0xFFFFFFFF to 2^32; in double precision
  // the results would be 33553407 and 4294836223.
  EXPECT_EQ(33553408u, generator.getRandNum_User(33554431));
  EXPECT_EQ(4294836224u, generator.getRandNum_User(0xFFFFFFFFu));
  draw.Set(1);
  // 2^24 + 3 rounds to 2^24 + 4: (2^24 + 4) / 2^15 = 512.0001.
  EXPECT_EQ(512u, generator.getRandNum_User(16777219));
}

TEST(GetRandNumUser, WideDrawIsCutTo15Bits) {
  RandomNumberGenerator generator;
  ScriptedDraw draw(0x7FFFFFFF);
  EXPECT_EQ(99u, generator.getRandNum_User(100));
  draw.Set(0x8000);
  EXPECT_EQ(0u, generator.getRandNum_User(0xFFFFFFFFu));
  draw.Set(0x12345);
  EXPECT_EQ(0x2345u, generator.getRandNum_User(32768));
}

TEST(GetRandNumUser, CLibraryDrawsStayBelowTheBound) {
  RandomNumberGenerator generator;
  std::srand(12345);
  const unsigned int bounds[] = {1u, 2u, 10u, 16777217u, 0xFFFFFFFFu};
  for (unsigned int bound : bounds) {
    for (int i = 0; i < 20000; ++i) {
      ASSERT_LT(generator.getRandNum_User(bound), bound) << "bound " << bound;
    }
  }
}

TEST(GetRandNumUser, CLibraryDrawsReachBothEnds) {
  RandomNumberGenerator generator;
  std::srand(1);
  bool sawZero = false;
  bool sawNine = false;
  for (int i = 0; i < 10000 && !(sawZero && sawNine); ++i) {
    const unsigned int value = generator.getRandNum_User(10);
    sawZero = sawZero || value == 0;
    sawNine = sawNine || value == 9;
  }
  EXPECT_TRUE(sawZero);
  EXPECT_TRUE(sawNine);
}

}  // namespace
