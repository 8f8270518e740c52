// The invariants of charge, keys and verdicts: for each rule, what it must accept and what it must reject.

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "base/options.h"
#include "base/process_flags.h"
#include "hardware/charge_gate.h"
#include "hardware/smc.h"
#include "sim/invariants/invariants_fixture.h"
#include "sim/invariants/preconditions.h"
#include "sim/invariants/rule.h"
#include "sim/machine/journal_text.h"
#include "sim/machine/sleep.h"
#include "state/calibration_state.h"
#include "state/led_mode.h"
#include "state/machine_abilities.h"
#include "state/sleep_state.h"
#include "state/tick_state.h"
#include "support/on_virtual_mac.h"
#include "support/testing.h"

namespace brisko::lab::invariants_charge_test {
namespace {

using namespace test;

class Invariants : public InvariantsFixture {
 protected:
  void SetUp() override {
    takeGate();
    gState = ChargeState::allow;
    gLastPlugged = true;
    startRules({addChargeRules, addKeyRules, addVerdictRules});
  }

  // A tick that finds the battery at `pct`, does `action` and ends in `state`.
  void tick(std::int64_t pct, ChargeState state, const TestedAction& action = {}) {
    runTick(action, [&](TickRecord& tick) {
      gState = state;
      tick.complete = complete;
      tick.sample = {.pct = pct, .state = state, .plugged = true, .temp = temp};
    });
  }

  void iteration() { endIteration(); }
  void iteration(std::int64_t pct, ChargeState state, const TestedAction& action = {}) {
    tick(pct, state, action);
    iteration();
  }

  void end(const ProcessEnd& how, const TestedAction& action = {}) {
    endProcess(how, action, {checkChargeAtEnd});
  }

  static TestedAction stops(bool stopped = true) {
    return [stopped] { ASSERT_TRUE(gGate->setCharging(stopped)); };
  }
  static void cuts(bool cut = true) { ASSERT_TRUE(gGate->setAdapterCut(cut)); }
  static void discharges() {
    ASSERT_TRUE(gGate->setCharging(true));
    cuts();
  }

