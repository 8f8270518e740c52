#include "report/thinning.h"

#include <algorithm>

#include "support/testing.h"

namespace brisko::lab::thinning_test {
namespace {

using namespace test;

std::vector<Moment> steady(std::size_t count) {
  std::vector<Moment> moments;
  for (std::size_t index = 0; index < count; ++index) {
    Moment moment;
    moment.time = static_cast<double>(index);
    moment.level = 80;
    moment.currentMA = 0;
    moment.temperatureC = 25;
    moments.push_back(moment);
  }
  return moments;
}

auto isAt(double time) { return Field(&Moment::time, time); }

TEST(Thinning, leavesAFewMomentsUnchanged) {
  EXPECT_EQ(thinned(steady(100), 100, 10), steady(100));
  EXPECT_LT(thinned(steady(101), 100, 10).size(), 50U);
}

TEST(Thinning, keepsTheHighestAndTheLowestOfEveryNumber) {
  std::vector<Moment> moments = steady(1000);
  moments[123].level = 99;
  moments[456].level = 1;
  moments[500].currentMA = -4000;
  moments[507].currentMA = 4000;
  moments[508].temperatureC = 60;
  moments[777].watts = 30;
  const std::vector<Moment> kept = thinned(moments, 100, 10);
  EXPECT_LT(kept.size(), 90U);
  for (const std::size_t index : {123U, 456U, 500U, 507U, 508U, 777U})
    EXPECT_THAT(kept, Contains(moments[index]));
}

TEST(Thinning, keepsBeginningAndEndInOrder) {
  const std::vector<Moment> kept = thinned(steady(1000), 100, 10);
  EXPECT_EQ(kept.front().time, 0);
  EXPECT_EQ(kept.back().time, 999);
  EXPECT_TRUE(std::is_sorted(kept.begin(), kept.end(),
                             [](const Moment& one, const Moment& other) { return one.time < other.time; }));
}

TEST(Thinning, keepsBothSidesOfAGap) {
  std::vector<Moment> moments = steady(1000);
  moments[333].afterGap = true;
  const std::vector<Moment> kept = thinned(moments, 100, 10);
  EXPECT_THAT(kept, Contains(isAt(332)));
  EXPECT_THAT(kept, Contains(moments[333]));
  EXPECT_THAT(kept, Not(Contains(isAt(334))));
}

TEST(Thinning, acceptsMomentsAtTheSameTime) {
  std::vector<Moment> moments = steady(300);
  for (Moment& moment : moments) moment.time = 7;
  EXPECT_THAT(thinned(moments, 100, 10), SizeIs(2));
}

}  // namespace
}  // namespace brisko::lab::thinning_test
