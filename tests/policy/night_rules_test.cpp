#include "policy/night_rules.h"

#include "support/testing.h"

namespace brisko::night_rules_test {
namespace {

using namespace test;

constexpr Bounds band{.upper = 80, .lower = 75};

bool closes(const NightInputs& inputs) { return decideNight(inputs).step == NightStep::close; }

std::optional<std::int64_t> wakesIn(const NightInputs& inputs) {
  const NightDecision decision = decideNight(inputs);
  return decision.step == NightStep::wake ? std::optional(decision.minutes) : std::nullopt;
}

// On the adapter, one point a minute.
NightInputs at(std::int64_t pct) {
  return {.pct = pct, .band = band, .speed = 1, .wakesLeft = 10, .batteryWakesLeft = 4};
}

// ---------------------------------------------------------------------------------------------------------

TEST(FastestSpeed, isWhatTheAdapterDelivers) {
  const ChargerReadings readings{.adapterWatts = 30, .voltageMV = 12'000, .designMAh = 4563, .fullMAh = 4427};
  // 2,500 mA into 4,206 mAh that are shown as 100 %.
  EXPECT_NEAR(fastestSpeed(readings), 100 * 2500 / (0.95 * 4427) / 60, 1e-9);
}

TEST(FastestSpeed, isWhatTheBatteryTakesFromAStrongAdapterOrAnUnknownOne) {
  ChargerReadings readings{.adapterWatts = 140, .voltageMV = 12'000, .designMAh = 4563, .fullMAh = 4427};
  const double most = 100 * 1.25 * 4563 / (0.95 * 4427) / 60;
  EXPECT_NEAR(fastestSpeed(readings), most, 1e-9);
  readings.adapterWatts.reset();
  EXPECT_NEAR(fastestSpeed(readings), most, 1e-9);
}

TEST(FastestSpeed, assumesTheMostWithoutReadings) {
  EXPECT_EQ(fastestSpeed({}), 2.5);
  EXPECT_EQ(fastestSpeed({.adapterWatts = 5, .voltageMV = 12'000, .designMAh = 0}), 2.5);
  const double worn = fastestSpeed({.designMAh = 4000});
  EXPECT_NEAR(worn, 100 * 1.25 / (0.95 * 0.75) / 60, 1e-9) << "a worn battery fills sooner";
  EXPECT_EQ(fastestSpeed({.designMAh = 4000, .fullMAh = 0}), worn);
  const double low = fastestSpeed({.adapterWatts = 9, .designMAh = 4000, .fullMAh = 4000});
  EXPECT_NEAR(low, 100 * 1000 / (0.95 * 4000) / 60, 1e-9) << "at 9 V an adapter delivers the most current";
}

TEST(ExpectedSpeed, comesFromWhatWasGainedIfThatWasLongEnough) {
  EXPECT_EQ(expectedSpeed(2, Gain{.points = 5, .minutes = 6}), 1);
  EXPECT_EQ(expectedSpeed(2, Gain{.points = 2, .minutes = 3}), 1);
  EXPECT_EQ(expectedSpeed(2, Gain{.points = 2, .minutes = 2.9}), 2);
  EXPECT_EQ(expectedSpeed(2, std::nullopt), 2);
}

TEST(ExpectedSpeed, isNeverMoreThanTheFastestNorNone) {
  EXPECT_EQ(expectedSpeed(2, Gain{.points = 60, .minutes = 6}), 2);
  EXPECT_EQ(expectedSpeed(2, Gain{.points = 0, .minutes = 10}), 0.1);
  EXPECT_EQ(expectedSpeed(2, Gain{.points = -3, .minutes = 10}), 0.1);
}

TEST(MinutesBelow, leaveRoomForTheRoundingTheGaugeAndAMargin) {
  // 80 less 60, half a point and a minute's gain, at a tenth more than one point a minute.
  EXPECT_NEAR(minutesBelow(80, 60, 1), 18.5 / 1.1, 1e-9);
  EXPECT_LT(minutesBelow(80, 79, 1), 0);
}

// ---------------------------------------------------------------------------------------------------------

TEST(Bedtime, closesInsideTheBandAndAboveWithAndWithoutAnAdapter) {
  for (const bool onAdapter : {true, false}) {
    for (const std::int64_t pct : {75, 80, 90})
      EXPECT_EQ(planBedtime({.pct = pct, .band = band, .onAdapter = onAdapter}), BedtimePlan::close) << pct;
    EXPECT_EQ(planBedtime({.pct = 74, .band = band, .onAdapter = onAdapter}), BedtimePlan::takeStep);
  }
}

TEST(Bedtime, leavesAloneWhatIsNotLimited) {
  for (const std::int64_t pct : {40, 78, 95})
    EXPECT_EQ(planBedtime({.pct = pct, .band = band, .limited = false}), BedtimePlan::leaveAlone);
  const Bounds noLimit{.upper = 100, .lower = 95};
  EXPECT_EQ(planBedtime({.pct = 94, .band = noLimit}), BedtimePlan::leaveAlone);
  EXPECT_EQ(planBedtime({.pct = 95, .band = noLimit}), BedtimePlan::close);
  EXPECT_EQ(planBedtime({.pct = 95, .band = noLimit, .onAdapter = false}), BedtimePlan::leaveAlone);
}

// ---------------------------------------------------------------------------------------------------------

TEST(NightStep, wakesBeforeTheLimit) {
  EXPECT_EQ(wakesIn(at(20)), 53);
  EXPECT_EQ(wakesIn(at(75)), 3);
  NightInputs slow = at(20);
  slow.speed = 0.01;
  EXPECT_EQ(wakesIn(slow), 180);
}

TEST(NightStep, staysAwakeForTheLastMinutes) {
  NightInputs inputs = at(76);
  inputs.mayStayAwake = true;
  EXPECT_EQ(decideNight(inputs).step, NightStep::stayAwake);
  inputs.pct = 75;
  EXPECT_EQ(wakesIn(inputs), 3);
}

TEST(NightStep, closesInsideTheBandWhenTheNextReadingMayBeTwoPointsAboveTheLimit) {
  const auto closesAt = [](std::int64_t pct, double speed, std::int64_t lower) {
    NightInputs inputs = at(pct);
    inputs.band.lower = lower;
    inputs.speed = speed;
    inputs.mayStayAwake = true;
    return closes(inputs);
  };
  EXPECT_FALSE(closesAt(79, 2.5, 75));
  EXPECT_TRUE(closesAt(79, 2.6, 75));
  EXPECT_FALSE(closesAt(76, 5.5, 75));
  EXPECT_TRUE(closesAt(76, 5.6, 75));
  EXPECT_TRUE(closesAt(76, 5.6, 76));
  EXPECT_FALSE(closesAt(76, 5.6, 77)) << "below the band it has to be charged";
}

TEST(NightStep, closesInsideTheBandWhenItMayNotStayAwake) {
  EXPECT_TRUE(closes(at(76)));
  EXPECT_TRUE(closes(at(79)));
}

TEST(NightStep, wakesAgainInANarrowBandWhenItMayNotStayAwake) {
  NightInputs inputs = at(76);
  inputs.band = {.upper = 80, .lower = 79};
  EXPECT_EQ(wakesIn(inputs), 3);
  inputs.pct = 79;
  EXPECT_TRUE(closes(inputs));
}

// The shortest wait may pass the limit by a point, not by more.
TEST(NightStep, closesBelowTheBandWhenTheShortestWaitWouldPassTheLimit) {
  NightInputs inputs = at(0);
  inputs.band = {.upper = 80, .lower = 80};
  inputs.speed = 2;
  for (const auto& [pct, closed] : {std::pair{71, false}, std::pair{72, true}, std::pair{79, true}}) {
    inputs.pct = pct;
    EXPECT_EQ(closes(inputs), closed) << pct;
  }
}

TEST(NightStep, closesWhenTheWakesAreUsedUp) {
  NightInputs inputs = at(40);
  inputs.wakesLeft = 1;
  EXPECT_TRUE(wakesIn(inputs));
  inputs.wakesLeft = 0;
  EXPECT_TRUE(closes(inputs));
}

TEST(NightStep, onBatteryWakesWhenTheStrongestAdapterCouldHaveReachedTheLimitAndThenHourly) {
  NightInputs inputs = at(20);
  inputs.onAdapter = false;
  inputs.mayStayAwake = true;
  EXPECT_EQ(wakesIn(inputs), 53);
  inputs.firstOnBattery = false;
  EXPECT_EQ(wakesIn(inputs), 60);
  inputs.pct = 74;
  inputs.firstOnBattery = true;
  EXPECT_EQ(wakesIn(inputs), 4);
}

TEST(NightStep, onBatteryClosesInsideTheBandAndAfterItsWakes) {
  NightInputs inputs = at(75);
  inputs.onAdapter = false;
  EXPECT_TRUE(closes(inputs));
  inputs.pct = 74;
  inputs.batteryWakesLeft = 1;
  EXPECT_TRUE(wakesIn(inputs));
  inputs.batteryWakesLeft = 0;
  EXPECT_TRUE(closes(inputs));
  inputs.batteryWakesLeft = 4;
  inputs.wakesLeft = 0;
  EXPECT_TRUE(closes(inputs));
}

// ---------------------------------------------------------------------------------------------------------

constexpr NightPlan plan{.wakeAt = 2000, .plannedAt = 1000, .pct = 40, .adapterWatts = 30, .onAdapter = true};
constexpr NightReading reading{.now = 1600, .pct = 50, .adapterWatts = 30, .onAdapter = true, .fastest = 1};

TEST(NightPlan, holdsUntilItsWake) {
  EXPECT_TRUE(planHolds(plan, reading));
  NightReading later = reading;
  later.now = 1999;
  EXPECT_TRUE(planHolds(plan, later));
  later.now = 2000;
  EXPECT_FALSE(planHolds(plan, later));
}

TEST(NightPlan, isMadeAnewForAnotherAdapterOrNone) {
  NightReading other = reading;
  other.adapterWatts = 96;
  EXPECT_FALSE(planHolds(plan, other));
  other = reading;
  other.onAdapter = false;
  EXPECT_FALSE(planHolds(plan, other));
}

TEST(NightPlan, isMadeAnewOnceChargingWasStopped) {
  NightPlan stopped = plan;
  stopped.undisturbed = false;
  EXPECT_FALSE(planHolds(stopped, reading));
}

TEST(NightPlan, isMadeAnewWhenTheChargeRoseFasterThanItCan) {
  NightReading risen = reading;
  risen.pct = 52;  // ten minutes, one for the gauge, and a point of rounding
  EXPECT_TRUE(planHolds(plan, risen));
  risen.pct = 53;
  EXPECT_FALSE(planHolds(plan, risen));
}

TEST(NightPlan, isMadeAnewWhenTheClockIsSetBack) {
  NightReading before = reading;
  before.now = 999;
  EXPECT_FALSE(planHolds(plan, before));
  EXPECT_EQ(gainSince(plan, before), std::nullopt);
}

TEST(NightGain, countsOnlyOnTheSameAdapter) {
  const std::optional<Gain> gain = gainSince(plan, reading);
  ASSERT_TRUE(gain);
  EXPECT_EQ(gain->points, 10);
  EXPECT_EQ(gain->minutes, 10);
  NightReading other = reading;
  other.adapterWatts = 96;
  EXPECT_EQ(gainSince(plan, other), std::nullopt);
  other = reading;
  other.onAdapter = false;
  EXPECT_EQ(gainSince(plan, other), std::nullopt);
  NightPlan hot = plan;
  hot.undisturbed = false;
  EXPECT_EQ(gainSince(hot, reading), std::nullopt);
  NightPlan onBattery = plan;
  onBattery.onAdapter = false;
  EXPECT_EQ(gainSince(onBattery, reading), std::nullopt);
}

// Ten minutes have passed since the plan.
TEST(NightGain, countsTheTimeAsleepAlone) {
  NightPlan since = plan;
  since.uptime = 5000;
  const auto minutesAfter = [&](double awake) {
    NightReading now = reading;
    now.uptime = since.uptime + awake;
    return gainSince(since, now).value_or(Gain{.minutes = -1}).minutes;
  };
  EXPECT_EQ(minutesAfter(0), 10);
  EXPECT_EQ(minutesAfter(60), 9);
  EXPECT_EQ(minutesAfter(600), 0);
  EXPECT_EQ(minutesAfter(700), 0) << "the clock was set back meanwhile";
}

TEST(NightGain, subtractsNothingThatWasLostInBetween) {
  NightPlan since = plan;
  for (const std::int64_t pct : {43, 46, 45, 45, 44, 50}) noteLoss(since, pct);
  EXPECT_EQ(gainSince(since, reading).value_or(Gain{}).points, 12);
}

// ---------------------------------------------------------------------------------------------------------

TEST(StateAtNight, keepsChargingStoppedDownToTheBand) {
  const auto held = [](std::int64_t pct, bool onAdapter) {
    return stateAtNight({.wanted = ChargeState::allow,
                         .state = ChargeState::hold,
                         .pct = pct,
                         .lower = 75,
                         .onAdapter = onAdapter});
  };
  EXPECT_EQ(held(75, true), ChargeState::hold);
  EXPECT_EQ(held(74, true), ChargeState::allow);
  EXPECT_EQ(held(74, false), ChargeState::hold);
  EXPECT_EQ(held(10, false), ChargeState::hold);
}

TEST(StateAtNight, followsEveryOtherDecision) {
  EXPECT_EQ(stateAtNight({.wanted = ChargeState::allow, .state = ChargeState::allow, .pct = 78}),
            ChargeState::allow);
  EXPECT_EQ(stateAtNight({.wanted = ChargeState::hold, .state = ChargeState::allow, .pct = 40}),
            ChargeState::hold);
  EXPECT_EQ(stateAtNight({.wanted = ChargeState::allow, .state = ChargeState::discharge, .pct = 78}),
            ChargeState::allow);
}

}  // namespace
}  // namespace brisko::night_rules_test
