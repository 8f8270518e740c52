#include "policy/evaluation.h"

#include <csignal>
#include <cstring>

#include "base/options.h"
#include "base/paths.h"
#include "base/process_flags.h"
#include "hardware/charge_gate.h"
#include "platform/clock.h"
#include "records/statistics.h"
#include "state/calibration_state.h"
#include "state/charge_state_record.h"
#include "state/led_mode.h"
#include "state/machine_abilities.h"
#include "state/sleep_state.h"
#include "state/tick_state.h"
#include "support/on_virtual_mac.h"
#include "support/testing.h"

namespace brisko::evaluation_test {
namespace {

using namespace test;

// A healthy Mac on its adapter at 70 %; each test writes its own settings.
class Tick : public test::OnVirtualMac {
 protected:
  void SetUp() override { takeGate(); }

  std::string config() const { return mac.read(defaultConfigPath); }
  std::string summary() { return lastOf(newLines()); }
  static std::string lastOf(const std::vector<std::string>& lines) {
    return lines.empty() ? "" : lines.back();
  }

  void darkWake() { mac.number(ChangeKind::capabilities, 9); }
  void fullWake() { mac.number(ChangeKind::capabilities, 15); }
  void losePowerSources() {
    mac.number(ChangeKind::powerSources, static_cast<double>(PowerSourceFault::noSnapshot));
  }
  void findPowerSources() {
    mac.number(ChangeKind::powerSources, static_cast<double>(PowerSourceFault::none));
  }
  // Puts a calibration at the beginning of this phase.
  static void inPhase(CalPhase phase) { gCal = {.phase = phase, .phaseSince = platform::wallNow()}; }
  // Sets the temperature to exactly this value.
  void reads(float celsius) {
    Bytes bytes(sizeof celsius);
    std::memcpy(bytes.data(), &celsius, sizeof celsius);
    mac.keyBytes("TB0T", bytes);
  }

