// The steps of a night on a virtual Mac: what is scheduled, held open, closed and released.
#include "policy/night_watch.h"

#include <cmath>

#include "base/options.h"
#include "hardware/charge_gate.h"
#include "hardware/charge_state.h"
#include "hardware/scheduled_wake.h"
#include "platform/clock.h"
#include "policy/evaluation.h"
#include "policy/night_rules.h"
#include "state/charge_state_record.h"
#include "support/on_virtual_mac.h"
#include "support/testing.h"

namespace brisko::night_watch_test {
namespace {

using namespace test;

constexpr Bounds band{.upper = 80, .lower = 75};

// On its adapter with charging open, in a dark wake of a night that has begun.
class GuardedNight : public OnVirtualMac {
 protected:
  void SetUp() override {
    takeGate();
    gGuards.night = true;
    mac.settings("{}");
    mac.charge(40);
    evaluate();
    mac.number(ChangeKind::capabilities, 9);
    beginNight();
    static_cast<void>(newLines());
    mac.forgetJournal();
  }
  [[nodiscard]] bool staysAwake() { return mac.machine().sleep.preventedByClient; }
};

TEST_F(GuardedNight, beginsWithTheAnnouncementAndEndsWithTheFullWake) {
  EXPECT_TRUE(isNight());
  mac.number(ChangeKind::capabilities, 15);
  EXPECT_FALSE(isNight()) << "it is awake already";
  mac.number(ChangeKind::capabilities, -1);
  EXPECT_TRUE(isNight());
  endNight();
  EXPECT_FALSE(isNight());
}

TEST_F(GuardedNight, schedulesOneWakeAndLeavesItUntilItHasCome) {
  planNight(40, band);
  ASSERT_EQ(mac.pendingWakes().size(), 1U);
  const double first = mac.pendingWakes().front();
  EXPECT_GT(first, platform::wallNow() + 180);
  watchNight(41, band, true);
  EXPECT_THAT(mac.pendingWakes(), ElementsAre(first));
  mac.pass(first - platform::wallNow() + 1);
  watchNight(60, band, true);
  ASSERT_EQ(mac.pendingWakes().size(), 1U);
  EXPECT_GT(mac.pendingWakes().front(), first);
}

TEST_F(GuardedNight, plansAnewWithoutAnAdapter) {
  planNight(40, band);
  const double first = mac.pendingWakes().front();
  mac.unplug();
  watchNight(40, band, true);
  ASSERT_EQ(mac.pendingWakes().size(), 1U);
  EXPECT_NE(mac.pendingWakes().front(), first);
}

// Each time on another adapter, so that what was gained says nothing of the speed.
TEST_F(GuardedNight, hasTenWakesAtMostAndThenStopsCharging) {
  planNight(20, band);
  int wakes = 0;
  while (!mac.pendingWakes().empty() && wakes < 20) {
    ++wakes;
    mac.pass(mac.pendingWakes().front() - platform::wallNow() + 1);
    mac.plugIn(60 + wakes);
    watchNight(20, band, true);
  }
  EXPECT_EQ(wakes, mostWakes);
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_THAT(newLines(), Contains("charging stopped for the night at 20% (band 75–80%)"));
}

TEST_F(GuardedNight, forgetsWakesAfterTwelveHours) {
  mac.unplug();
  planNight(20, band);
  for (int wakes = 0; wakes < mostBatteryWakes; ++wakes) {
    mac.pass(mac.pendingWakes().front() - platform::wallNow() + 1);
    watchNight(20, band, true);
  }
  ASSERT_THAT(mac.pendingWakes(), IsEmpty());
  mac.pass(11 * 3600);
  planNight(20, band);
  EXPECT_EQ(mac.pendingWakes().size(), 1U) << "the first of them is too long ago to count";
}

TEST_F(GuardedNight, hasFourWakesAtMostOnBattery) {
  mac.unplug();
  planNight(20, band);
  int wakes = 0;
  while (!mac.pendingWakes().empty() && wakes < 20) {
    ++wakes;
    mac.pass(mac.pendingWakes().front() - platform::wallNow());  // it counts from its date on
    watchNight(20, band, true);
  }
  EXPECT_EQ(wakes, mostBatteryWakes);
  EXPECT_EQ(gState, ChargeState::hold);
}

TEST_F(GuardedNight, staysAwakeShortlyBeforeTheLimitAndSleepsAfterIt) {
  watchNight(79, band, true);
  EXPECT_TRUE(staysAwake());
  EXPECT_THAT(mac.pendingWakes(), IsEmpty());
  EXPECT_THAT(newLines(), ElementsAre("staying awake until the charge reaches 80%"));
  watchNight(79, band, true);
  EXPECT_THAT(newLines(), IsEmpty());
  applyState(ChargeState::hold);
  watchNight(80, band, true);
  EXPECT_FALSE(staysAwake());
}

TEST_F(GuardedNight, staysAwakeForFiveMinutesAtMost) {
  watchNight(79, band, true);
  mac.pass(longestStay - 1);
  watchNight(79, band, true);
  EXPECT_TRUE(staysAwake());
  mac.pass(1);
  watchNight(79, band, true);
  EXPECT_FALSE(staysAwake());
  EXPECT_EQ(gState, ChargeState::hold) << "inside the band";
}

TEST_F(GuardedNight, sleepsAgainAlsoWhenNoTickEndsTheStay) {
  watchNight(79, band, true);
  mac.pass(longestStay + 60);
  endOverlongStay();
  EXPECT_TRUE(staysAwake());
  mac.pass(1);
  endOverlongStay();
  EXPECT_FALSE(staysAwake());
}

TEST_F(GuardedNight, stopsChargingInTheBandWhenItMayNotStayAwake) {
  mac.change({.kind = ChangeKind::scheduleStatus, .status = platform::kernelNotPrivileged});
  watchNight(79, band, true);
  EXPECT_FALSE(staysAwake());
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_THAT(newLines(), Contains("charging stopped for the night at 79% (band 75–80%)"));
}

TEST_F(GuardedNight, warnsOnceWhenNoWakeCanBeScheduled) {
  mac.change({.kind = ChangeKind::scheduleStatus, .status = platform::kernelNotPrivileged});
  planNight(40, band);
  watchNight(40, band, true);
  EXPECT_THAT(
      newLines(),
      ElementsAre(
          "⚠️ impossible de programmer un réveil — la limite sera réappliquée au prochain réveil"));
}

TEST_F(GuardedNight, plansAnewAtTheDateOfAWakeThatWasRefused) {
  planNight(40, band);
  const double planned = mac.pendingWakes().front() - platform::wallNow();
  cancelScheduledWake();
  mac.change({.kind = ChangeKind::scheduleStatus, .status = platform::kernelNotPrivileged});
  planNight(40, band);
  mac.change({.kind = ChangeKind::scheduleStatus, .status = platform::kernelSuccess});
  mac.pass(planned - 1);
  watchNight(40, band, true);
  EXPECT_THAT(mac.pendingWakes(), IsEmpty());
  mac.pass(1);
  watchNight(40, band, true);
  EXPECT_EQ(mac.pendingWakes().size(), 1U);
}

TEST_F(GuardedNight, cancelsItsWakeOnceChargingIsStopped) {
  planNight(40, band);
  applyState(ChargeState::hold);
  watchNight(74, band, true);
  EXPECT_EQ(mac.pendingWakes().size(), 1U) << "below the band there may be more to do";
  watchNight(75, band, true);
  EXPECT_THAT(mac.pendingWakes(), IsEmpty());
}

TEST_F(GuardedNight, countsNoGainOfATimeWhenChargingWasStopped) {
  planNight(40, band);
  const double wait = mac.pendingWakes().front() - platform::wallNow();
  applyState(ChargeState::hold);
  watchNight(40, band, true);
  mac.pass(wait + 1);
  applyState(ChargeState::allow);
  watchNight(40, band, true);
  ASSERT_EQ(mac.pendingWakes().size(), 1U);
  EXPECT_NEAR(mac.pendingWakes().front() - platform::wallNow(), wait, 60) << "as if it had just begun";
}

// Something kept the Mac awake, and it used most of what the adapter delivers.
TEST_F(GuardedNight, expectsMoreAsleepThanWasGainedInHoursAwake) {
  planNight(40, band);
  const double wait = mac.pendingWakes().front() - platform::wallNow();
  mac.pass(3 * 3600);
  watchNight(45, band, true);
  ASSERT_EQ(mac.pendingWakes().size(), 1U);
  EXPECT_LT(mac.pendingWakes().front() - platform::wallNow(), wait) << "as fast as the adapter may charge";
}

// A battery with a tenth of its capacity left charges by points a second, and the Mac may not be kept awake
// for it.
TEST_F(GuardedNight, doesNotResumeWhatItWouldStopAtOnce) {
  mac.change({.kind = ChangeKind::scheduleStatus, .status = platform::kernelNotPrivileged});
  watchNight(79, band, true);
  ASSERT_EQ(gState, ChargeState::hold);
  const double healthy = mac.machine().battery.fullMAh;
  mac.store().update().machine().battery.fullMAh = healthy / 10;
  mac.charge(74);
  mac.forgetJournal();
  evaluate();
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_THAT(mac.writes(), Not(Contains(HasSubstr("CH"))));
  mac.store().update().machine().battery.fullMAh = healthy;
  mac.charge(70);
  evaluate();
  EXPECT_EQ(gState, ChargeState::allow);
}

TEST_F(GuardedNight, doesNotResumeWhenTheStayThatThisNeedsIsRefused) {
  applyState(ChargeState::hold);
  mac.store().update().machine().battery.fullMAh /= 4;
  mac.charge(74);
  mac.change({.kind = ChangeKind::scheduleStatus, .status = platform::kernelNotPrivileged});
  mac.forgetJournal();
  evaluate();
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_THAT(mac.writes(), Not(Contains(HasSubstr("CH"))));
  EXPECT_FALSE(staysAwake());
}

TEST_F(GuardedNight, staysAwakeFromTheMomentAtWhichItResumes) {
  applyState(ChargeState::hold);
  mac.store().update().machine().battery.fullMAh /= 4;
  mac.charge(74);
  evaluate();
  EXPECT_EQ(gState, ChargeState::allow);
  EXPECT_TRUE(staysAwake());
}

// The dark wake ends with the stop, so that no tick sees the closed gate.
TEST_F(GuardedNight, countsNoGainOfTheTimeAfterItsOwnStop) {
  planNight(40, band);
  const double wait = mac.pendingWakes().front() - platform::wallNow();
  watchNight(79, band, true);
  mac.pass(longestStay);
  watchNight(79, band, true);
  ASSERT_EQ(gState, ChargeState::hold);
  mac.pass(7200);
  applyState(ChargeState::allow);
  watchNight(40, band, true);
  ASSERT_EQ(mac.pendingWakes().size(), 1U);
  EXPECT_NEAR(mac.pendingWakes().front() - platform::wallNow(), wait, 60) << "as if it had just begun";
}

TEST_F(GuardedNight, doesNothingWhereNothingIsLimited) {
  watchNight(40, band, false);
  EXPECT_THAT(mac.writes(), IsEmpty());
  watchNight(79, band, true);
  watchNight(79, band, false);
  EXPECT_FALSE(staysAwake());
}

TEST_F(GuardedNight, releasesTheMacAtTheFullWake) {
  watchNight(79, band, true);
  endNight();
  EXPECT_FALSE(staysAwake());
}

TEST_F(GuardedNight, keepsChargingStoppedInADarkWakeOnBattery) {
  applyState(ChargeState::hold);
  mac.unplug();
  evaluate();
  EXPECT_EQ(gState, ChargeState::hold);
  endNight();
  mac.number(ChangeKind::capabilities, 15);
  evaluate();
  EXPECT_EQ(gState, ChargeState::allow);
}

TEST_F(GuardedNight, plansAWakeOnlyWhereTheBandIsInForce) {
  for (const char* settings :
       {"{\"enabled\":false}", "{\"topUp\":true}", "{\"limit\":100}", "{\"calibrate\":true}"}) {
    mac.settings(settings);
    evaluate();
    EXPECT_THAT(mac.pendingWakes(), IsEmpty()) << settings;
  }
  mac.settings("{}");
  evaluate();
  EXPECT_EQ(mac.pendingWakes().size(), 1U);
}

TEST_F(GuardedNight, resumesInTheBandOnlyWhereTheBandIsNotInForce) {
  applyState(ChargeState::hold);
  mac.charge(77);
  evaluate();
  EXPECT_EQ(gState, ChargeState::hold);
  mac.settings("{\"enabled\":false}");
  evaluate();
  EXPECT_EQ(gState, ChargeState::allow);
}

TEST_F(GuardedNight, countsNoWakeWhoseDateLiesAheadOfAClockThatWasSetBack) {
  mac.unplug();
  planNight(20, band);
  while (!mac.pendingWakes().empty()) {
    mac.pass(mac.pendingWakes().front() - platform::wallNow());
    watchNight(20, band, true);
  }
  mac.number(ChangeKind::clockStep, -6 * 3600);
  planNight(20, band);
  EXPECT_EQ(mac.pendingWakes().size(), 1U);
}

TEST_F(GuardedNight, countsAWakeThatItDidNotPlanAsOneOnTheAdapter) {
  mac.unplug();
  scheduleWake(3);
  mac.pass(180);
  watchNight(20, band, true);
  int wakes = 0;
  while (!mac.pendingWakes().empty() && wakes < 20) {
    ++wakes;
    mac.pass(mac.pendingWakes().front() - platform::wallNow());
    watchNight(20, band, true);
  }
  EXPECT_EQ(wakes, mostBatteryWakes);
}

TEST_F(GuardedNight, expectsTheFastestChargeOfABatteryThatCannotBeRead) {
  mac.property("AppleSmartBattery", PropertyFault::missing);
  planNight(40, band);
  ASSERT_EQ(mac.pendingWakes().size(), 1U);
  // 37 points at 2.5 a minute, and a tenth sooner.
  EXPECT_NEAR(mac.pendingWakes().front() - platform::wallNow(), 13 * 60, 30);
}

TEST_F(GuardedNight, takesTheCapacityThatMacOSShowsIfTheGaugesOwnIsMissing) {
  planNight(40, band);
  const double wait = mac.pendingWakes().front() - platform::wallNow();
  mac.number(ChangeKind::layout, static_cast<double>(virtual_mac::RegistryLayout::nested));
  planNight(40, band);
  EXPECT_NEAR(mac.pendingWakes().front() - platform::wallNow(), wait, 1);
}

// Awake, it used more than the adapter delivers.
TEST_F(GuardedNight, expectsTheSpeedOfTheSleepAfterALossInTheWake) {
  planNight(60, band);
  const double before = platform::uptime();
  mac.sleep().pass(240).wakeDark(45);
  const double asleep = 240 - (platform::uptime() - before);
  watchNight(62, band, true);
  mac.pass(40);
  watchNight(60, band, true);
  planNight(60, band);
  ASSERT_EQ(mac.pendingWakes().size(), 1U);
  const double speed = expectedSpeed(2, Gain{.points = 2, .minutes = asleep / 60});
  EXPECT_EQ(mac.pendingWakes().front() - platform::wallNow(), 60 * std::floor(minutesBelow(80, 60, speed)));
}

TEST_F(GuardedNight, expectsTheFastestChargeAfterAFullWake) {
  planNight(40, band);
  const double wait = mac.pendingWakes().front() - platform::wallNow();
  mac.sleep().pass(240).wake().pass(30);
  endNight();
  beginNight();
  planNight(40, band);
  ASSERT_EQ(mac.pendingWakes().size(), 1U);
  EXPECT_EQ(mac.pendingWakes().front() - platform::wallNow(), wait);
}

// What little was gained awake says nothing of the speed asleep.
TEST_F(GuardedNight, staysAwakeAlthoughNothingIsGainedThen) {
  watchNight(78, band, true);
  mac.pass(longestStay - 1);
  watchNight(78, band, true);
  EXPECT_TRUE(staysAwake());
}

TEST_F(GuardedNight, neitherStaysAwakeNorCancelsItsWakeWhileTheLimitIsToBeApplied) {
  planNight(40, band);
  watchNight(79, band, true);
  ASSERT_TRUE(staysAwake());
  watchNight(80, band, true);
  EXPECT_FALSE(staysAwake());
  EXPECT_EQ(mac.pendingWakes().size(), 1U) << "charging is not stopped yet";
}

}  // namespace
}  // namespace brisko::night_watch_test
