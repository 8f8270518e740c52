#include "policy/charge_bounds.h"

#include <limits>

#include "support/testing.h"

namespace brisko::charge_bounds_test {
namespace {

constexpr std::int64_t none = -1;

TEST(ChargeBounds, areTheLimitAndTheMarginBelowIt) {
  EXPECT_EQ(bounds(80, none, 5), (Bounds{80, 75}));
  EXPECT_EQ(bounds(80, none, 1), (Bounds{80, 79}));
}

TEST(ChargeBounds, keepAMarginOfAtLeastOne) {
  EXPECT_EQ(bounds(80, none, 0), (Bounds{80, 79}));
  EXPECT_EQ(bounds(80, none, -7), (Bounds{80, 79}));
}

TEST(ChargeBounds, keepAMarginOfAtMost20) {
  EXPECT_EQ(bounds(100, none, 20), (Bounds{100, 80}));
  EXPECT_EQ(bounds(100, none, 21), (Bounds{100, 80}));
  EXPECT_EQ(bounds(100, none, 30), (Bounds{100, 80}));
}

TEST(ChargeBounds, keepTheLimitBetween20And100) {
  EXPECT_EQ(bounds(19, none, 5).upper, 20);
  EXPECT_EQ(bounds(20, none, 5).upper, 20);
  EXPECT_EQ(bounds(21, none, 5).upper, 21);
  EXPECT_EQ(bounds(100, none, 5).upper, 100);
  EXPECT_EQ(bounds(101, none, 5).upper, 100);
  EXPECT_EQ(bounds(150, none, 5), (Bounds{100, 95}));
}

TEST(ChargeBounds, leaveOnePointAtTheFloor) {
  EXPECT_EQ(bounds(20, none, 0), (Bounds{20, 19}));
  EXPECT_EQ(bounds(20, none, 25), (Bounds{20, 19}));
  EXPECT_EQ(bounds(10, none, 5), (Bounds{20, 19}));
  EXPECT_EQ(bounds(21, none, 5), (Bounds{21, 20}));
  EXPECT_EQ(bounds(25, none, 5), (Bounds{25, 20}));
  EXPECT_EQ(bounds(24, none, 5), (Bounds{24, 20}));
}

TEST(ChargeBounds, useTheLowerBoundOfTheCommandLineUnchanged) {
  EXPECT_EQ(bounds(60, 30, 5), (Bounds{60, 30}));
  EXPECT_EQ(bounds(60, 0, 5), (Bounds{60, 0}));
  EXPECT_EQ(bounds(60, 59, 5), (Bounds{60, 59}));
  EXPECT_EQ(bounds(60, 60, 5), (Bounds{60, 59}));
  EXPECT_EQ(bounds(60, 70, 5), (Bounds{60, 59}));
  EXPECT_EQ(bounds(80, 90, 5), (Bounds{80, 79}));
  EXPECT_EQ(bounds(80, -1, 5), (Bounds{80, 75}));
}

TEST(ChargeBounds, areNeverEmpty) {
  for (std::int64_t limit = 0; limit <= 120; ++limit) {
    for (std::int64_t hysteresis = 0; hysteresis <= 25; ++hysteresis) {
      const Bounds band = bounds(limit, none, hysteresis);
      EXPECT_LT(band.lower, band.upper) << limit << ' ' << hysteresis;
    }
  }
}

TEST(ChargeBounds, acceptAnyNumbers) {
  constexpr auto least = std::numeric_limits<std::int64_t>::min();
  constexpr auto most = std::numeric_limits<std::int64_t>::max();
  EXPECT_EQ(bounds(most, most, most), (Bounds{100, 99}));
  EXPECT_EQ(bounds(least, least, least), (Bounds{20, 19}));
}

}  // namespace
}  // namespace brisko::charge_bounds_test
