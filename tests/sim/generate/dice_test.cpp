// Randomness that is the same on every compiler and library.

#include "sim/generate/dice.h"

#include <array>
#include <limits>
#include <set>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace brisko::lab {
namespace {

using ::testing::ElementsAre;

constexpr int manyThrows = 20000;

TEST(Dice, throwTheSameForTheSameSeedEverywhere) {
  Dice dice(17, 1);
  std::vector<std::uint64_t> thrown;
  for (int count = 0; count < 6; ++count) thrown.push_back(dice.below(1000));
  EXPECT_THAT(thrown, ElementsAre(176, 912, 171, 372, 201, 453));
}

TEST(Dice, throwSomethingElseForEachSeedAndStream) {
  std::set<std::uint64_t> first;
  for (std::uint64_t seed = 0; seed < 100; ++seed) {
    for (std::uint64_t stream = 0; stream < 3; ++stream) {
      first.insert(Dice(seed, stream).below(std::numeric_limits<std::uint64_t>::max()));
    }
  }
  EXPECT_EQ(first.size(), 300U);
}

TEST(Dice, stayBelowTheEndAndReachAllBeforeIt) {
  Dice dice(1, 1);
  std::array<int, 7> seen{};
  for (int count = 0; count < manyThrows; ++count) ++seen.at(dice.below(7));
  for (const int often : seen) EXPECT_NEAR(often, manyThrows / 7.0, 250);
  EXPECT_EQ(dice.below(1), 0U);
}

TEST(Dice, throwBothBordersAndNothingBeyond) {
  Dice dice(2, 1);
  std::set<std::int64_t> seen;
  for (int count = 0; count < 1000; ++count) seen.insert(dice.between(-2, 2));
  EXPECT_THAT(seen, ElementsAre(-2, -1, 0, 1, 2));
  EXPECT_EQ(dice.between(5, 5), 5);
}

TEST(Dice, reachTheWholeWidthOf64Bits) {
  Dice dice(3, 1);
  constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min() + 1;
  bool below = false;
  bool above = false;
  for (int count = 0; count < 100; ++count) {
    const std::int64_t thrown = dice.between(least, std::numeric_limits<std::int64_t>::max());
    below = below || thrown < least / 2;
    above = above || thrown > -(least / 2);
  }
  EXPECT_TRUE(below && above);
}

TEST(Dice, haveChancesFromNeverToAlways) {
  Dice dice(4, 1);
  int happened = 0;
  for (int count = 0; count < manyThrows; ++count) {
    EXPECT_FALSE(dice.percent(0));
    EXPECT_TRUE(dice.percent(100));
    EXPECT_TRUE(dice.oneIn(1));
    happened += dice.percent(30) ? 1 : 0;
  }
  EXPECT_NEAR(happened, 0.3 * manyThrows, 300);
}

TEST(Dice, followTheWeights) {
  Dice dice(5, 1);
  constexpr std::array<unsigned, 4> weights{0, 3, 0, 1};
  std::array<int, 4> seen{};
  for (int count = 0; count < manyThrows; ++count) ++seen.at(dice.weighted(weights));
  EXPECT_EQ(seen[0], 0);
  EXPECT_EQ(seen[2], 0);
  EXPECT_NEAR(seen[1], 0.75 * manyThrows, 300);
  EXPECT_NEAR(seen[3], 0.25 * manyThrows, 300);
}

TEST(Dice, chooseEachOfAList) {
  Dice dice(6, 1);
  std::set<int> seen;
  for (int count = 0; count < 200; ++count) seen.insert(dice.oneOf(std::array{7, 8, 9}));
  EXPECT_THAT(seen, ElementsAre(7, 8, 9));
}

}  // namespace
}  // namespace brisko::lab
