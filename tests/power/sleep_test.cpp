// The control of the charge in sleep: the plan, the scheduled wake, and the order of the steps.

#include "power/sleep.h"

#include <string>
#include <vector>

#include "base/options.h"
#include "base/process_flags.h"
#include "hardware/charge_gate.h"
#include "hardware/charge_state.h"
#include "hardware/scheduled_wake.h"
#include "platform/clock.h"
#include "policy/evaluation.h"
#include "state/calibration_state.h"
#include "state/charge_state_record.h"
#include "state/sleep_state.h"
#include "state/tick_state.h"
#include "support/on_virtual_mac.h"
#include "support/testing.h"

namespace brisko::sleep_test {
namespace {

using namespace test;
using platform::PowerMessage;

constexpr const char* failedWake =
    "⚠️ impossible de programmer un réveil — la limite sera réappliquée au prochain réveil";

SleepPlan planAt(std::int64_t pct, Bounds band = {80, 75}) { return planSleep({.pct = pct, .band = band}); }

TEST(SleepPlan, carriesOnBelowTheBandAndFreezesFromItsLowerEdgeOn) {
  EXPECT_EQ(planAt(0), SleepPlan::carryOn(80));
  EXPECT_EQ(planAt(60), SleepPlan::carryOn(80));
  EXPECT_EQ(planAt(74), SleepPlan::carryOn(80));
  EXPECT_EQ(planAt(75), SleepPlan::freeze());
  EXPECT_EQ(planAt(77), SleepPlan::freeze());
  EXPECT_EQ(planAt(80), SleepPlan::freeze());
  EXPECT_EQ(planAt(90), SleepPlan::freeze());
  EXPECT_EQ(planAt(100), SleepPlan::freeze());
}

TEST(SleepPlan, goesByTheBandThatItIsGiven) {
  for (std::int64_t pct = 0; pct < 70; ++pct) EXPECT_EQ(planAt(pct, {80, 70}), SleepPlan::carryOn(80)) << pct;
  EXPECT_EQ(planAt(70, {80, 70}), SleepPlan::freeze());
  EXPECT_EQ(planAt(18, {20, 19}), SleepPlan::carryOn(20));
  EXPECT_EQ(planAt(19, {20, 19}), SleepPlan::freeze());
}

TEST(SleepPlan, changesNothingWhereTheLimitDoesNotApply) {
  for (const std::int64_t pct : {60, 77, 90}) {
    const Bounds band{80, 75};
    EXPECT_EQ(planSleep({.pct = pct, .band = band, .adapterPresent = false}), SleepPlan::leaveAlone());
    EXPECT_EQ(planSleep({.pct = pct, .band = band, .enabled = false}), SleepPlan::leaveAlone());
    EXPECT_EQ(planSleep({.pct = pct, .band = band, .topUp = true}), SleepPlan::leaveAlone());
    EXPECT_EQ(planSleep({.pct = pct, .band = band, .calibrating = true}), SleepPlan::leaveAlone());
  }
}

TEST(SleepPlan, equalsAnotherOfTheSameKindAndTarget) {
  EXPECT_NE(SleepPlan::carryOn(80), SleepPlan::carryOn(79));
  EXPECT_NE(SleepPlan::freeze(), SleepPlan::leaveAlone());
  EXPECT_NE(SleepPlan::carryOn(0), SleepPlan::freeze());
}

TEST(MinutesToCharge, followFromCurrentAndCapacity) {
  EXPECT_EQ(minutesToCharge(60, 80, 5000, 2000), 30);
  EXPECT_EQ(minutesToCharge(60, 80, 5000, 20'000), 5);
  EXPECT_EQ(minutesToCharge(60, 80, 5000, 500), 45);
  EXPECT_EQ(minutesToCharge(60, 80, 5000, 80), 20);
}

TEST(MinutesToCharge, areCalculatedInAFixedOrder) {
  // In another order the result is 31.5, which is rounded up.
  EXPECT_EQ(minutesToCharge(65, 80, 4382, 1252), 31);
}

TEST(MinutesToCharge, stayBetween5And45) {
  EXPECT_EQ(minutesToCharge(70, 80, 5000, 6000), 5);
  EXPECT_EQ(minutesToCharge(70, 80, 5000, 5000), 6);
  EXPECT_EQ(minutesToCharge(70, 80, 4400, 600), 44);
  EXPECT_EQ(minutesToCharge(70, 80, 4500, 600), 45);
  EXPECT_EQ(minutesToCharge(70, 80, 4600, 600), 45);
  EXPECT_EQ(minutesToCharge(70, 80, 0, 600), 5);
  EXPECT_EQ(minutesToCharge(70, 80, -5000, 600), 5);
  EXPECT_EQ(minutesToCharge(INT64_MIN, INT64_MAX, INT64_MAX, 101), 45);
}

TEST(MinutesToCharge, roundHalvesUp) {
  // 10 % of 1000 mAh at 480 mA takes 12.5 min.
  EXPECT_EQ(minutesToCharge(70, 80, 1000, 480), 13);
  EXPECT_EQ(minutesToCharge(70, 80, 1000, 481), 12);
}

TEST(MinutesToCharge, areUnknownBelow101MilliamperesAndWithoutAReading) {
  EXPECT_EQ(minutesToCharge(79, 80, 1000, 101), 6);
  EXPECT_EQ(minutesToCharge(79, 80, 1000, 100), 20);
  EXPECT_EQ(minutesToCharge(79, 80, 1000, 0), 20);
  EXPECT_EQ(minutesToCharge(79, 80, 1000, -2000), 20);
  EXPECT_EQ(minutesToCharge(79, 80, 1000, std::nullopt), 20);
  EXPECT_EQ(minutesToCharge(79, 80, std::nullopt, 2000), 20);
}

TEST(MinutesToCharge, areNoneWhenThereIsNothingToCharge) {
  EXPECT_EQ(minutesToCharge(80, 80, 5000, 2000), 0);
  EXPECT_EQ(minutesToCharge(81, 80, std::nullopt, std::nullopt), 0);
}

using MinutesToChargeNow = OnVirtualMac;

void setReadings(test::VirtualMac& mac, std::int64_t designMAh, std::int64_t amperageMA) {
  const auto update = mac.store().update();
  update.machine().battery.designMAh = static_cast<double>(designMAh);
  update.machine().gauge.currentMA = amperageMA;
}

TEST_F(MinutesToChargeNow, areCalculatedFromTheBattery) {
  setReadings(mac, 5000, 2000);
  EXPECT_EQ(minutesToCharge(60, 80), 30);
  setReadings(mac, 5000, 101);
  EXPECT_EQ(minutesToCharge(79, 80), 30);
  setReadings(mac, 5000, 100);
  EXPECT_EQ(minutesToCharge(79, 80), 20);
}

TEST_F(MinutesToChargeNow, ignoreACurrentOf20Amperes) {
  setReadings(mac, 5000, 19'999);
  EXPECT_EQ(minutesToCharge(60, 80), 5);
  setReadings(mac, 5000, 20'000);
  EXPECT_EQ(minutesToCharge(60, 80), 20);
}

TEST_F(MinutesToChargeNow, findTheDesignCapacityInTheNewerLayout) {
  setReadings(mac, 5000, 2000);
  mac.number(ChangeKind::layout, static_cast<double>(virtual_mac::RegistryLayout::nested));
  EXPECT_EQ(minutesToCharge(60, 80), 30);
}

TEST_F(MinutesToChargeNow, areUnknownWithoutOneOfTheReadings) {
  setReadings(mac, 5000, 2000);
  mac.property("Amperage", PropertyFault::missing);
  EXPECT_EQ(minutesToCharge(60, 80), 20);
  EXPECT_EQ(minutesToCharge(80, 80), 0);
  mac.property("Amperage", PropertyFault::none);
  mac.property("DesignCapacity", PropertyFault::missing);
  EXPECT_EQ(minutesToCharge(60, 80), 30) << "it stands in the nested dictionary too";
  mac.property("BatteryData/DesignCapacity", PropertyFault::missing);
  EXPECT_EQ(minutesToCharge(60, 80), 20);
}

TEST(MinutesToChargeWithoutAMac, areUnknown) {
  EXPECT_EQ(minutesToCharge(60, 80), 20);
  EXPECT_EQ(minutesToCharge(80, 80), 0);
}

class ScheduledWake : public OnVirtualMac {};

TEST_F(ScheduledWake, isScheduledAndLogged) {
  const double now = platform::wallNow();
  scheduleWake(25);
  EXPECT_EQ(gScheduledWake, now + 1500);
  EXPECT_THAT(mac.pendingWakes(), ElementsAre(now + 1500));
  const virtual_mac::ScheduledEvent event = mac.machine().sleep.events[0];
  EXPECT_EQ(virtual_mac::textOf(event.identifier), "com.brisko.daemon");
  EXPECT_EQ(virtual_mac::textOf(event.type), "wake");
  EXPECT_THAT(newLines(), ElementsAre("réveil programmé dans 25 min pour reprendre la charge en main"));
}

TEST_F(ScheduledWake, replacesTheOneBefore) {
  scheduleWake(25);
  mac.pass(60);
  scheduleWake(30);
  EXPECT_THAT(mac.pendingWakes(), ElementsAre(platform::wallNow() + 1800));
}

TEST_F(ScheduledWake, isCancelledOnce) {
  scheduleWake(25);
  cancelScheduledWake();
  EXPECT_THAT(mac.pendingWakes(), IsEmpty());
  EXPECT_FALSE(gScheduledWake.has_value());
  mac.forgetJournal();
  cancelScheduledWake();
  EXPECT_THAT(mac.writes(), IsEmpty());
}

TEST_F(ScheduledWake, isForgottenAlsoIfTheSystemDoesNotKnowIt) {
  scheduleWake(5);
  mac.sleep().pass(600);
  cancelScheduledWake();
  EXPECT_FALSE(gScheduledWake.has_value());
}

TEST_F(ScheduledWake, leavesWakesOfOthersAlone) {
  const double date = platform::wallNow() + 1500;
  ASSERT_EQ(platform::schedulePowerEvent(date, "com.example.calendar", "wake"), platform::kernelSuccess);
  scheduleWake(25);
  cancelScheduledWake();
  EXPECT_THAT(mac.pendingWakes(), ElementsAre(date));
}

TEST_F(ScheduledWake, isMissingIfTheSystemRefuses) {
  scheduleWake(25);
  static_cast<void>(newLines());
  mac.change({.kind = ChangeKind::scheduleStatus, .status = platform::kernelNotPrivileged});
  scheduleWake(30);
  EXPECT_FALSE(gScheduledWake.has_value());
  EXPECT_THAT(mac.pendingWakes(), IsEmpty()) << "the old one is removed";
  EXPECT_THAT(newLines(), ElementsAre(failedWake));
}

class SleepEntry : public OnVirtualMac {
 protected:
  SleepEntry() { takeGate(); }
  // A Mac that charges on its adapter, after its first tick.
  void at(double percent) {
    mac.charge(percent);
    evaluate();
    static_cast<void>(newLines());
    mac.forgetJournal();
  }
  [[nodiscard]] static std::string frozenAt(int pct) {
    return "veille à " + std::to_string(pct) + "% — grille fermée pour la nuit (plage 75–80%)";
  }
};

TEST_F(SleepEntry, closesTheGateInsideTheBand) {
  mac.charge(77);
  prepareForSleep();
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_THAT(newLines(), ElementsAre("→ state: hold", frozenAt(77)));
  EXPECT_EQ(mac.writes(), (Writes{"CHIE=00", "CHTE=01000000"}));
  EXPECT_THAT(mac.pendingWakes(), IsEmpty());
}

TEST_F(SleepEntry, logsThatTheGateIsClosedEvenIfItWasBefore) {
  at(80);
  prepareForSleep();
  EXPECT_THAT(newLines(), ElementsAre(frozenAt(80)));
  EXPECT_THAT(mac.writes(), IsEmpty());
}

TEST_F(SleepEntry, endsADischargeAboveTheLimit) {
  mac.settings("{\"discharge\":true}");
  at(90);
  ASSERT_EQ(gState, ChargeState::discharge);
  prepareForSleep();
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_EQ(mac.writes(), (Writes{"CHIE=00", "CHTE=01000000"}));
  EXPECT_THAT(newLines(), ElementsAre("→ state: hold", frozenAt(90)));
}

TEST_F(SleepEntry, neverBeginsADischargeAboveTheLimit) {
  mac.settings("{\"discharge\":true}");
  mac.charge(95);
  prepareForSleep();
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_THAT(mac.writes(), Not(Contains("CHIE=08")));
}

TEST_F(SleepEntry, allowsChargingBelowTheBandAndSchedulesAWake) {
  at(74);
  const double design = mac.machine().battery.designMAh;
  const auto current = static_cast<double>(mac.machine().gauge.currentMA);
  const auto minutes = static_cast<std::int64_t>(0.06 * design / current * 60 + 0.5);
  prepareForSleep();
  EXPECT_EQ(gState, ChargeState::allow);
  EXPECT_THAT(mac.writes(), ElementsAre("wake scheduled"));
  ASSERT_TRUE(gScheduledWake.has_value());
  EXPECT_EQ(*gScheduledWake, platform::wallNow() + static_cast<double>(minutes) * 60);
  EXPECT_GE(minutes, 6);
  EXPECT_THAT(newLines(), ElementsAre("réveil programmé dans " + std::to_string(minutes) +
                                      " min pour reprendre la charge en main"));
}

TEST_F(SleepEntry, closesTheGateExactlyAtTheFloor) {
  mac.charge(75);
  prepareForSleep();
  EXPECT_EQ(gState, ChargeState::hold);
}

TEST_F(SleepEntry, cancelsAnOldWakeBeforeAnythingElse) {
  at(74);
  scheduleWake(45);
  mac.charge(77);
  mac.forgetJournal();
  prepareForSleep();
  EXPECT_EQ(mac.writes(), (Writes{"wake cancelled", "CHIE=00", "CHTE=01000000"}));
  EXPECT_THAT(mac.pendingWakes(), IsEmpty());
}

TEST_F(SleepEntry, cancelsTheOldWakeAndStopsWithoutAReading) {
  at(74);
  scheduleWake(45);
  static_cast<void>(newLines());
  mac.forgetJournal();
  mac.number(ChangeKind::powerSources, static_cast<double>(PowerSourceFault::noSnapshot));
  prepareForSleep();
  EXPECT_THAT(mac.writes(), ElementsAre("wake cancelled"));
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(SleepEntry, readsTheConfigurationAgain) {
  mac.settings("{\"limit\":80}");
  at(70);
  mac.settings("{\"limit\":60,\"hysteresis\":10}");
  prepareForSleep();
  EXPECT_THAT(newLines(),
              ElementsAre("→ state: hold", "veille à 70% — grille fermée pour la nuit (plage 50–60%)"));
}

TEST_F(SleepEntry, changesNothingWhenSwitchedOffOrInATopUpOrUnplugged) {
  for (const char* settings : {"{\"enabled\":false}", "{\"topUp\":true}"}) {
    mac.settings(settings);
    mac.charge(77);
    prepareForSleep();
    EXPECT_THAT(mac.writes(), IsEmpty()) << settings;
  }
  mac.settings("{}");
  mac.unplug();
  prepareForSleep();
  EXPECT_THAT(mac.writes(), IsEmpty());
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(SleepEntry, leavesACalibrationAlone) {
  for (const CalPhase phase :
       {CalPhase::fill, CalPhase::drain, CalPhase::refill, CalPhase::soak, CalPhase::restore}) {
    gCal.phase = phase;
    mac.charge(77);
    prepareForSleep();
    EXPECT_THAT(mac.writes(), IsEmpty()) << phaseName(phase);
  }
}

TEST_F(SleepEntry, usesTheCommandLineWithoutAConfiguration) {
  gCliLimit = 60;
  mac.charge(57);
  prepareForSleep();
  EXPECT_THAT(newLines(),
              ElementsAre("→ state: hold", "veille à 57% — grille fermée pour la nuit (plage 55–60%)"));
}

TEST_F(SleepEntry, readsOnlyTheAdapterWithAnUnreadableConfiguration) {
  mac.settings("{\"enabled\":false,\"topUp\":true,\"hysteresis\":20,");
  mac.charge(77);
  prepareForSleep();
  EXPECT_THAT(newLines(), ElementsAre("→ state: hold", frozenAt(77)));
  mac.unplug();
  prepareForSleep();
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(SleepEntry, usesTheDefaultLimitWithAnEmptyConfiguration) {
  gCliLimit = 60;
  mac.settings("{}");
  mac.charge(77);
  prepareForSleep();
  EXPECT_THAT(newLines(), ElementsAre("→ state: hold", frozenAt(77)));
}

TEST_F(SleepEntry, usesTheLowerBoundOfTheCommandLine) {
  gCliLower = 40;
  mac.charge(41);
  prepareForSleep();
  EXPECT_THAT(newLines(),
              ElementsAre("→ state: hold", "veille à 41% — grille fermée pour la nuit (plage 40–80%)"));
}

class SleepEntryWithBand : public OnVirtualMac {
 protected:
  SleepEntryWithBand() : OnVirtualMac({.gate = virtual_mac::GateKind::firmwareBand}) { takeGate(); }
};

TEST_F(SleepEntryWithBand, armsTheBandOfTheLastTick) {
  gFirmwareUpper = 66;
  gFirmwareLower = 61;
  mac.charge(77);
  prepareForSleep();
  EXPECT_EQ(mac.writes(), (Writes{"CHIE=00", "bfF0=00", "bfD0=42000000", "bfE0=3d000000", "bfF0=02"}));
  EXPECT_THAT(newLines(), Contains("veille à 77% — grille fermée pour la nuit (plage 75–80%)"));
}

TEST_F(SleepEntry, usesTheLastTickIfTheAdapterCannotBeRead) {
  mac.removeKey("AC-W").charge(77);
  gLastPlugged = false;
  prepareForSleep();
  EXPECT_THAT(mac.writes(), IsEmpty());
  gLastPlugged = true;
  mac.unplug();
  prepareForSleep();
  EXPECT_EQ(mac.writes(), (Writes{"CHIE=00", "CHTE=01000000"}));
}

class NothingToPlan : public SleepEntry {
 protected:
  // Inside the band and below it: no write, no line, and a scheduled wake stays unchanged.
  void expectNothingDone() {
    scheduleWake(45);
    const auto wakes = mac.pendingWakes();
    static_cast<void>(newLines());
    for (const double percent : {77.0, 60.0}) {
      mac.charge(percent);
      mac.forgetJournal();
      prepareForSleep();
      EXPECT_THAT(mac.writes(), IsEmpty()) << percent;
      EXPECT_THAT(newLines(), IsEmpty()) << percent;
      EXPECT_EQ(mac.pendingWakes(), wakes) << percent;
      EXPECT_EQ(gState, ChargeState::allow);
    }
  }
};

TEST_F(NothingToPlan, whileDormant) {
  gDormant = true;
  expectNothingDone();
}

TEST_F(NothingToPlan, withoutAGate) {
  gGate.reset();
  expectNothingDone();
}

TEST_F(NothingToPlan, whereMacOSKeepsItsOwnLimit) {
  gGate = ChargeGate{ChargeKeys::macOSLimit, AdapterCutKey::none};
  expectNothingDone();
}

class Announcement : public SleepEntry {
 protected:
  Announcement() { gRootPort = platform::registerSystemPower(systemPowerCallback).rootPort; }
  // Announces the sleep as the machine does, and hands the message over as the run loop would.
  void announce(ChangeKind kind = ChangeKind::closeLid) {
    mac.change({.kind = kind});
    hand(kind == ChangeKind::closeLid ? PowerMessage::systemWillSleep : PowerMessage::canSystemSleep);
  }
  void hand(PowerMessage message) {
    systemPowerCallback(message, static_cast<std::intptr_t>(mac.machine().sleep.noticesSent));
  }
};

TEST_F(Announcement, isAllowedAtOnceIfItOnlyAsks) {
  at(77);
  gState = ChargeState::allow;
  announce(ChangeKind::idleSleep);
  EXPECT_THAT(mac.writes(), ElementsAre("allowed CanSystemSleep"));
  EXPECT_FALSE(gSleepPendingSince.has_value());
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(Announcement, isAnsweredOnceThePlanIsCarriedOut) {
  mac.charge(77);
  mac.forgetJournal();
  announce();
  EXPECT_EQ(mac.writes(), (Writes{"CHIE=00", "CHTE=01000000", "allowed WillSleep"}));
}

TEST_F(Announcement, isAnsweredOnceTheWakeIsScheduled) {
  at(70);
  announce();
  EXPECT_EQ(mac.writes(), (Writes{"wake scheduled", "allowed WillSleep"}));
}

TEST_F(Announcement, isAnsweredAlsoWhenTheWakeCannotBeScheduled) {
  at(70);
  mac.change({.kind = ChangeKind::scheduleStatus, .status = platform::kernelNotPrivileged});
  announce();
  EXPECT_EQ(mac.writes(), (Writes{"wake scheduled!", "allowed WillSleep"}));
  EXPECT_THAT(newLines(), ElementsAre(failedWake));
  EXPECT_EQ(gState, ChargeState::allow);
}

TEST_F(Announcement, isAnsweredAlsoWhereThereIsNothingToPlan) {
  mac.charge(77);
  gDormant = true;
  announce();
  EXPECT_THAT(mac.writes(), ElementsAre("allowed WillSleep"));
  EXPECT_TRUE(gSleepPendingSince.has_value());
}

TEST_F(Announcement, isAnsweredAlsoWithoutAGateAndWithMacOSsOwnLimit) {
  mac.charge(77);
  gGate.reset();
  announce();
  EXPECT_THAT(mac.writes(), ElementsAre("allowed WillSleep"));
  mac.pass(10).wake().pass(10);
  mac.forgetJournal();
  gGate = ChargeGate{ChargeKeys::macOSLimit, AdapterCutKey::none};
  announce();
  EXPECT_THAT(mac.writes(), ElementsAre("allowed WillSleep"));
}

TEST_F(Announcement, pausesTheTicksAndResetsTheTimeOfTheCut) {
  gCutSince = 1.0;
  mac.charge(70);
  announce();
  EXPECT_EQ(gSleepPendingSince, platform::wallNow());
  EXPECT_FALSE(gCutSince.has_value());
}

TEST_F(Announcement, pausesTheTicksFor30Seconds) {
  at(70);
  announce();
  mac.number(ChangeKind::sleepRefused, static_cast<double>(virtual_mac::SleepRefusal::inDarkness)).charge(80);
  mac.pass(29.9);
  evaluate();
  EXPECT_EQ(gState, ChargeState::allow);
  mac.pass(0.1);
  evaluate();
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_FALSE(gSleepPendingSince.has_value());
}

TEST_F(Announcement, ofTheFullWakeCancelsTheScheduledWakeAndThenTicks) {
  at(70);
  announce();
  mac.pass(100).charge(80).wake().pass(2);
  gCutSince = 1.0;
  mac.forgetJournal();
  hand(PowerMessage::systemHasPoweredOn);
  const Writes writes = mac.writes();
  ASSERT_GE(writes.size(), 3U);
  EXPECT_EQ(Writes(writes.begin(), writes.begin() + 3),
            (Writes{"wake cancelled", "CHIE=00", "CHTE=01000000"}));
  EXPECT_FALSE(gScheduledWake.has_value());
  EXPECT_FALSE(gSleepPendingSince.has_value());
  EXPECT_FALSE(gCutSince.has_value());
  EXPECT_THAT(mac.pendingWakes(), IsEmpty());
}

TEST_F(Announcement, ofTheFullWakeGivesADischargeAnotherMinuteAfterALateSleep) {
  mac.settings(R"({"discharge":true})");
  mac.charge(90);
  mac.number(ChangeKind::sleepRefused, static_cast<double>(virtual_mac::SleepRefusal::cancelled));
  announce();
  mac.pass(sleepPendingLimit);
  evaluate();  // the sleep is no longer waited for
  ASSERT_EQ(gState, ChargeState::discharge);
  ASSERT_TRUE(gCutSince.has_value());
  mac.pass(60);
  mac.store().update().machine().gauge.currentMA = 0;
  hand(PowerMessage::systemHasPoweredOn);
  EXPECT_EQ(gCutSince, platform::wallNow()) << "counted from this pass on";
  EXPECT_EQ(gState, ChargeState::discharge);
}

TEST_F(Announcement, ofTheFullWakeTicksAtOnceAlsoWithin30Seconds) {
  at(77);
  announce();
  mac.charge(70);
  mac.pass(29).wake();
  hand(PowerMessage::systemHasPoweredOn);
  EXPECT_EQ(gLastPct, 70);
  EXPECT_EQ(gState, ChargeState::allow);
}

TEST_F(Announcement, ofAnotherTypeIsIgnored) {
  at(77);
  gCutSince = 1.0;
  for (const std::uint32_t type : {0xE0000290U, 0xE0000320U, 0xE0000340U, 0U})
    systemPowerCallback(static_cast<PowerMessage>(type), 1);
  EXPECT_THAT(mac.writes(), IsEmpty());
  EXPECT_FALSE(gSleepPendingSince.has_value());
  EXPECT_TRUE(gCutSince.has_value());
}

TEST_F(Announcement, keepsTheCutOfACalibration) {
  gCal.phase = CalPhase::drain;
  mac.charge(60);
  applyState(ChargeState::discharge);
  mac.forgetJournal();
  announce();
  EXPECT_THAT(mac.writes(), ElementsAre("allowed WillSleep"));
  EXPECT_EQ(gState, ChargeState::discharge);
}

TEST_F(Announcement, leavesAtMostOneWakeOverManyNights) {
  for (int night = 0; night < 20; ++night) {
    mac.charge(50 + night);
    announce();
    EXPECT_LE(mac.pendingWakes().size(), 1U) << night;
    mac.pass(night % 3 == 0 ? 10'000 : 100).wake().pass(2);
    if (night % 4 != 0) hand(PowerMessage::systemHasPoweredOn);
    EXPECT_LE(mac.pendingWakes().size(), 1U) << night;
  }
}

}  // namespace
}  // namespace brisko::sleep_test
