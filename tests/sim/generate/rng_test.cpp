// Random numbers that are the same with every compiler and library.

#include "sim/generate/rng.h"

#include <array>
#include <limits>
#include <set>
#include <vector>

#include "support/testing.h"

namespace brisko::lab::rng_test {
namespace {

using namespace test;

constexpr int manyDraws = 20000;

TEST(Rng, drawsTheSameNumbersForTheSameSeedEverywhere) {
  Rng rng(17, 1);
  std::vector<std::uint64_t> drawn;
  for (int count = 0; count < 6; ++count) drawn.push_back(rng.below(1000));
  EXPECT_THAT(drawn, ElementsAre(176, 912, 171, 372, 201, 453));
}

TEST(Rng, drawsDifferentNumbersForEachSeedAndStream) {
  std::set<std::uint64_t> first;
  for (std::uint64_t seed = 0; seed < 100; ++seed) {
    for (std::uint64_t stream = 0; stream < 3; ++stream) {
      first.insert(Rng(seed, stream).below(std::numeric_limits<std::uint64_t>::max()));
    }
  }
  EXPECT_EQ(first.size(), 300U);
}

TEST(Rng, drawsEveryNumberBelowItsEnd) {
  Rng rng(1, 1);
  std::array<int, 7> seen{};
  for (int count = 0; count < manyDraws; ++count) ++seen.at(rng.below(7));
  for (const int often : seen) EXPECT_NEAR(often, manyDraws / 7.0, 250);
  EXPECT_EQ(rng.below(1), 0U);
}

TEST(Rng, drawsBothBoundsAndNothingBeyond) {
  Rng rng(2, 1);
  std::set<std::int64_t> seen;
  for (int count = 0; count < 1000; ++count) seen.insert(rng.between(-2, 2));
  EXPECT_THAT(seen, ElementsAre(-2, -1, 0, 1, 2));
  EXPECT_EQ(rng.between(5, 5), 5);
}

TEST(Rng, coversAll64Bits) {
  Rng rng(3, 1);
  constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min() + 1;
  bool below = false;
  bool above = false;
  for (int count = 0; count < 100; ++count) {
    const std::int64_t drawn = rng.between(least, std::numeric_limits<std::int64_t>::max());
    below = below || drawn < least / 2;
    above = above || drawn > -(least / 2);
  }
  EXPECT_TRUE(below && above);
}

TEST(Rng, hasChancesFromNeverToAlways) {
  Rng rng(4, 1);
  int happened = 0;
  for (int count = 0; count < manyDraws; ++count) {
    EXPECT_FALSE(rng.percent(0));
    EXPECT_TRUE(rng.percent(100));
    EXPECT_TRUE(rng.oneIn(1));
    happened += rng.percent(30) ? 1 : 0;
  }
  EXPECT_NEAR(happened, 0.3 * manyDraws, 300);
}

TEST(Rng, followsTheWeights) {
  Rng rng(5, 1);
  struct Row {
    unsigned weight;
    std::size_t index;
  };
  constexpr std::array rows{Row{0, 0}, Row{3, 1}, Row{0, 2}, Row{1, 3}};
  std::array<int, 4> seen{};
  for (int count = 0; count < manyDraws; ++count) ++seen.at(rng.weighted(rows).index);
  EXPECT_EQ(seen[0], 0);
  EXPECT_EQ(seen[2], 0);
  EXPECT_NEAR(seen[1], 0.75 * manyDraws, 300);
  EXPECT_NEAR(seen[3], 0.25 * manyDraws, 300);
}

TEST(Rng, choosesEachElementOfAList) {
  Rng rng(6, 1);
  std::set<int> seen;
  for (int count = 0; count < 200; ++count) seen.insert(rng.oneOf(std::array{7, 8, 9}));
  EXPECT_THAT(seen, ElementsAre(7, 8, 9));
}

}  // namespace
}  // namespace brisko::lab::rng_test
