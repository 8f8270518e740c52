#include <optional>
#include <vector>

#include "native/native_limit.h"
#include "support/testing.h"

namespace brisko::native_rules_test {
namespace {

constexpr ChargeState allow = ChargeState::allow;
constexpr ChargeState hold = ChargeState::hold;
constexpr ChargeState discharge = ChargeState::discharge;

// -- The hold point

constexpr HoldPointInputs aboveTheLimit{.plugged = true, .pct = 90, .upper = 80};

TEST(NativeHoldPoint, isWhereTheChargeWasFirstSeenAboveTheLimit) {
  EXPECT_EQ(nativeHoldPoint(aboveTheLimit), 90);
}

TEST(NativeHoldPoint, doesNotFollowTheCharge) {
  HoldPointInputs inputs = aboveTheLimit;
  inputs.holdAt = 90;
  inputs.pct = 91;
  EXPECT_EQ(nativeHoldPoint(inputs), 90);
  inputs.pct = 86;
  EXPECT_EQ(nativeHoldPoint(inputs), 90);
}

TEST(NativeHoldPoint, beginsOnePointAboveTheLimit) {
  HoldPointInputs inputs = aboveTheLimit;
  inputs.pct = 81;
  EXPECT_EQ(nativeHoldPoint(inputs), 81);
  inputs.pct = 80;
  EXPECT_EQ(nativeHoldPoint(inputs), std::nullopt);
}

TEST(NativeHoldPoint, isClearedAtTheLimit) {
  HoldPointInputs inputs = aboveTheLimit;
  inputs.holdAt = 90;
  inputs.pct = 80;
  EXPECT_EQ(nativeHoldPoint(inputs), std::nullopt);
}

TEST(NativeHoldPoint, isMissingIfTheBatteryShouldNotBeHeld) {
  HoldPointInputs topUp = aboveTheLimit;
  topUp.topUp = true;
  EXPECT_EQ(nativeHoldPoint(topUp), std::nullopt);
  HoldPointInputs down = aboveTheLimit;
  down.discharge = true;
  EXPECT_EQ(nativeHoldPoint(down), std::nullopt);
  HoldPointInputs calibrating = aboveTheLimit;
  calibrating.calibrating = true;
  EXPECT_EQ(nativeHoldPoint(calibrating), std::nullopt);
  HoldPointInputs onBattery = aboveTheLimit;
  onBattery.plugged = false;
  EXPECT_EQ(nativeHoldPoint(onBattery), std::nullopt);
}

// -- The start of the wait

TEST(NativeAttemptClock, isUnchangedWhilePlugged) {
  EXPECT_EQ(nativeAttemptClock(1000, true, 1060), 1000);
  EXPECT_EQ(nativeAttemptClock(1000, true, 5000), 1000);
}

TEST(NativeAttemptClock, startsAgainOnBattery) { EXPECT_EQ(nativeAttemptClock(1000, false, 1060), 1060); }

TEST(NativeAttemptClock, doesNotCountHalfAnHourOnBattery) {
  double now = 1'790'000'000;
  double attempt = now;
  for (int minute = 0; minute < 29; ++minute) attempt = nativeAttemptClock(attempt, false, now += 60);
  now = 1'790'000'000 + 1860;
  attempt = nativeAttemptClock(attempt, true, now);
  EXPECT_LT(now - attempt, 600);
  attempt = nativeAttemptClock(attempt, true, now += 3600);
  EXPECT_GE(now - attempt, 600);
}

// -- The charge state

struct StateCase {
  const char* description;
  NativeStateInputs inputs;
  ChargeState expected;
};

void expectStates(const std::vector<StateCase>& cases) {
  for (const StateCase& example : cases) {
    EXPECT_EQ(stateName(nativeChargeState(example.inputs)), stateName(example.expected))
        << example.description;
  }
}

TEST(NativeChargeState, isAllowWhileTheBatteryCharges) {
  expectStates({
      {"in the margin", {.plugged = true, .pct = 78, .currentMA = 151}, allow},
      {"above the target", {.plugged = true, .pct = 95, .currentMA = 2000}, allow},
      {"held before", {.plugged = true, .pct = 78, .currentMA = 151, .state = hold}, allow},
      {"one less is no charging", {.plugged = true, .pct = 78, .currentMA = 150, .state = hold}, hold},
  });
}

TEST(NativeChargeState, isAllowWithoutALimitToHold) {
  expectStates({
      {"on battery", {.plugged = false, .pct = 90, .currentMA = -900}, allow},
      {"on battery, no reading", {.plugged = false, .pct = 90}, allow},
      {"no limit", {.plugged = true, .pct = 100, .target = 100, .currentMA = 0}, allow},
      {"no limit, no reading", {.plugged = true, .pct = 100, .target = 100}, allow},
      {"no limit, a trickle",
       {.plugged = true, .pct = 100, .target = 100, .currentMA = 60, .state = hold},
       allow},
      {"the highest limit is one", {.plugged = true, .pct = 99, .target = 99, .currentMA = 0}, hold},
  });
}

TEST(NativeChargeState, isAllowBelowTheRestingMargin) {
  expectStates({
      {"far below, no current yet", {.plugged = true, .pct = 20, .currentMA = 0}, allow},
      {"30 under 80", {.plugged = true, .pct = 30, .currentMA = 0}, allow},
      {"just below the margin", {.plugged = true, .pct = 74, .currentMA = 0, .state = hold}, allow},
      {"in the margin", {.plugged = true, .pct = 75, .currentMA = 0}, hold},
      {"at the target", {.plugged = true, .pct = 80, .currentMA = 0}, hold},
      {"below, a trickle", {.plugged = true, .pct = 74, .currentMA = 100, .state = hold}, allow},
      {"in the margin, a trickle", {.plugged = true, .pct = 75, .currentMA = 100, .state = hold}, hold},
      {"below, no reading", {.plugged = true, .pct = 74, .state = hold}, allow},
      {"in the margin, no reading", {.plugged = true, .pct = 75}, hold},
  });
}

TEST(NativeChargeState, staysAllowWithASmallCurrent) {
  expectStates({
      {"allowed before", {.plugged = true, .pct = 78, .currentMA = 51, .state = allow}, allow},
      {"below it that is no charging", {.plugged = true, .pct = 78, .currentMA = 50, .state = allow}, hold},
      {"held before", {.plugged = true, .pct = 78, .currentMA = 51, .state = hold}, hold},
      {"no reading keeps nothing", {.plugged = true, .pct = 78, .state = allow}, hold},
  });
}

TEST(NativeChargeState, isDischargeAboveTheTargetWhileTheBatteryDrains) {
  expectStates({
      {"macOS runs it down", {.plugged = true, .pct = 90, .currentMA = -1000}, discharge},
      {"just enough", {.plugged = true, .pct = 81, .currentMA = -101}, discharge},
      {"too little", {.plugged = true, .pct = 81, .currentMA = -100}, hold},
      {"at the target", {.plugged = true, .pct = 80, .currentMA = -1000}, hold},
      {"a weak charger in the margin", {.plugged = true, .pct = 77, .currentMA = -500}, hold},
      {"a weak charger below it", {.plugged = true, .pct = 74, .currentMA = -500}, allow},
      {"held for heat below the limit", {.plugged = true, .pct = 77, .target = 77, .currentMA = 10}, hold},
  });
}

}  // namespace
}  // namespace brisko::native_rules_test