  // After a change of the charge or the settings: evaluate…() evaluates at once, tick…() a heartbeat later.
  void evaluateAt(double percent) {
    mac.charge(percent);
    evaluate();
  }
  void tickAt(double percent) {
    mac.charge(percent);
    ticks(1);
  }
  void evaluateWith(std::string_view settings) {
    mac.settings(settings);
    evaluate();
  }
  void tickWith(std::string_view settings) {
    mac.settings(settings);
    ticks(1);
  }
};

// --- paused ticks

TEST_F(Tick, doesNothingWhileDormantOrReleased) {
  mac.charge(90);
  gDormant = true;
  evaluate();
  gDormant = false;
  gReleased = true;
  evaluate();
  EXPECT_THAT(mac.writes(), IsEmpty());
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_EQ(gLastPct, 0);
  gReleased = false;
  evaluate();
  EXPECT_EQ(gState, ChargeState::hold);
}

TEST_F(Tick, continuesAfterAPurgeWhereTheDaemonWritesTheKeys) {
  mac.charge(90);
  gPurged = true;
  evaluate();
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_FALSE(mac.exists("/Library/Logs/Brisko/daemon.log"));
}

TEST_F(Tick, stopsAfterAPurgeWhereMacOSHoldsTheLimit) {
  gGate = ChargeGate{ChargeKeys::macOSLimit, AdapterCutKey::none};
  gPurged = true;
  evaluateAt(90);
  EXPECT_EQ(gLastPct, 0);
}

TEST_F(Tick, onlyObservesALockedSystem) {
  mac.charge(90);
  gSystemLocked = true;
  evaluate();
  EXPECT_THAT(mac.writes(), IsEmpty());
}

TEST_F(Tick, observesALockedSystemAlsoWhileASleepIsPending) {
  gSystemLocked = true;
  gSleepPendingSince = platform::wallNow();
  evaluate();
  EXPECT_EQ(gLastPct, 70);
  mac.pass(sleepPendingLimit);
  evaluate();
  EXPECT_TRUE(gSleepPendingSince);
}

TEST_F(Tick, touchesNothingWhileASleepIsPending) {
  mac.charge(90);
  gSleepPendingSince = platform::wallNow();
  mac.pass(10);
  evaluate();
  EXPECT_THAT(mac.writes(), IsEmpty());
  mac.pass(19.5);
  evaluate();
  EXPECT_THAT(mac.writes(), IsEmpty());
  EXPECT_TRUE(gSleepPendingSince);
  mac.pass(0.5);  // after 30 s the sleep is no longer expected
  evaluate();
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_FALSE(gSleepPendingSince);
}

// --- settings

TEST_F(Tick, usesTheCommandLineLimitWithoutAConfiguration) {
  gCliLimit = 60;
  evaluate();
  EXPECT_THAT(summary(), StartsWith("cap 60%  batt 70%"));
  EXPECT_EQ(gState, ChargeState::hold);
}

TEST_F(Tick, usesTheDefaultLimitWithAnEmptyConfiguration) {
  gCliLimit = 60;
  evaluateWith("{}");
  EXPECT_THAT(summary(), StartsWith("cap 80%"));
}

TEST_F(Tick, fallsBackToTheCommandLineForEveryUnreadableConfiguration) {
  gCliLimit = 60;
  for (const char* text : {"", "[]", "80", "{\"limit\":", "{} x", "\"\\xff\""}) {
    tickWith("{\"limit\":90}");
    EXPECT_THAT(summary(), StartsWith("cap 90%")) << text;
    tickWith(text);
    EXPECT_THAT(lastOf(mac.logLines()), StartsWith("cap 60%")) << text;
    static_cast<void>(newLines());
  }
}

TEST_F(Tick, letsTheCommandLineSetTheLowerEdge) {
  gCliLower = 30;
  mac.settings("{\"limit\":80}");
  mac.charge(50);
  gAtLimit = true;
  evaluate();
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_EQ(gFirmwareLower, 30);
}

TEST_F(Tick, takesTheBlinkPeriodFromTheSettings) {
  evaluateWith("{\"blinkSeconds\":3.5}");
  EXPECT_DOUBLE_EQ(gBlinkSeconds, 3.5);
}

TEST_F(Tick, takesTheBlinkPeriodAlsoWithoutAPowerReading) {
  mac.settings("{\"blinkSeconds\":3.5}");
  losePowerSources();
  evaluate();
  EXPECT_DOUBLE_EQ(gBlinkSeconds, 3.5);
}

TEST_F(Tick, resetsTheStatisticsOnceAndClearsTheRequest) {
  mac.settings("{\"resetStats\":true,\"limit\":75}");
  gProtectedSeconds = 500;
  gStatsSince = 1;
  evaluate();
  EXPECT_EQ(gProtectedSeconds, 0);
  EXPECT_EQ(gStatsSince, platform::wallNow());
  EXPECT_THAT(config(), HasSubstr("\"resetStats\":false"));
  EXPECT_THAT(config(), HasSubstr("\"limit\":75"));
  EXPECT_THAT(newLines(), Contains("stats reset"));
  gProtectedSeconds = 7;
  ticks(1);
  EXPECT_EQ(gProtectedSeconds, 7);
}

TEST_F(Tick, resetsTheStatisticsAlsoWithoutAPowerReading) {
  mac.settings("{\"resetStats\":true}");
  losePowerSources();
  evaluate();
  EXPECT_THAT(newLines(), ElementsAre("stats reset"));
  EXPECT_THAT(config(), HasSubstr("\"resetStats\":false"));
}

// --- readings

TEST_F(Tick, endsWithoutAPowerReading) {
  losePowerSources();
  evaluateAt(90);
  EXPECT_THAT(mac.writes(), IsEmpty());
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(Tick, missesAChangeThatCameInATickWithoutAReading) {
  evaluateAt(80);
  mac.charge(77);
  mac.settings("{\"limit\":79}");
  losePowerSources();
  ticks(1);
  findPowerSources();
  ticks(1);
  EXPECT_EQ(gState, ChargeState::hold);  // a tick that saw the change would have allowed
}

TEST_F(Tick, remembersThePowerReading) {
  evaluateAt(64);
  EXPECT_EQ(gLastPct, 64);
  EXPECT_TRUE(gLastPlugged);
  mac.unplug();
  ticks(1);
  EXPECT_FALSE(gLastPlugged);
}

// --- the band

TEST_F(Tick, holdsAboveTheLimitWithAGreenLight) {
  mac.charge(85);
  reads(31.5F);
  evaluate();
  EXPECT_THAT(newLines(),
              ElementsAre("→ state: hold", "cap 80%  batt 85%  31.5°C  ac  state=hold  LED=green"));
}

TEST_F(Tick, allowsBelowTheBandAndBlinks) {
  evaluateAt(30);
  EXPECT_EQ(gState, ChargeState::allow);
  EXPECT_EQ(gMode, LedMode::blink);
}

TEST_F(Tick, keepsHoldingInTheBandDownToTheFloor) {
  evaluateAt(80);
  EXPECT_EQ(gAtLimit, true);
  tickAt(77);
  EXPECT_EQ(gState, ChargeState::hold);
  tickAt(76);
  EXPECT_EQ(gState, ChargeState::hold);
  tickAt(75);
  EXPECT_EQ(gState, ChargeState::allow);
  EXPECT_EQ(gAtLimit, false);
  tickAt(77);
  EXPECT_EQ(gState, ChargeState::allow);  // the limit has not been reached yet
}

TEST_F(Tick, holdsAtFirstIfItIsUnknownWhetherTheLimitWasReached) {
  evaluateAt(77);
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_EQ(gAtLimit, true);
}

TEST_F(Tick, chargesInsideTheBandWhenTheLimitIsKnownNotToHaveBeenReached) {
  gAtLimit = false;
  evaluateAt(77);
  EXPECT_EQ(gState, ChargeState::allow);
}

TEST_F(Tick, chargesToTheLimitAfterAChangeOfASetting) {
  for (const char* change : {"{\"limit\":81}", "{\"limit\":81,\"discharge\":true}"}) {
    tickAt(81);
    tickAt(78);
    ASSERT_EQ(gState, ChargeState::hold) << change;
    tickWith(change);
    EXPECT_EQ(gState, ChargeState::allow) << change;
    EXPECT_EQ(gAtLimit, false);
  }
}

TEST_F(Tick, clearsTheLimitFlagAtOnceWhenDisabled) {
  mac.settings("{\"enabled\":false}");
  evaluateAt(77);
  EXPECT_EQ(gAtLimit, false);
  tickWith("{\"enabled\":true}");
  EXPECT_EQ(gState, ChargeState::allow);
  ticks(1);
  EXPECT_EQ(gState, ChargeState::allow);
}

TEST_F(Tick, allowsWhenTheLimitIsOff) {
  evaluateAt(90);
  tickWith("{\"enabled\":false}");
  EXPECT_EQ(gState, ChargeState::allow);
  EXPECT_THAT(summary(), StartsWith("cap off  batt 90%"));
  EXPECT_EQ(gMode, LedMode::orange);
}

TEST_F(Tick, seesNoChangeOfSettingsWithANegativeLimit) {
  mac.settings("{\"limit\":-5}");
  evaluateAt(20);
  mac.settings("{\"limit\":-5,\"discharge\":true}");
  gAtLimit = true;
  ticks(1);
  EXPECT_EQ(gAtLimit, true);  // a tick that saw a change would have cleared it
}

TEST_F(Tick, publishesTheBandForTheFirmware) {
  evaluateWith("{\"limit\":70,\"hysteresis\":10}");
  EXPECT_EQ(gFirmwareUpper, 70);
  EXPECT_EQ(gFirmwareLower, 60);
}

TEST_F(Tick, allowsOnBattery) {
  evaluateAt(90);
  mac.unplug();
  ticks(1);
  EXPECT_EQ(gState, ChargeState::allow);
  EXPECT_EQ(gMode, LedMode::system);
  EXPECT_THAT(summary(), HasSubstr("  battery  state=allow  LED=system"));
}

TEST_F(Tick, allowsChargingForOneTickWhenTheSystemLagsBehindTheAdapter) {
  mac.settings("{\"discharge\":true}");
  evaluateAt(90);
  ASSERT_EQ(gState, ChargeState::discharge);
  mac.number(ChangeKind::powerSourceLag, 15);
  tickWith("{\"discharge\":false}");
  EXPECT_EQ(gState, ChargeState::hold);
  ticks(1);  // the system still says battery
  EXPECT_EQ(gState, ChargeState::allow);
  ticks(1);
  EXPECT_EQ(gState, ChargeState::hold);
}

TEST_F(Tick, doesNothingToTheHardwareWithoutAGate) {
  gGate.reset();
  gLedSupported = false;  // start-up looks for the light only if there is a gate
  evaluateAt(90);
  EXPECT_THAT(mac.writes(), IsEmpty());
  EXPECT_EQ(gState, ChargeState::allow);
  EXPECT_THAT(newLines(), SizeIs(1));
}

TEST_F(Tick, seesAChangeFromALimitOf0) {
  evaluateWith("{\"limit\":0}");
  gDischargeBroken = true;
  tickWith("{\"limit\":1}");
  EXPECT_FALSE(gDischargeBroken);
}

// --- discharge

TEST_F(Tick, dischargesAboveTheLimitWhenAsked) {
  mac.settings("{\"discharge\":true}");
  evaluateAt(85);
  EXPECT_EQ(gState, ChargeState::discharge);
  EXPECT_THAT(mac.writes(), ElementsAre("CHTE=01000000", "CHIE=08"));
  EXPECT_EQ(gMode, LedMode::blink);
  EXPECT_THAT(summary(), StartsWith("cap 80%+discharge  batt 85%"));
  tickAt(80);
  EXPECT_EQ(gState, ChargeState::hold);
}

TEST_F(Tick, holdsInsteadWhereTheMacCanNotDischarge) {
  dischargeSupported = false;
  mac.settings("{\"discharge\":true}");
  evaluateAt(85);
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_THAT(summary(), StartsWith("cap 80%  batt"));
}

TEST_F(Tick, waitsForTheFullWakeToDischarge) {
  darkWake();
  mac.settings("{\"discharge\":true}");
  evaluateAt(85);
  EXPECT_EQ(gState, ChargeState::hold);
  const std::string line = "réveil de maintenance à 85% — la décharge attend le vrai réveil";
  EXPECT_THAT(newLines(), Contains(line).Times(1));
  ticks(3);
  EXPECT_THAT(newLines(), Not(Contains(line)));  // once for each such period
  fullWake();
  ticks(1);
  EXPECT_EQ(gState, ChargeState::discharge);
  darkWake();
  ticks(1);
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_THAT(newLines(), Contains(line).Times(1));
}

TEST_F(Tick, waitsForTheFullWakeAlsoIfItStartsInADarkWake) {
  darkWake();
  mac.settings("{\"discharge\":true}");
  mac.charge(85);
  reads(31.5F);
  evaluate();
  EXPECT_THAT(newLines(),
              ElementsAre("réveil de maintenance à 85% — la décharge attend le vrai réveil", "→ state: hold",
                          "cap 80%+discharge  batt 85%  31.5°C  ac  state=hold  LED=green"));
  ticks(1);
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(Tick, logsNoDarkWakeWithoutAReasonToDischarge) {
  darkWake();
  evaluateAt(85);
  mac.settings("{\"discharge\":true}");
  tickAt(80);
  EXPECT_THAT(newLines(), Each(Not(HasSubstr("maintenance"))));
}

TEST_F(Tick, countsUnreadableCapabilitiesAsAFullWake) {
  mac.number(ChangeKind::capabilities, -1);
  mac.settings("{\"discharge\":true}");
  evaluateAt(85);
  EXPECT_EQ(gState, ChargeState::discharge);
}

TEST_F(Tick, repeatsTheDarkWakeLineAfterATimeWithoutCapabilities) {
  mac.settings("{\"discharge\":true}");
  mac.charge(85);
  darkWake();
  evaluate();
  mac.number(ChangeKind::capabilities, -1);
  ticks(1);
  static_cast<void>(newLines());
  darkWake();
  ticks(1);
  EXPECT_THAT(newLines(), Contains(HasSubstr("réveil de maintenance à 85%")));
}

TEST_F(Tick, doesNotDischargeAgainOnceItWasFoundNotToWork) {
  gDischargeBroken = true;
  mac.settings("{\"discharge\":true}");
  evaluateAt(85);
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_TRUE(gDischargeBroken);
}

TEST_F(Tick, rearmsTheDischargeWhenASettingChanges) {
  mac.settings("{\"discharge\":true}");
  evaluateAt(85);
  gDischargeBroken = true;
  tickWith("{\"discharge\":true,\"limit\":79}");
  EXPECT_FALSE(gDischargeBroken);
  EXPECT_THAT(newLines(), Contains("forced discharge re-armed (settings changed)"));
}

TEST_F(Tick, rearmsTheDischargeWithEachOfTheThreeSettingsAndWithNoOther) {
  mac.charge(85);
  evaluateWith("{\"discharge\":true}");
  for (const char* change :
       {"{\"discharge\":true,\"limit\":79}", "{\"discharge\":true,\"limit\":79,\"enabled\":false}",
        "{\"discharge\":false,\"limit\":79,\"enabled\":false}"}) {
    gDischargeBroken = true;
    ticks(1);
    EXPECT_TRUE(gDischargeBroken) << "before " << change;
    tickWith(change);
    EXPECT_FALSE(gDischargeBroken) << change;
  }
  gDischargeBroken = true;
  tickWith("{\"discharge\":false,\"limit\":79,\"enabled\":false,\"hysteresis\":7,\"led\":false}");
  EXPECT_TRUE(gDischargeBroken);
}

TEST_F(Tick, namesTheSettingsIfTheyChangeInTheTickThatSeesTheUnplug) {
  evaluateAt(85);
  gDischargeBroken = true;
  mac.settings("{\"limit\":79}");
  mac.unplug();
  ticks(1);
  EXPECT_THAT(newLines(), Contains("forced discharge re-armed (settings changed)"));
}

TEST_F(Tick, rearmsTheDischargeAlsoWithoutAPowerReading) {
  evaluateAt(85);
  losePowerSources();
  static_cast<void>(newLines());
  gDischargeBroken = true;
  tickWith("{\"limit\":79}");
  EXPECT_THAT(newLines(), ElementsAre("forced discharge re-armed (settings changed)"));
  gDischargeBroken = true;
  mac.unplug();
  ticks(1);
  EXPECT_THAT(newLines(), ElementsAre("forced discharge re-armed (adapter unplugged)"));
}

TEST_F(Tick, rearmsTheDischargeWhenTheAdapterIsUnplugged) {
  evaluateAt(85);
  gDischargeBroken = true;
  ticks(1);
  EXPECT_TRUE(gDischargeBroken);
  mac.unplug();
  ticks(1);
  EXPECT_FALSE(gDischargeBroken);
  EXPECT_THAT(newLines(), Contains("forced discharge re-armed (adapter unplugged)"));
}

// --- Top Up

TEST_F(Tick, chargesToFullDuringATopUp) {
  mac.settings("{\"topUp\":true,\"discharge\":true}");
  evaluateAt(85);
  EXPECT_EQ(gState, ChargeState::allow);
  EXPECT_EQ(gTopUpSince, platform::wallNow());
  EXPECT_EQ(gFirmwareUpper, 100);
  EXPECT_EQ(gFirmwareLower, 99);
  EXPECT_THAT(summary(), StartsWith("cap 100%(TopUp)  batt 85%"));
  tickAt(100);
  EXPECT_EQ(gState, ChargeState::hold);
  tickAt(99);
  EXPECT_EQ(gState, ChargeState::allow);
}

TEST_F(Tick, isAtTheLimitOfATopUpOnlyWhenTheBatteryIsFull) {
  mac.settings("{\"topUp\":true}");
  evaluateAt(99);  // its lower edge
  EXPECT_EQ(gAtLimit, false);
  tickAt(100);
  EXPECT_EQ(gAtLimit, true);
  tickAt(99);
  EXPECT_EQ(gAtLimit, false);
}

TEST_F(Tick, usesTheBandAgainInTheTickThatEndsATopUp) {
  mac.settings("{\"topUp\":true,\"topUpHours\":1,\"discharge\":true}");
  evaluateAt(85);
  mac.pass(3601);
  evaluate();
  EXPECT_EQ(gFirmwareUpper, 80);
  EXPECT_EQ(gFirmwareLower, 75);
  EXPECT_EQ(gAtLimit, true);
  EXPECT_EQ(gState, ChargeState::discharge);
  EXPECT_THAT(summary(), StartsWith("cap 80%+discharge  batt"));
}

TEST_F(Tick, endsATopUpWhenTheAdapterIsUnplugged) {
  mac.settings("{\"topUp\":true}");
  evaluateAt(85);
  ticks(500);  // without hours it never expires
  EXPECT_NE(gTopUpSince, 0);
  mac.unplug();
  ticks(1);
  EXPECT_EQ(gTopUpSince, 0);
  EXPECT_THAT(newLines(), Contains("Top Up finished (unplugged)"));
  EXPECT_THAT(config(), HasSubstr("\"topUp\":false"));
}

TEST_F(Tick, dropsATopUpAfterItsHours) {
  evaluateWith("{\"topUp\":true,\"topUpHours\":1}");
  mac.pass(3600);
  evaluate();
  EXPECT_NE(gTopUpSince, 0);  // after exactly an hour it still runs
  mac.pass(1);
  evaluate();
  EXPECT_EQ(gTopUpSince, 0);
  EXPECT_THAT(newLines(), Contains("Top Up dropped after 1h"));
  EXPECT_THAT(config(), HasSubstr("\"topUp\":false"));
}

TEST_F(Tick, reportsExpiredWhenATopUpIsBothExpiredAndUnplugged) {
  evaluateWith("{\"topUp\":true,\"topUpHours\":2}");
  mac.pass(7201);
  mac.unplug();
  evaluate();
  EXPECT_THAT(newLines(), Contains("Top Up dropped after 2h"));
}

TEST_F(Tick, neverDropsATopUpOfEndlessHours) {
  evaluateWith("{\"topUp\":true,\"topUpHours\":9223372036854775807}");
  mac.pass(1e7);
  evaluate();
  EXPECT_NE(gTopUpSince, 0);
}

TEST_F(Tick, endsATopUpRequestedOnBatteryAtOnce) {
  mac.unplug();
  evaluateWith("{\"topUp\":true}");
  EXPECT_EQ(gTopUpSince, 0);
  EXPECT_THAT(newLines(), Contains("Top Up finished (unplugged)").Times(1));
  EXPECT_THAT(config(), HasSubstr("\"topUp\":false"));
}

TEST_F(Tick, forgetsATopUpThatIsNoLongerRequested) {
  gTopUpSince = 5;
  evaluate();
  EXPECT_EQ(gTopUpSince, 0);
}

TEST_F(Tick, writesBackARequestThatTheSameTickHadCleared) {
  mac.unplug();
  evaluateWith("{\"topUp\":true,\"resetStats\":true}");
  // The tick uses the settings that it read at its start, so the second write restores the first request …
  EXPECT_THAT(config(), HasSubstr("\"resetStats\":true"));
  ticks(1);
  // … and the next tick serves it again.
  EXPECT_THAT(newLines(), Contains("stats reset").Times(2));
  EXPECT_THAT(config(), HasSubstr("\"resetStats\":false"));
}

// --- heat

TEST_F(Tick, pausesForHeatAndResumes3DegreesBelow) {
  mac.settings("{\"thermal\":true,\"thermalLimit\":40}");
  reads(39.9F);
  evaluate();
  EXPECT_FALSE(gThermalPaused);
  reads(40.0F);
  ticks(1);
  EXPECT_TRUE(gThermalPaused);
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_THAT(summary(), StartsWith("cap 80%+HOT  batt 70%"));
  reads(37.5F);
  ticks(1);
  EXPECT_TRUE(gThermalPaused);
  reads(37.0F);
  ticks(1);
  EXPECT_TRUE(gThermalPaused);
  reads(36.9F);
  ticks(1);
  EXPECT_FALSE(gThermalPaused);
  EXPECT_EQ(gState, ChargeState::allow);
}

TEST_F(Tick, endsThePauseWithoutAReadingOrAnAdapterOrWhenSwitchedOff) {
  const auto pause = [&] {
    mac.settings("{\"thermal\":true}");
    mac.plugIn();
    reads(45.0F);
    ticks(2);
    ASSERT_TRUE(gThermalPaused);
  };
  pause();
  reads(0.0F);
  ticks(1);
  EXPECT_FALSE(gThermalPaused);
  pause();
  mac.unplug();
  ticks(1);
  EXPECT_FALSE(gThermalPaused);
  pause();
  tickWith("{\"thermal\":false}");
  EXPECT_FALSE(gThermalPaused);
}

TEST_F(Tick, isHotButNotPausedWithTheLimitOff) {
  mac.settings("{\"thermal\":true,\"enabled\":false}");
  reads(45.0F);
  evaluate();
  EXPECT_TRUE(gThermalPaused);
  EXPECT_EQ(gState, ChargeState::allow);
  EXPECT_THAT(summary(), StartsWith("cap off+HOT  batt"));
}

// --- calibration

TEST_F(Tick, followsTheCalibration) {
  mac.settings("{\"calibrate\":true,\"calDrain\":15,\"enabled\":false}");
  mac.charge(90);
  inPhase(CalPhase::drain);
  evaluate();
  EXPECT_EQ(gState, ChargeState::discharge);
  EXPECT_THAT(summary(), StartsWith("cap off  cal=drain→15%  batt 90%"));
  inPhase(CalPhase::refill);
  ticks(1);
  EXPECT_EQ(gState, ChargeState::allow);
  EXPECT_EQ(gMode, LedMode::blink);
  EXPECT_THAT(summary(), StartsWith("cap off  cal=refill→100%  batt"));
  inPhase(CalPhase::restore);
  tickWith("{\"calibrate\":true,\"limit\":10,\"enabled\":false}");
  EXPECT_EQ(gState, ChargeState::discharge);
  EXPECT_THAT(summary(), StartsWith("cap off  cal=restore→10%  batt"));
}

TEST_F(Tick, ignoresTheTopUpDuringACalibration) {
  mac.settings("{\"topUp\":true,\"calibrate\":true}");
  gTopUpSince = 5;
  inPhase(CalPhase::fill);
  evaluate();
  EXPECT_EQ(gTopUpSince, 0);
  EXPECT_THAT(summary(), StartsWith("cap 80%  cal=fill→100%"));
  EXPECT_THAT(config(), HasSubstr("\"topUp\":true"));
}

TEST_F(Tick, abortsOnASoakTimeBeyond64BitsOnlyAfterItActed) {
  mac.charge(90);
  mac.settings("{\"calSoakMinutes\":153722867280912931}");
  EXPECT_EXIT(evaluate(), ::testing::KilledBySignal(SIGABRT), "");
  // The hardware was set by the process that ended.
  EXPECT_EQ(mac.key("CHTE"), (Bytes{1, 0, 0, 0}));
}

// When the status aborts the process, every step before it has been completed.
TEST_F(Tick, verifiesThenSetsTheLightThenLogsTheSummaryThenPublishesTheStatusThenTheSample) {
  evaluateAt(90);
  mac.change({.kind = ChangeKind::keyRelease, .key = virtual_mac::keyCode("ACLC")});
  static_cast<void>(newLines());
  mac.charge(89);
  mac.settings("{\"calSoakMinutes\":153722867280912931}");
  const std::string historyFile = std::string(historyDir) + "/2026-03-01.jsonl";
  const std::string samples = mac.read(historyFile);
  const std::string status = mac.read(statusPath);
  mac.pass(60);
  EXPECT_EXIT(evaluate(), ::testing::KilledBySignal(SIGABRT), "");
  EXPECT_THAT(newLines(),
              ElementsAre("limit verified: charging really does stop",
                          HasSubstr("LED reprise par le système"), StartsWith("cap 80%  batt 89%")));
  EXPECT_EQ(mac.read(statusPath), status);
  EXPECT_EQ(mac.read(historyFile), samples);
}

TEST_F(Tick, acceptsTheLongestSoakTimeThatFits) {
  evaluateWith("{\"calSoakMinutes\":153722867280912930}");
  EXPECT_THAT(newLines(), Not(IsEmpty()));
}

// --- light and summary

TEST_F(Tick, leavesTheLightToTheSystemWhenAsked) {
  mac.settings("{\"led\":false}");
  evaluateAt(90);
  EXPECT_EQ(gMode, LedMode::system);
}

TEST_F(Tick, showsOrangeIfChargingIsAllowedAtTheTarget) {
  mac.settings("{\"enabled\":false}");
  evaluateAt(50);
  EXPECT_EQ(gMode, LedMode::orange);
}

TEST_F(Tick, logsTheSummaryOnlyWhenItChanges) {
  reads(30.0F);
  evaluate();
  EXPECT_THAT(newLines(), SizeIs(1));
  evaluate();
  evaluate();
  EXPECT_THAT(newLines(), IsEmpty());
  reads(30.04F);
  evaluate();
  EXPECT_THAT(newLines(), IsEmpty());
  reads(30.06F);
  evaluate();
  EXPECT_THAT(newLines(), ElementsAre("cap 80%  batt 70%  30.1°C  ac  state=allow  LED=blink"));
}

TEST_F(Tick, showsTheRawTemperatureWithOneDigit) {
  reads(31.25F);
  evaluate();
  EXPECT_THAT(summary(), HasSubstr("  31.2°C  "));
}

TEST_F(Tick, showsAQuestionMarkWithoutATemperature) {
  mac.removeKey("TB0T");
  evaluate();
  EXPECT_THAT(summary(), HasSubstr("  batt 70%  ?  ac  "));
}

TEST_F(Tick, readsTheAdapterAgainWhereverItMatters) {
  // An adapter that the tick has cut still counts as present when the light is chosen later in the same tick.
  mac.settings("{\"discharge\":true}");
  mac.charge(90);
  mac.keepReads();
  evaluate();
  int asked = 0;
  for (const auto& entry : mac.journal()) {
    if (entry.key == virtual_mac::keyCode("AC-W") && entry.command == 5) ++asked;
  }
  // Reads for the decision, the verification of the discharge, the light, the status and the history.
  EXPECT_EQ(asked, 5);
}

// --- the guard against swinging

constexpr const char* noCut = "no forced discharge: this Mac does not show its adapter (no AC-W)";

class GuardedTick : public Tick {
 protected:
  void SetUp() override {
    Tick::SetUp();
    gGuards.swing = true;
    mac.settings("{\"discharge\":true}");
    mac.charge(90);
  }
};

TEST_F(GuardedTick, cutsNoAdapterThatItCouldNotSeeAndReportsItOnce) {
  mac.removeKey("AC-W");
  evaluate();
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_TRUE(gDischargeUnseen);
  EXPECT_THAT(newLines(), Contains(noCut));
  ticks(3);
  EXPECT_THAT(newLines(), Not(Contains(noCut)));
}

TEST_F(GuardedTick, reportsNothingWhereNoDischargeIsWanted) {
  mac.settings("{}");
  mac.removeKey("AC-W");
  evaluate();
  EXPECT_FALSE(gDischargeUnseen);
  EXPECT_THAT(newLines(), Not(Contains(noCut)));
}

TEST_F(GuardedTick, reportsNothingWhereItCutsNoAdapterItself) {
  mac.removeKey("AC-W");
  const std::optional<ChargeGate> own = gGate;
  gGate.reset();
  evaluate();
  EXPECT_FALSE(gDischargeUnseen);
  gGate = ChargeGate{ChargeKeys::macOSLimit, AdapterCutKey::none};
  evaluate();
  EXPECT_FALSE(gDischargeUnseen);
  gGate = own;
  dischargeSupported = false;
  evaluate();
  EXPECT_FALSE(gDischargeUnseen);
  dischargeSupported = true;
  evaluate();
  EXPECT_TRUE(gDischargeUnseen);
}

// macOS discharges without a cut.
TEST_F(GuardedTick, takesAnUnseenAdapterForGoneWhereMacOSDischarges) {
  gGate = ChargeGate{ChargeKeys::macOSLimit, AdapterCutKey::none};
  gState = ChargeState::discharge;
  mac.removeKey("AC-W");
  mac.unplug();
  evaluate();
  EXPECT_FALSE(gLastPlugged);
}

TEST_F(GuardedTick, endsADischargeInAHoldWhenTheAdapterIsNoLongerSeen) {
  evaluate();
  ASSERT_EQ(gState, ChargeState::discharge);
  mac.pass(300);
  evaluate();
  mac.removeKey("AC-W");
  ticks(20);
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_THAT(newLines(), Not(Contains("→ state: allow")));
}

TEST_F(GuardedTick, takesALatePowerSourceForNoUnplugging) {
  mac.number(ChangeKind::powerSourceLag, 110);
  evaluate();
  ASSERT_EQ(gState, ChargeState::discharge);
  mac.pass(300);
  evaluateAt(80);
  ASSERT_EQ(gState, ChargeState::hold);
  ticks(20);
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_THAT(newLines(), Not(Contains("→ state: allow")));
}

TEST_F(GuardedTick, noticesAnUnpluggedAdapterAtOnceWhereItIsSeen) {
  evaluate();
  ASSERT_EQ(gState, ChargeState::discharge);
  mac.pass(5);
  mac.unplug();
  evaluate();
  EXPECT_EQ(gState, ChargeState::allow);
}

TEST_F(GuardedTick, letsACalibrationsDrainWaitForAnUnpluggedAdapter) {
  mac.removeKey("AC-W");
  mac.settings("{\"calibrate\":true}");
  inPhase(CalPhase::drain);
  evaluate();
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_THAT(newLines(), Contains(noCut));
  mac.unplug();
  evaluate();
  EXPECT_EQ(gState, ChargeState::allow);
}

}  // namespace
}  // namespace brisko::evaluation_test