  bool complete = true;
  std::optional<double> temp;
};

// --- 1: the exit gives back

TEST_F(Invariants, requireOpenKeysAndTheSystemsLightAfterAnExit) {
  iteration(80, ChargeState::hold, stops());
  end({.status = 0});
  EXPECT_THAT(found(), ElementsAre(1)) << "the stop";
  end({.status = 0}, stops(false));
  EXPECT_THAT(found(), IsEmpty());
  mac.keyBytes("ACLC", {LED_GREEN});
  end({.status = 0});
  EXPECT_THAT(found(), ElementsAre(1)) << "the light";
  mac.keyBytes("ACLC", {LED_SYSTEM});
  mac.keyBytes("CHIE", {0x08});
  end({.status = 0});
  EXPECT_THAT(found(), ElementsAre(1)) << "the cut";
}

TEST_F(Invariants, exemptRefusedKeysAndProcessesThatWereKilledOrNotYetStarted) {
  end({.status = 1});
  iteration(80, ChargeState::hold, stops());
  end({.signal = 9});
  mac.keyOnWrite("CHTE", OnWrite::refuse);
  end({.status = 0});
  EXPECT_THAT(found(), IsEmpty());
}

// --- 2: the hardware matches the state

TEST_F(Invariants, requireTheHardwareToMatchTheState) {
  iteration(80, ChargeState::hold);
  EXPECT_THAT(found(), ElementsAre(2)) << "open in a hold";
  observation.givenDisturbances.disturbanceCount += 1;
  iteration(80, ChargeState::hold, stops());
  EXPECT_THAT(found(), IsEmpty());
  settings.enabled = false;
  iteration(80, ChargeState::allow);
  EXPECT_THAT(found(), ElementsAre(2)) << "stopped in allow";
}

TEST_F(Invariants, requireALostKeyToBeSetAgainIfTheDaemonChecksIt) {
  iteration(80, ChargeState::hold, stops());
  mac.keyBytes("CHTE", {0, 0, 0, 0});
  mac.keyBytes("CHIE", {0x08});
  observation.givenDisturbances.disturbanceCount += 1;
  iteration(80, ChargeState::hold);
  EXPECT_THAT(found(), ElementsAre(2)) << "the stop alone";
  observation.givenDisturbances.disturbanceCount += 1;
  iteration(80, ChargeState::hold, stops());
  EXPECT_THAT(found(), IsEmpty());
  mac.keyOnWrite("CHTE", OnWrite::ignore).keyBytes("CHTE", {0, 0, 0, 0});
  iteration(80, ChargeState::hold);
  EXPECT_THAT(found(), IsEmpty()) << "it does not obey";
}

// --- 3: no cut while charging is allowed

TEST_F(Invariants, requireChargingStoppedBeforeTheAdapterIsCut) {
  settings.discharge = true;
  iteration(90, ChargeState::discharge, discharges);
  EXPECT_THAT(found(), IsEmpty());
  iteration(80, ChargeState::hold, [] { cuts(false); });
  iteration(90, ChargeState::discharge, [] { cuts(); });
  EXPECT_THAT(found(), IsEmpty()) << "stopped already";

  end({.signal = 9}, [] { stops(false)(); });
  EXPECT_THAT(found(), ElementsAre(3)) << "opened before the adapter came back";
}

TEST_F(Invariants, requireTheRightOrderAtTheExitToo) {
  settings.discharge = true;
  iteration(90, ChargeState::discharge, discharges);
  end({.status = 0}, [] {
    cuts(false);
    stops(false)();
  });
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(Invariants, exemptACutByAnotherProgram) {
  iteration(70, ChargeState::allow);
  mac.keyBytes("CHIE", {0x08});
  observation.givenDisturbances.disturbanceCount += 1;
  iteration(70, ChargeState::allow);
  EXPECT_THAT(found(), IsEmpty());
}

// --- 4: cuts only with a reason

TEST_F(Invariants, requireAReasonForEachCut) {
  const auto cutAt = [this](std::int64_t pct) {
    observation.givenDisturbances.disturbanceCount += 1;  // so that a write is expected
    iteration(pct, ChargeState::discharge, discharges);
    return found();
  };
  EXPECT_THAT(cutAt(90), ElementsAre(4)) << "switched off";
  settings.discharge = true;
  EXPECT_THAT(cutAt(81), IsEmpty());
  EXPECT_THAT(cutAt(80), ElementsAre(4)) << "at the limit";
  gTopUpSince = 1;
  EXPECT_THAT(cutAt(90), ElementsAre(4)) << "Top Up";
  gTopUpSince = 0;
  gDischargeBroken = true;
  EXPECT_THAT(cutAt(90), ElementsAre(4)) << "given up";
  gDischargeBroken = false;
  gThermalPaused = true;
  EXPECT_THAT(cutAt(90), ElementsAre(8, 4)) << "heat";
  gThermalPaused = false;
  complete = false;
  EXPECT_THAT(cutAt(90), ElementsAre(4)) << "a tick that ended early";
  complete = true;
  mac.unplug();
  EXPECT_THAT(cutAt(90), ElementsAre(7, 4)) << "no adapter";
}

TEST_F(Invariants, acceptACalibrationAsAReasonDownToItsTarget) {
  settings.calDrain = 15;
  gCal.phase = CalPhase::drain;
  const auto cutAt = [this](std::int64_t pct) {
    observation.givenDisturbances.disturbanceCount += 1;
    iteration(pct, ChargeState::discharge, discharges);
    return found();
  };
  EXPECT_THAT(cutAt(16), IsEmpty());
  EXPECT_THAT(cutAt(15), ElementsAre(4));
  gCal.phase = CalPhase::restore;
  EXPECT_THAT(cutAt(81), IsEmpty());
  gCal.phase = CalPhase::refill;
  EXPECT_THAT(cutAt(81), ElementsAre(4));
}

TEST_F(Invariants, allowACutOnlyInATick) {
  settings.discharge = true;
  iteration(90, ChargeState::discharge, discharges);
  cuts();
  iteration();
  EXPECT_THAT(found(), ElementsAre(4));
  end({.status = 0}, [] {
    cuts();
    stops(false)();
    cuts(false);
  });
  EXPECT_THAT(found(), ElementsAre(3, 4));
}

TEST_F(Invariants, allowAFailedDischargeRightAfterALostCutWasWrittenBack) {
  settings.discharge = true;
  iteration(90, ChargeState::discharge, discharges);
  iteration(90, ChargeState::hold, [] {
    cuts();
    cuts(false);
    gDischargeBroken = true;
  });
  EXPECT_THAT(found(), IsEmpty());
}

// --- 5 to 8 and 10: the state that a tick ends in

TEST_F(Invariants, forbidADischargeInADarkWakeExceptForACalibration) {
  settings.discharge = true;
  iteration(90, ChargeState::discharge, discharges);
  mac.number(ChangeKind::capabilities, virtual_mac::darkWake);
  iteration(90, ChargeState::discharge);
  EXPECT_THAT(found(), ElementsAre(5));
  mac.number(ChangeKind::capabilities, -1);
  iteration(90, ChargeState::discharge);
  EXPECT_THAT(found(), IsEmpty()) << "nobody can read it";
  mac.number(ChangeKind::capabilities, virtual_mac::darkWake);
  gCal.phase = CalPhase::restore;
  iteration(90, ChargeState::discharge);
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(Invariants, requireAnOpenGateWhenSwitchedOff) {
  settings.enabled = false;
  iteration(90, ChargeState::allow);
  EXPECT_THAT(found(), IsEmpty());
  iteration(90, ChargeState::hold, stops());
  EXPECT_THAT(found(), ElementsAre(6));
  gCal.phase = CalPhase::soak;
  iteration(90, ChargeState::hold);
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(Invariants, requireAnOpenGateOnBattery) {
  mac.unplug();
  iteration(90, ChargeState::hold, stops());
  EXPECT_THAT(found(), ElementsAre(7));
  gThermalPaused = true;
  iteration(90, ChargeState::hold);
  EXPECT_THAT(found(), IsEmpty());
  gThermalPaused = false;
  gCal.phase = CalPhase::drain;
  iteration(16, ChargeState::hold);
  EXPECT_THAT(found(), IsEmpty());
  iteration(15, ChargeState::allow, stops(false));
  EXPECT_THAT(found(), ElementsAre(7)) << "the drain has reached its target";
}

TEST_F(Invariants, useThePowerSourceIfTheControllerReportsNoAdapter) {
  mac.removeKey("AC-W");
  iteration(90, ChargeState::hold, stops());
  EXPECT_THAT(found(), IsEmpty());
  gLastPlugged = false;
  iteration(90, ChargeState::hold);
  EXPECT_THAT(found(), ElementsAre(7));
}

TEST_F(Invariants, requireAHoldForAHotBattery) {
  settings.thermal = true;
  settings.thermalLimit = 40;
  temp = 39.9;
  iteration(50, ChargeState::allow);
  EXPECT_THAT(found(), IsEmpty());
  temp = 40.0;
  iteration(50, ChargeState::allow);
  EXPECT_THAT(found(), ElementsAre(8));
  gLastPlugged = false;
  iteration(50, ChargeState::allow);
  EXPECT_THAT(found(), IsEmpty()) << "on battery";
  gThermalPaused = true;
  iteration(50, ChargeState::allow);
  EXPECT_THAT(found(), ElementsAre(8)) << "still paused";
  settings.enabled = false;
  iteration(50, ChargeState::allow);
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(Invariants, forbidAnOpenGateAtTheLimit) {
  iteration(79, ChargeState::allow);
  EXPECT_THAT(found(), IsEmpty());
  iteration(80, ChargeState::allow);
  EXPECT_THAT(found(), ElementsAre(10));
  mac.number(ChangeKind::powerSourceLag, 5);
  iteration(80, ChargeState::allow);
  EXPECT_THAT(found(), IsEmpty()) << "a late power source";
  mac.number(ChangeKind::powerSourceLag, 0);
  gTopUpSince = 1;
  iteration(80, ChargeState::allow);
  EXPECT_THAT(found(), IsEmpty()) << "Top Up";
}

TEST_F(Invariants, knowTheBand) {
  const auto band = [](std::int64_t limit, std::int64_t hysteresis) {
    return bandAskedFor({.limit = limit, .hysteresis = hysteresis});
  };
  EXPECT_EQ(band(80, 5), (Bounds{80, 75}));
  EXPECT_EQ(band(80, 0), (Bounds{80, 79}));
  EXPECT_EQ(band(10, 5), (Bounds{20, 19}));
  EXPECT_EQ(band(150, 25), (Bounds{100, 80}));
  gCliLower = 90;
  EXPECT_EQ(band(80, 5), (Bounds{80, 79}));
}

// --- 9: the ceiling

TEST_F(Invariants, requireTheChargeToStayBelowTheCeiling) {
  mac.charge(79);
  iteration(79, ChargeState::allow);
  mac.charge(80.9);
  iteration();
  EXPECT_THAT(found(), IsEmpty()) << "what a minute may add";
  mac.charge(81.1);
  iteration();
  EXPECT_THAT(found(), ElementsAre(9));
}

TEST_F(Invariants, exemptAChargeThatTheDaemonCouldNotStop) {
  const auto risesAfter = [this](const TestedAction& action) {
    mac.charge(79);
    iteration(79, ChargeState::allow);
    action();
    mac.charge(90);
    iteration();
    return found();
  };
  EXPECT_THAT(risesAfter([] {}), ElementsAre(9));
  EXPECT_THAT(risesAfter([this] { observation.givenDisturbances.disturbanceCount += 1; }), IsEmpty());
  EXPECT_THAT(risesAfter([this] { observation.givenDisturbances.jumps += 1; }), IsEmpty());
  EXPECT_THAT(risesAfter([] { gSleepPendingSince = 1; }), IsEmpty());
  gSleepPendingSince.reset();
  EXPECT_THAT(risesAfter([this] { mac.unplug().plugIn(); }), ElementsAre(9));
  EXPECT_THAT(risesAfter([this] { mac.unplug(); }), IsEmpty());
  mac.plugIn();
  EXPECT_THAT(risesAfter([this] { mac.sleep().pass(10).wake().pass(5); }), IsEmpty());
  EXPECT_THAT(risesAfter([this] {
                settings.limit = 95;
                iteration(79, ChargeState::allow);
              }),
              IsEmpty());
}

TEST_F(Invariants, exemptAChargeThatWasTooHighFromTheStart) {
  mac.charge(90);
  iteration(90, ChargeState::hold, stops());
  EXPECT_THAT(found(), IsEmpty());
}

// --- 11: hysteresis

TEST_F(Invariants, requireAClosedGateDownToTheLowerEdge) {
  iteration(80, ChargeState::hold, stops());
  iteration(76, ChargeState::allow, stops(false));
  EXPECT_THAT(found(), ElementsAre(11));
  iteration(75, ChargeState::allow);
  iteration(76, ChargeState::allow);
  EXPECT_THAT(found(), IsEmpty()) << "the floor was reached";
}

TEST_F(Invariants, allowAnOpenGateInsideTheBandForNewSettingsAndAfterAGap) {
  iteration(80, ChargeState::hold, stops());
  settings.discharge = true;
  iteration(78, ChargeState::allow, stops(false));
  EXPECT_THAT(found(), IsEmpty());
  iteration(80, ChargeState::hold, stops());
  complete = false;
  iteration(80, ChargeState::hold);
  complete = true;
  iteration(78, ChargeState::allow, stops(false));
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(Invariants, rememberTheLimitFlagOnBattery) {
  iteration(80, ChargeState::hold, stops());
  mac.unplug();
  gLastPlugged = false;
  iteration(78, ChargeState::allow, stops(false));
  EXPECT_THAT(found(), IsEmpty());
  mac.plugIn();
  gLastPlugged = true;
  iteration(77, ChargeState::allow);
  EXPECT_THAT(found(), ElementsAre(11));
}

// --- 12: only own keys

TEST_F(Invariants, forbidWritesToOtherKeys) {
  iteration(80, ChargeState::hold, [] {
    stops()();
    EXPECT_TRUE(writeKey("ACLC", test::Bytes{LED_GREEN}));
  });
  EXPECT_THAT(found(), IsEmpty());
  iteration(80, ChargeState::hold, [] { EXPECT_FALSE(writeKey("CHSC", test::Bytes{0})); });
  EXPECT_THAT(found(), ElementsAre(12));
  end({.status = 0}, [] {
    stops(false)();
    EXPECT_TRUE(writeKey("ACLC", test::Bytes{LED_SYSTEM}));
    EXPECT_FALSE(writeKey("CHSC", test::Bytes{0}));
  });
  EXPECT_THAT(found(), ElementsAre(12));
}

TEST_F(Invariants, allowALeftoverCutToBeUndoneAtTheStart) {
  gGate = ChargeGate{ChargeKeys::macOSLimit, AdapterCutKey::none};
  observation.givenSummary.cutWasLeft = true;
  const auto undo = [] { EXPECT_TRUE(writeKey("CHIE", test::Bytes{0})); };
  undo();
  iteration(80, ChargeState::allow);
  EXPECT_THAT(found(), IsEmpty());
  iteration(80, ChargeState::allow, undo);
  EXPECT_THAT(found(), ElementsAre(12)) << "the first phase is over";
}

TEST_F(Invariants, allowThatOnlyForALeftoverCut) {
  gGate = ChargeGate{ChargeKeys::macOSLimit, AdapterCutKey::none};
  EXPECT_TRUE(writeKey("CHIE", test::Bytes{0}));
  iteration(80, ChargeState::allow);
  EXPECT_THAT(found(), ElementsAre(12));
}

TEST_F(Invariants, allowThatOnlyOnce) {
  gGate.reset();
  observation.givenSummary.cutWasLeft = true;
  for (const char* key : {"CHIE", "ACLC", "CHIE"}) EXPECT_TRUE(writeKey(key, test::Bytes{0}));
  iteration(80, ChargeState::allow);
  EXPECT_THAT(found(), ElementsAre(12));
}

// --- 13: no writes while nothing changes

TEST_F(Invariants, forbidWritesWhileNothingChanges) {
  iteration(80, ChargeState::hold, stops());
  iteration(80, ChargeState::hold);
  EXPECT_THAT(found(), IsEmpty());
  iteration(80, ChargeState::hold, stops());
  EXPECT_THAT(found(), ElementsAre(13));
  observation.givenDisturbances.disturbanceCount += 1;
  iteration(80, ChargeState::hold, stops());
  EXPECT_THAT(found(), IsEmpty()) << "a repair was necessary";
}

TEST_F(Invariants, allowAStateToBeWrittenAgainIfItWasLeftInBetween) {
  iteration(77, ChargeState::allow);
  stops()();
  gState = ChargeState::hold;
  iteration();
  iteration(77, ChargeState::allow, stops(false));
  EXPECT_THAT(found(), IsEmpty()) << "a sleep";
  gDormant = true;
  stops(false)();
  iteration();
  gDormant = false;
  iteration(77, ChargeState::allow);
  EXPECT_THAT(found(), IsEmpty()) << "the app was missing";
}

// --- 22, 23 and 33: log lines

constexpr const char* gaveUp =
    "⚠️ forced discharge has no effect: the adapter cut will not stay written — …";

TEST_F(Invariants, requireFiveAttemptsInOrder) {
  const auto attempts = [this](std::initializer_list<int> numbers) {
    for (const int number : numbers) {
      logs("adapter cut released — writing it back (CHIE, attempt " + std::to_string(number) + ")");
    }
    iteration();
    return found();
  };
  EXPECT_THAT(attempts({1, 2, 3, 4, 5}), IsEmpty());
  EXPECT_THAT(attempts({6}), ElementsAre(22));
  logs("→ state: hold");
  logs("→ state: discharge");
  EXPECT_THAT(attempts({1}), IsEmpty()) << "another discharge";
  EXPECT_THAT(attempts({1}), ElementsAre(22)) << "twice";
  EXPECT_THAT(attempts({3}), ElementsAre(22)) << "one left out";
}

TEST_F(Invariants, forbidAFailedDischargeUntilItIsRearmed) {
  settings.discharge = true;
  iteration(90, ChargeState::discharge, [this] {
    discharges();
    logs("→ state: discharge");
  });
  iteration(90, ChargeState::hold, [this] {
    cuts(false);
    logs(gaveUp);
  });
  EXPECT_THAT(found(), IsEmpty());
  iteration(90, ChargeState::discharge, [] { cuts(); });
  EXPECT_THAT(found(), ElementsAre(22));
  iteration(90, ChargeState::discharge, [this] { logs("forced discharge re-armed (settings changed)"); });
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(Invariants, ignoreLinesFromBeforeAFullDisk) {
  const std::string summary = "cap 80%  batt 80%";
  const std::string verdict = "limit verified: charging really does stop";
  for (const std::string& line : {summary, verdict, std::string("→ state: hold")}) logs(line);
  iteration();
  observation.givenDisturbances.diskIsFull = true;
  iteration();
  observation.givenDisturbances.diskIsFull = false;
  for (const std::string& line : {summary, verdict, std::string("→ state: hold")}) logs(line);
  iteration();
  EXPECT_THAT(found(), IsEmpty());
}

TEST_F(Invariants, requireAlternatingVerdicts) {
  const std::string works = "limit verified: charging really does stop";
  const std::string fails = "⚠️ the limit has no effect: charging continues despite the stop …";
  for (const std::string& line : {works, fails, works}) logs(line);
  iteration();
  EXPECT_THAT(found(), IsEmpty());
  logs(works);
  iteration();
  EXPECT_THAT(found(), ElementsAre(23));
}

TEST_F(Invariants, forbidARepeatedSummaryOrState) {
  logs("brisko-daemon started (event-driven) — config /c. charging via CHTE, LED OK, state=hold");
  logs("cap 80%  batt 80%");
  logs("→ state: hold");
  iteration();
  EXPECT_THAT(found(), ElementsAre(33)) << "the banner's";
  logs("cap 80%  batt 79%");
  logs("cap 80%  batt 80%");
  logs("→ state: allow");
  iteration();
  EXPECT_THAT(found(), IsEmpty());
  logs("cap 80%  batt 80%");
  iteration();
  EXPECT_THAT(found(), ElementsAre(33));
  logs("app gone — charge, adapter and LED handed back to macOS; service dormant (…)");
  logs("→ state: allow");
  iteration();
  EXPECT_THAT(found(), IsEmpty()) << "it was left without a log line";
}

}  // namespace
}  // namespace brisko::lab::invariants_charge_test
