// RandomNumberGenerator: its draws come from the C library's sequence, which
// SeedGenerator seeds with the calendar time.
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <vector>

#include "quendal/random.h"
#include "scripted_draw.h"

namespace {

// With a bound of 32768 getRandNum_User gives its 15-bit draw unchanged.
const unsigned int kDrawRange = 32768;

std::vector<unsigned int> Draws(RandomNumberGenerator& generator, int count) {
  std::vector<unsigned int> draws;
  for (int i = 0; i < count; ++i) {
    draws.push_back(generator.getRandNum_User(kDrawRange));
  }
  return draws;
}

std::vector<unsigned int> CLibraryDraws(unsigned int seed, int count) {
  std::srand(seed);
  std::vector<unsigned int> draws;
  for (int i = 0; i < count; ++i) {
    draws.push_back(static_cast<unsigned int>(std::rand()) % kDrawRange);
  }
  return draws;
}

TEST(RandomNumberGenerator, DrawsFollowTheCLibrarySequence) {
  RandomNumberGenerator generator;
  std::srand(42);
  const std::vector<unsigned int> drawn = Draws(generator, 50);
  EXPECT_EQ(CLibraryDraws(42, 50), drawn);
}

TEST(RandomNumberGenerator, ObjectsShareOneSequence) {
  RandomNumberGenerator first;
  RandomNumberGenerator second;
  std::srand(7);
  std::vector<unsigned int> drawn;
  for (int i = 0; i < 10; ++i) {
    drawn.push_back((i % 2 == 0 ? first : second).getRandNum_User(kDrawRange));
  }
  EXPECT_EQ(CLibraryDraws(7, 10), drawn);
}

TEST(RandomNumberGenerator, SeedGeneratorSeedsWithTheCalendarTime) {
  RandomNumberGenerator generator;
  // Retried until no second boundary falls between the two time readings.
  for (int attempt = 0; attempt < 10; ++attempt) {
    const std::time_t before = std::time(nullptr);
    generator.SeedGenerator();
    const std::vector<unsigned int> drawn = Draws(generator, 20);
    if (std::time(nullptr) != before) {
      continue;
    }
    EXPECT_EQ(CLibraryDraws(static_cast<unsigned int>(before), 20), drawn);
    return;
  }
  FAIL() << "the clock moved on during every attempt";
}

TEST(RandomNumberGenerator, TwoSeedsWithinASecondGiveTheSameSequence) {
  RandomNumberGenerator generator;
  for (int attempt = 0; attempt < 10; ++attempt) {
    const std::time_t before = std::time(nullptr);
    generator.SeedGenerator();
    const std::vector<unsigned int> first = Draws(generator, 20);
    generator.SeedGenerator();
    const std::vector<unsigned int> second = Draws(generator, 20);
    if (std::time(nullptr) != before) {
      continue;
    }
    EXPECT_EQ(first, second);
    return;
  }
  FAIL() << "the clock moved on during every attempt";
}

TEST(RandomNumberGenerator, GetRandNum01ReturnsZero) {
  RandomNumberGenerator generator;
  EXPECT_EQ(0.0, generator.getRandNum_01());
}

TEST(RandomNumberGenerator, GetRandNum01ReturnsZeroEvenAfterSeeding) {
  RandomNumberGenerator generator;
  generator.SeedGenerator();
  EXPECT_EQ(0.0, generator.getRandNum_01());
  EXPECT_EQ(0.0, generator.getRandNum_01());
}

TEST(RandomNumberGenerator, GetRandNum01DoesNotDraw) {
  RandomNumberGenerator generator;
  quendal_test::ScriptedDraw draw(123);
  generator.getRandNum_01();
  EXPECT_EQ(0, draw.count());
}

TEST(RandomNumberGenerator, GetRandNum01LeavesTheSequenceAlone) {
  RandomNumberGenerator generator;
  std::srand(9);
  generator.getRandNum_01();
  generator.getRandNum_01();
  const std::vector<unsigned int> drawn = Draws(generator, 5);
  EXPECT_EQ(CLibraryDraws(9, 5), drawn);
}

TEST(RandomNumberGenerator, InstancePointerIsNull) {
  RandomNumberGenerator generator;
  generator.SeedGenerator();
  generator.getRandNum_User(10);
  EXPECT_EQ(nullptr, RandomNumberGenerator::m_pTheInstance);
}

}  // namespace
