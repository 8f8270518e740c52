#include "policy/heat.h"

#include <limits>

#include "support/testing.h"

namespace brisko::heat_test {
namespace {

constexpr HeatInputs at(double temp, bool paused) {
  return {.wanted = true, .plugged = true, .temp = temp, .limit = 40, .paused = paused};
}

TEST(PauseForHeat, beginsAtTheLimitAndEndsMoreThan3DegreesBelow) {
  struct Case {
    double temp;
    bool whenPaused;
    bool whenNot;
  };
  for (const auto& [temp, whenPaused, whenNot] :
       {Case{40.1, true, true}, Case{40.0, true, true}, Case{39.9, true, false}, Case{37.1, true, false},
        Case{37.0, true, false}, Case{36.9, false, false}}) {
    EXPECT_EQ(pausedForHeat(at(temp, true)), whenPaused) << temp;
    EXPECT_EQ(pausedForHeat(at(temp, false)), whenNot) << temp;
  }
}

TEST(PauseForHeat, endsWithoutAReadingOrAnAdapterOrWhenSwitchedOff) {
  for (const bool paused : {true, false}) {
    HeatInputs unread = at(50, paused);
    unread.temp.reset();
    EXPECT_FALSE(pausedForHeat(unread));
    HeatInputs onBattery = at(50, paused);
    onBattery.plugged = false;
    EXPECT_FALSE(pausedForHeat(onBattery));
    HeatInputs unwanted = at(50, paused);
    unwanted.wanted = false;
    EXPECT_FALSE(pausedForHeat(unwanted));
  }
}

TEST(PauseForHeat, staysUnchangedWithAReadingThatIsNoNumber) {
  constexpr double nan = std::numeric_limits<double>::quiet_NaN();
  EXPECT_TRUE(pausedForHeat(at(nan, true)));
  EXPECT_FALSE(pausedForHeat(at(nan, false)));
}

}  // namespace
}  // namespace brisko::heat_test
