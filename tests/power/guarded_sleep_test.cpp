// With the guard "night": what a sleep begins with, how a dark wake is noticed, and what ends the night.

#include <optional>

#include "base/options.h"
#include "base/process_flags.h"
#include "hardware/charge_gate.h"
#include "hardware/charge_state.h"
#include "platform/clock.h"
#include "platform/run_loop.h"
#include "platform/system_power.h"
#include "policy/evaluation.h"
#include "policy/night_watch.h"
#include "power/sleep.h"
#include "state/calibration_state.h"
#include "state/charge_state_record.h"
#include "support/on_virtual_mac.h"
#include "support/testing.h"

namespace brisko::guarded_sleep_test {
namespace {

using namespace test;
using platform::PowerMessage;
using virtual_mac::Nights;

constexpr const char* closedAt77 = "veille à 77% — grille fermée pour la nuit (plage 75–80%)";

// A Mac on its adapter whose nights are quiet, after its first tick.
class GuardedSleep : public OnVirtualMac {
 protected:
  GuardedSleep() {
    takeGate();
    gGuards.night = true;
    mac.number(ChangeKind::nights, static_cast<double>(Nights::quiet));
    mac.settings("{}");
  }
  void at(double percent) {
    mac.charge(percent);
    evaluate();
    static_cast<void>(newLines());
    mac.forgetJournal();
  }
  // As the power service tells a client, and then for some time.
  void sleepFor(double seconds) {
    systemPowerCallback(PowerMessage::systemWillSleep, 1);
    mac.sleep().pass(seconds);
  }
  // Lets the timers run, while the Mac is awake or in a dark wake.
  static void run(double seconds) {
    platform::postMainAfter(seconds, platform::stopMain);
    platform::runMain();
  }
  [[nodiscard]] std::optional<double> minutesToWake() {
    const auto wakes = mac.pendingWakes();
    if (wakes.empty()) return std::nullopt;
    return (wakes.front() - platform::wallNow()) / 60;
  }
};

TEST_F(GuardedSleep, beginsClosedFromTheLowerBoundOn) {
  mac.charge(77);
  prepareForSleep();
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_THAT(newLines(), ElementsAre("→ state: hold", closedAt77));
  EXPECT_EQ(minutesToWake(), std::nullopt);
}

TEST_F(GuardedSleep, beginsWithAWakeBelowTheBand) {
  at(30);
  prepareForSleep();
  EXPECT_EQ(gState, ChargeState::allow);
  EXPECT_GT(minutesToWake().value_or(0), 3);
}

// It may be plugged in asleep.
TEST_F(GuardedSleep, isPlannedWithoutAnAdapterToo) {
  mac.unplug();
  at(30);
  prepareForSleep();
  EXPECT_GT(minutesToWake().value_or(0), 3);
  at(77);
  static_cast<void>(newLines());
  prepareForSleep();
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_THAT(newLines(), Contains(closedAt77));
}

TEST_F(GuardedSleep, isLeftAloneWhereTheLimitIsOverruled) {
  for (const char* settings : {"{\"enabled\":false}", "{\"topUp\":true}"}) {
    mac.settings(settings);
    mac.charge(77).forgetJournal();
    prepareForSleep();
    EXPECT_THAT(mac.writes(), IsEmpty()) << settings;
  }
  mac.settings("{}");
  gCal.phase = CalPhase::soak;
  prepareForSleep();
  EXPECT_THAT(mac.writes(), IsEmpty()) << "calibrating";
  gCal.phase = CalPhase::idle;
  prepareForSleep();
  EXPECT_THAT(mac.writes(), Not(IsEmpty()));
}

TEST_F(GuardedSleep, isNoLongerWatchedAfterAWakeHoweverOftenItWasAnnounced) {
  at(30);
  systemPowerCallback(PowerMessage::systemWillSleep, 1);
  systemPowerCallback(PowerMessage::systemWillSleep, 2);
  systemPowerCallback(PowerMessage::systemHasPoweredOn, 0);
  static_cast<void>(newLines());
  mac.sleep().pass(600);
  mac.charge(60);
  mac.wakeDark(20);
  run(2);
  EXPECT_THAT(newLines(), IsEmpty()) << "a tick would report the charge";
}

TEST_F(GuardedSleep, noticesADarkWakeWithinTwoSeconds) {
  at(30);
  sleepFor(600);
  mac.charge(80);
  mac.wakeDark(20);
  run(2);
  EXPECT_EQ(gState, ChargeState::hold) << "the next heartbeat is not due";
}

TEST_F(GuardedSleep, ticksOnceForADarkWake) {
  at(30);
  sleepFor(600);
  mac.wakeDark(20);
  run(2);
  EXPECT_THAT(newLines(), Contains(HasSubstr("cap 80%")));
  mac.charge(60);
  run(8);
  EXPECT_THAT(newLines(), IsEmpty()) << "a tick would report the charge";
}

TEST_F(GuardedSleep, countsNoGainOfTheTimeAfterItBeganClosed) {
  at(30);
  sleepFor(600);
  const double before = minutesToWake().value_or(0) + 10;
  // A full wake of less than a minute does not end the night, so its plan stays.
  mac.wake().pass(5);
  systemPowerCallback(PowerMessage::systemHasPoweredOn, 0);
  mac.charge(77);
  sleepFor(7200);
  ASSERT_EQ(gState, ChargeState::hold);
  mac.charge(30);
  mac.wakeDark(20);
  run(2);
  ASSERT_EQ(gState, ChargeState::allow) << "below the band on its adapter";
  EXPECT_NEAR(minutesToWake().value_or(0), before, 2) << "as if it had just begun";
}

TEST_F(GuardedSleep, isWatchedFromTheStartOfADaemonInADarkWake) {
  mac.number(ChangeKind::capabilities, 9);
  watchSleepFromStart();
  EXPECT_TRUE(isNight());
}

TEST_F(GuardedSleep, isNoNightForADaemonThatStartsFullyAwake) {
  watchSleepFromStart();
  mac.number(ChangeKind::capabilities, 9);
  EXPECT_FALSE(isNight());
}

TEST_F(GuardedSleep, isNoNightWithoutTheGuard) {
  gGuards.night = false;
  mac.number(ChangeKind::capabilities, 9);
  watchSleepFromStart();
  systemPowerCallback(PowerMessage::systemWillSleep, 1);
  EXPECT_FALSE(isNight());
}

TEST_F(GuardedSleep, isNoNightWhereMacOSHoldsTheLimit) {
  gGate = ChargeGate{ChargeKeys::macOSLimit, AdapterCutKey::none};
  mac.number(ChangeKind::capabilities, 9);
  systemPowerCallback(PowerMessage::systemWillSleep, 1);
  EXPECT_FALSE(isNight());
}

TEST_F(GuardedSleep, isNoNightWithoutAGate) {
  gGate.reset();
  mac.number(ChangeKind::capabilities, 9);
  systemPowerCallback(PowerMessage::systemWillSleep, 1);
  EXPECT_FALSE(isNight());
}

TEST_F(GuardedSleep, endsWithTheFullWake) {
  at(30);
  sleepFor(3600);
  mac.wake().pass(5);
  systemPowerCallback(PowerMessage::systemHasPoweredOn, 0);
  EXPECT_FALSE(isNight());
  EXPECT_EQ(minutesToWake(), std::nullopt);
}

}  // namespace
}  // namespace brisko::guarded_sleep_test
