#include "policy/verification.h"

#include "hardware/charge_gate.h"
#include "hardware/charge_state.h"
#include "platform/clock.h"
#include "policy/evaluation.h"
#include "state/calibration_state.h"
#include "state/led_mode.h"
#include "state/machine_abilities.h"
#include "state/tick_state.h"
#include "support/on_virtual_mac.h"
#include "support/testing.h"

namespace brisko::verification_test {
namespace {

using namespace test;

// The lines with characters beyond ASCII, byte by byte.
#define WARNING "\xE2\x9A\xA0\xEF\xB8\x8F"
#define EM_DASH "\xE2\x80\x94"
#define EN_DASH "\xE2\x80\x93"
constexpr const char* verified = "limit verified: charging really does stop";
constexpr const char* cutWillNotStay =
    WARNING " forced discharge has no effect: the adapter cut will not stay written " EM_DASH
            " holding the charge instead";

std::string notRunningDown(int amperageMA) {
  return WARNING " forced discharge has no effect: the battery is not running down (" +
         std::to_string(amperageMA) + " mA) " EM_DASH " holding the charge instead";
}
std::string noEffect(const std::string& keys) {
  return WARNING " the limit has no effect: charging continues despite the stop we asked for (" + keys + ")";
}
const std::string broken = noEffect("CHTE");
std::string foundOpen(const std::string& family) {
  return "gate found open during a hold " EM_DASH " closing it again (" + family + ")";
}
std::string cutReleased(const std::string& key, int attempt) {
  return "adapter cut released " EM_DASH " writing it back (" + key + ", attempt " + std::to_string(attempt) +
         ")";
}

MachineOptions with(GateKind gate, CutKind cut) { return {.gate = gate, .cut = cut}; }

// A healthy Mac at 70 % whose state each test applies.
class Verification : public test::OnVirtualMac {
 protected:
  explicit Verification(const MachineOptions& options = with(GateKind::chte, CutKind::chie))
      : OnVirtualMac(options) {}
  void SetUp() override { takeGate(); }

  // Applies the state and forgets its writes and log lines.
  void begin(ChargeState state) {
    applyState(state);
    forget();
  }
  // … and lets the verification see it for the first time.
  void beginHold() {
    begin(ChargeState::hold);
    verifyGate(true);
  }
  void beginDischarge() {
    begin(ChargeState::discharge);
    verifyDischarge(true);
  }
  void beginAndReassert(ChargeState state) {
    begin(state);
    reassertState();
  }
  void forget() {
    mac.forgetJournal();
    static_cast<void>(newLines());
  }

  // The current that the gauge shows until its next publication.
  void gaugeReads(std::int64_t amperageMA) { mac.store().update().machine().gauge.currentMA = amperageMA; }
  void unreadableCurrent() {
    mac.property("Amperage", PropertyFault::missing);
    mac.removeKey("CHSC");
  }
  void systemTakes(std::string_view key) {
    mac.change({.kind = ChangeKind::keyRelease, .key = virtual_mac::keyCode(key)});
  }

  // Verifies a hold with this current after so many more seconds.
  void lookAtHold(double seconds, std::int64_t amperageMA) {
    mac.pass(seconds);
    gaugeReads(amperageMA);
    verifyGate(true);
  }
  void expectNoEffectOf(const std::string& keys) {
    gState = ChargeState::hold;
    verifyGate(true);
    lookAtHold(120, 2000);
    EXPECT_THAT(newLines(), ElementsAre(noEffect(keys)));
  }
  void lookAtDischarge(double seconds, std::int64_t amperageMA, bool fullyAwake = true) {
    mac.pass(seconds);
    gaugeReads(amperageMA);
    verifyDischarge(fullyAwake);
  }
};

class PairVerification : public Verification {
 protected:
  PairVerification() : Verification(with(GateKind::ch0b0c, CutKind::ch0i)) {}
};
class BandVerification : public Verification {
 protected:
  BandVerification() : Verification(with(GateKind::firmwareBand, CutKind::ch0j)) {}
};

// --- whether a hold stops the charging

TEST_F(Verification, confirmsAHoldAfter15Seconds) {
  beginHold();
  lookAtHold(10, 0);
  lookAtHold(4.75, 0);
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_FALSE(gGateVerified.has_value());
  lookAtHold(0.25, 0);
  EXPECT_THAT(newLines(), ElementsAre(verified));
  EXPECT_EQ(gGateVerified, true);
  for (int pass = 0; pass < 50; ++pass) lookAtHold(12, 0);
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_THAT(mac.writes(), IsEmpty());
}

TEST_F(Verification, reportsAnIneffectiveHoldAfter120Seconds) {
  beginHold();
  lookAtHold(15, 2000);
  lookAtHold(104.75, 2000);
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_FALSE(gGateVerified.has_value());
  lookAtHold(0.25, 2000);
  EXPECT_THAT(newLines(), ElementsAre(broken));
  EXPECT_EQ(gGateVerified, false);
  for (int pass = 0; pass < 50; ++pass) lookAtHold(12, 2000);
  EXPECT_THAT(newLines(), IsEmpty());
  // The hold stays in force.
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_THAT(mac.writes(), IsEmpty());
}

TEST_F(Verification, namesThePairThatHasNoEffect) {
  gGate = ChargeGate{ChargeKeys::ch0b0c, AdapterCutKey::none};
  expectNoEffectOf("CH0B+CH0C");
}

TEST_F(Verification, namesTheBandThatHasNoEffect) {
  gGate = ChargeGate{ChargeKeys::firmwareBand, AdapterCutKey::none};
  expectNoEffectOf("bfD0/bfE0/bfF0");
}

TEST_F(Verification, showsAQuestionMarkForTheKeysWithoutAGate) {
  gGate.reset();
  expectNoEffectOf("?");
}

TEST_F(Verification, ignoresATrickle) {
  beginHold();
  lookAtHold(15, 100);
  EXPECT_EQ(gGateVerified, true);
  lookAtHold(105, 101);
  EXPECT_EQ(gGateVerified, false);
}

TEST_F(Verification, logsEachVerdictWhenItChanges) {
  beginHold();
  lookAtHold(120, 2000);
  lookAtHold(12, 0);
  lookAtHold(12, 2000);
  lookAtHold(12, 0);
  EXPECT_THAT(newLines(), ElementsAre(broken, verified, broken, verified));
}

TEST_F(Verification, keepsItsVerdictFromHoldToHold) {
  beginHold();
  lookAtHold(15, 0);
  EXPECT_THAT(newLines(), ElementsAre(verified));
  begin(ChargeState::allow);
  verifyGate(true);
  beginHold();
  lookAtHold(60, 0);
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_EQ(gGateVerified, true);
}

TEST_F(Verification, timesAHoldFromTheFirstTickThatSeesIt) {
  begin(ChargeState::hold);
  mac.pass(500);
  verifyGate(true);
  EXPECT_EQ(gHoldSince, platform::wallNow());
  lookAtHold(14.75, 0);
  EXPECT_FALSE(gGateVerified.has_value());
}

TEST_F(Verification, timesAHoldAgainAfterAnUnplug) {
  beginHold();
  lookAtHold(119, 2000);
  verifyGate(false);
  EXPECT_FALSE(gHoldSince.has_value());
  lookAtHold(1, 2000);
  lookAtHold(119.75, 2000);
  EXPECT_THAT(newLines(), IsEmpty());
  lookAtHold(0.25, 2000);
  EXPECT_THAT(newLines(), ElementsAre(broken));
}

TEST_F(Verification, forgetsAHoldInAnyOtherState) {
  for (const auto state : {ChargeState::allow, ChargeState::discharge}) {
    beginHold();
    ASSERT_TRUE(gHoldSince.has_value());
    gState = state;
    verifyGate(true);
    EXPECT_FALSE(gHoldSince.has_value());
  }
}

TEST_F(Verification, waitsForAReadingOfTheCurrent) {
  beginHold();
  unreadableCurrent();
  lookAtHold(600, 2000);
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_FALSE(gGateVerified.has_value());
  EXPECT_TRUE(gHoldSince.has_value());
  mac.property("Amperage", PropertyFault::none);
  lookAtHold(1, 2000);
  EXPECT_THAT(newLines(), ElementsAre(broken));
}

TEST_F(Verification, timesAHoldByTheWallClock) {
  beginHold();
  mac.number(ChangeKind::clockStep, -1000);
  lookAtHold(1014.75, 0);
  EXPECT_FALSE(gGateVerified.has_value());
  lookAtHold(0.25, 0);
  EXPECT_EQ(gGateVerified, true);
  begin(ChargeState::allow);
  beginHold();
  mac.number(ChangeKind::clockStep, 120);
  lookAtHold(0, 2000);
  EXPECT_EQ(gGateVerified, false);
}

// --- drift

TEST_F(Verification, doesNothingWithoutAGate) {
  gGate.reset();
  mac.keepReads();
  for (const auto state : {ChargeState::allow, ChargeState::hold, ChargeState::discharge}) {
    gState = state;
    reassertState();
  }
  EXPECT_THAT(mac.writes(), IsEmpty());
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_EQ(gCutRewrites, 0);
}

TEST_F(Verification, leavesTheKeysAloneWhileChargingIsAllowed) {
  mac.keyBytes("CHTE", {1, 0, 0, 0});
  mac.keyBytes("CHIE", {8});
  mac.keepReads();
  reassertState();
  EXPECT_THAT(mac.writes(), IsEmpty());
}

TEST_F(Verification, leavesAHoldThatStandsUnchanged) {
  beginAndReassert(ChargeState::hold);
  EXPECT_THAT(mac.writes(), IsEmpty());
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(Verification, closesAGateThatOpenedAndLogsItOnceInEachHold) {
  for (int hold = 0; hold < 2; ++hold) {
    begin(ChargeState::hold);
    for (int pass = 0; pass < 3; ++pass) {
      systemTakes("CHTE");
      reassertState();
    }
    EXPECT_THAT(mac.writes(), ElementsAre("CHTE=01000000", "CHTE=01000000", "CHTE=01000000"));
    EXPECT_THAT(newLines(), ElementsAre(foundOpen("CHTE")));
    begin(ChargeState::allow);
  }
}

TEST_F(Verification, logsNothingAboutASecondLossEvenAfterTheGateWasFoundClosed) {
  begin(ChargeState::hold);
  systemTakes("CHTE");
  reassertState();
  reassertState();
  static_cast<void>(newLines());
  systemTakes("CHTE");
  reassertState();
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_THAT(mac.writes(), ElementsAre("CHTE=01000000", "CHTE=01000000"));
}

TEST_F(Verification, logsThatTheGateOfAHoldFoundAtTheStartIsOpen) {
  gState = ChargeState::hold;
  reassertState();
  EXPECT_THAT(mac.writes(), ElementsAre("CHTE=01000000"));
  EXPECT_THAT(newLines(), ElementsAre(foundOpen("CHTE")));
}

TEST_F(PairVerification, closesBothKeysWhenOneOpened) {
  for (const char* key : {"CH0B", "CH0C"}) {
    begin(ChargeState::hold);
    systemTakes(key);
    reassertState();
    EXPECT_THAT(mac.writes(), ElementsAre("CH0B=02", "CH0C=02")) << key;
    EXPECT_THAT(newLines(), ElementsAre(foundOpen("CH0B+CH0C"))) << key;
    begin(ChargeState::allow);
  }
}

TEST_F(Verification, closesChargingSilentlyDuringADischarge) {
  begin(ChargeState::discharge);
  for (int pass = 0; pass < 10; ++pass) {
    systemTakes("CHTE");
    reassertState();
  }
  EXPECT_THAT(mac.writes(), Each("CHTE=01000000"));
  EXPECT_EQ(mac.writes().size(), 10U);
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_EQ(gState, ChargeState::discharge);
}

TEST_F(Verification, leavesADischargeThatStandsUnchanged) {
  beginAndReassert(ChargeState::discharge);
  EXPECT_THAT(mac.writes(), IsEmpty());
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_EQ(gCutRewrites, 0);
}

// --- the cut

TEST_F(Verification, writesTheCutBackFiveTimesAndGivesUpAtTheSixthLoss) {
  begin(ChargeState::discharge);
  for (int loss = 1; loss <= 5; ++loss) {
    systemTakes("CHIE");
    reassertState();
    EXPECT_THAT(newLines(), ElementsAre(cutReleased("CHIE", loss)));
    EXPECT_THAT(mac.writes(), ElementsAre("CHIE=08"));
    EXPECT_EQ(gCutRewrites, loss);
    mac.forgetJournal();
    reassertState();  // the cut is still set: nothing to do, and the count stays
    EXPECT_THAT(mac.writes(), IsEmpty());
  }
  EXPECT_FALSE(gDischargeBroken);
  systemTakes("CHIE");
  reassertState();
  EXPECT_THAT(newLines(), ElementsAre(cutWillNotStay, "→ state: hold"));
  EXPECT_THAT(mac.writes(), ElementsAre("CHIE=00", "CHTE=01000000"));
  EXPECT_TRUE(gDischargeBroken);
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_EQ(gCutRewrites, 0);
}

TEST_F(Verification, allowsSixLossesAlsoForADischargeFoundAtTheStart) {
  gState = ChargeState::discharge;
  for (int attempt = 1; attempt <= 5; ++attempt) {
    reassertState();
    EXPECT_THAT(newLines(), ElementsAre(cutReleased("CHIE", attempt)));
    systemTakes("CHIE");
  }
  reassertState();
  EXPECT_THAT(newLines(), Contains(cutWillNotStay));
  EXPECT_EQ(gState, ChargeState::hold);
}

TEST_F(Verification, closesChargingBeforeItRenewsTheCut) {
  begin(ChargeState::discharge);
  systemTakes("CHTE");
  systemTakes("CHIE");
  reassertState();
  EXPECT_THAT(mac.writes(), ElementsAre("CHTE=01000000", "CHIE=08"));
}

TEST_F(PairVerification, namesTheKeyThatCuts) {
  begin(ChargeState::discharge);
  systemTakes("CH0I");
  reassertState();
  EXPECT_THAT(newLines(), ElementsAre(cutReleased("CH0I", 1)));
  EXPECT_THAT(mac.writes(), ElementsAre("CH0I=01"));
}

TEST_F(BandVerification, namesTheKeyThatCuts) {
  begin(ChargeState::discharge);
  systemTakes("CH0J");
  reassertState();
  EXPECT_THAT(newLines(), ElementsAre(cutReleased("CH0J", 1)));
  EXPECT_THAT(mac.writes(), ElementsAre("CH0J=01"));
}

TEST_F(Verification, showsAQuestionMarkForAMissingCutKey) {
  gGate->cut = AdapterCutKey::none;
  beginAndReassert(ChargeState::discharge);
  EXPECT_THAT(newLines(), ElementsAre(cutReleased("?", 1)));
  EXPECT_THAT(mac.writes(), IsEmpty());
}

// --- whether a discharge runs the battery down

TEST_F(Verification, evaluatesADischarge60SecondsAfterItsFirstTick) {
  begin(ChargeState::discharge);
  mac.pass(300);
  verifyDischarge(true);
  EXPECT_EQ(gCutSince, platform::wallNow());
  lookAtDischarge(59.75, 0);
  EXPECT_EQ(gState, ChargeState::discharge);
  lookAtDischarge(0.25, 0);
  EXPECT_EQ(gState, ChargeState::hold);
}

TEST_F(Verification, continuesWithADischargeOf100MAAndMore) {
  beginDischarge();
  for (const int amperageMA : {-150, -100, -19999}) lookAtDischarge(60, amperageMA);
  EXPECT_EQ(gState, ChargeState::discharge);
  EXPECT_FALSE(gDischargeBroken);
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_THAT(mac.writes(), IsEmpty());
}

TEST_F(Verification, givesUpADischargeBelow100MA) {
  for (const int amperageMA : {-99, -80, -50, 0, 200}) {
    SCOPED_TRACE(amperageMA);
    begin(ChargeState::discharge);
    gDischargeBroken = false;
    verifyDischarge(true);
    lookAtDischarge(60, amperageMA);
    EXPECT_THAT(newLines(), ElementsAre(notRunningDown(amperageMA), "→ state: hold"));
    EXPECT_THAT(mac.writes(), ElementsAre("CHIE=00", "CHTE=01000000"));
    EXPECT_TRUE(gDischargeBroken);
    EXPECT_EQ(gState, ChargeState::hold);
  }
}

TEST_F(Verification, evaluatesEveryTickAfterTheFirstEvaluation) {
  beginDischarge();
  lookAtDischarge(60, -150);
  lookAtDischarge(12, -150);
  lookAtDischarge(12, -99);
  EXPECT_THAT(newLines(), ElementsAre(notRunningDown(-99), "→ state: hold"));
}

TEST_F(Verification, waitsForAReadingOfTheDischarge) {
  beginDischarge();
  mac.property("Amperage", PropertyFault::missing);
  lookAtDischarge(600, 0);
  EXPECT_EQ(gState, ChargeState::discharge);
  EXPECT_TRUE(gCutSince.has_value());
  mac.property("Amperage", PropertyFault::none);
  lookAtDischarge(1, 25'000);  // garbage
  EXPECT_EQ(gState, ChargeState::discharge);
  lookAtDischarge(1, 0);
  EXPECT_EQ(gState, ChargeState::hold);
}

TEST_F(Verification, timesADischargeAgainAfterAMaintenanceWake) {
  beginDischarge();
  lookAtDischarge(59, 0);
  lookAtDischarge(1, 0, false);
  EXPECT_FALSE(gCutSince.has_value());
  lookAtDischarge(600, 0, false);
  lookAtDischarge(1, 0);
  lookAtDischarge(59.75, 0);
  EXPECT_EQ(gState, ChargeState::discharge);
  lookAtDischarge(0.25, 0);
  EXPECT_EQ(gState, ChargeState::hold);
}

TEST_F(Verification, timesADischargeAgainAfterAnUnplug) {
  beginDischarge();
  mac.unplug();
  lookAtDischarge(60, 0);
  EXPECT_FALSE(gCutSince.has_value());
  EXPECT_EQ(gState, ChargeState::discharge);
  mac.plugIn();
  lookAtDischarge(1, 0);
  lookAtDischarge(59.75, 0);
  EXPECT_EQ(gState, ChargeState::discharge);
  lookAtDischarge(0.25, 0);
  EXPECT_EQ(gState, ChargeState::hold);
}

TEST_F(Verification, usesTheLastReadingIfTheAdapterCannotBeRead) {
  begin(ChargeState::discharge);
  mac.removeKey("AC-W");
  gLastPlugged = false;  // while the adapter is cut, none is reported
  verifyDischarge(true);
  EXPECT_FALSE(gCutSince.has_value());
  gLastPlugged = true;
  verifyDischarge(true);
  EXPECT_TRUE(gCutSince.has_value());
}

TEST_F(Verification, forgetsTheCutInAnyOtherState) {
  for (const auto state : {ChargeState::allow, ChargeState::hold}) {
    beginDischarge();
    ASSERT_TRUE(gCutSince.has_value());
    gState = state;
    verifyDischarge(true);
    EXPECT_FALSE(gCutSince.has_value());
  }
}

TEST_F(Verification, evaluatesADischargeByTheWallClock) {
  beginDischarge();
  mac.number(ChangeKind::clockStep, -500);
  lookAtDischarge(559.75, 0);
  EXPECT_EQ(gState, ChargeState::discharge);
  lookAtDischarge(0.25, 0);
  EXPECT_EQ(gState, ChargeState::hold);
  beginDischarge();
  mac.number(ChangeKind::clockStep, 60);
  lookAtDischarge(0, 0);
  EXPECT_EQ(gState, ChargeState::hold);
}

// --- the firmware's band

TEST_F(BandVerification, armsTheBandOnceMoreInTheFirstTickOfAHold) {
  gFirmwareUpper = 80;
  gFirmwareLower = 75;
  applyState(ChargeState::hold);
  reassertState();
  EXPECT_THAT(mac.writes(), ElementsAre("CH0J=00", "bfF0=00", "bfD0=50000000", "bfE0=4b000000", "bfF0=02",
                                        "bfF0=00", "bfD0=50000000", "bfE0=4b000000", "bfF0=02"));
  EXPECT_THAT(newLines(), ElementsAre("→ state: hold"));
  mac.forgetJournal();
  reassertState();
  EXPECT_THAT(mac.writes(), IsEmpty());
}

TEST_F(BandVerification, armsABandThatWasFoundAtTheStartOnce) {
  gState = ChargeState::hold;
  reassertState();
  EXPECT_THAT(mac.writes(), ElementsAre("bfF0=00", "bfD0=50000000", "bfE0=4b000000", "bfF0=02"));
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(BandVerification, rewritesABandFoundOffSilently) {
  beginAndReassert(ChargeState::hold);
  for (int loss = 0; loss < 3; ++loss) {
    mac.forgetJournal();
    systemTakes("bfF0");
    reassertState();
    EXPECT_THAT(mac.writes(), ElementsAre("bfF0=00", "bfD0=50000000", "bfE0=4b000000", "bfF0=02"));
  }
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_FALSE(gDriftLogged);
}

TEST_F(BandVerification, reportsWhenTheBandChangesDuringAHold) {
  beginAndReassert(ChargeState::hold);
  forget();
  gFirmwareLower = 70;
  reassertState();
  EXPECT_THAT(newLines(), ElementsAre("firmware band re-armed at 70" EN_DASH "80%"));
  EXPECT_THAT(mac.writes(), ElementsAre("bfF0=00", "bfD0=50000000", "bfE0=46000000", "bfF0=02"));
  gFirmwareUpper = 75;
  reassertState();
  EXPECT_THAT(newLines(), ElementsAre("firmware band re-armed at 70" EN_DASH "75%"));
  mac.forgetJournal();
  reassertState();
  EXPECT_THAT(mac.writes(), IsEmpty());
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(BandVerification, reportsThatTheBandChangedAlsoWhereItStands) {
  beginAndReassert(ChargeState::hold);
  gFirmwareUpper = 90;
  gFirmwareLower = 85;
  systemTakes("bfF0");
  reassertState();
  EXPECT_THAT(newLines(), ElementsAre("firmware band re-armed at 85" EN_DASH "90%"));
}

TEST_F(BandVerification, forgetsTheBandWhileChargingIsAllowed) {
  beginAndReassert(ChargeState::hold);
  beginAndReassert(ChargeState::allow);
  EXPECT_THAT(mac.writes(), IsEmpty());
  gFirmwareLower = 70;
  beginAndReassert(ChargeState::hold);
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_THAT(mac.writes(), ElementsAre("bfF0=00", "bfD0=50000000", "bfE0=46000000", "bfF0=02"));
}

TEST_F(BandVerification, remembersTheBandThroughADischarge) {
  beginAndReassert(ChargeState::hold);
  beginAndReassert(ChargeState::discharge);
  beginAndReassert(ChargeState::hold);
  EXPECT_THAT(mac.writes(), IsEmpty());
  begin(ChargeState::discharge);
  gFirmwareLower = 70;
  beginAndReassert(ChargeState::hold);
  EXPECT_THAT(newLines(), ElementsAre("firmware band re-armed at 70" EN_DASH "80%"));
}

TEST_F(BandVerification, armsABandThatWasLostDuringADischargeSilently) {
  begin(ChargeState::discharge);
  systemTakes("bfF0");
  reassertState();
  EXPECT_THAT(mac.writes(), ElementsAre("bfF0=00", "bfD0=50000000", "bfE0=4b000000", "bfF0=02"));
  EXPECT_THAT(newLines(), IsEmpty());
}

// --- in the tick

class VerifyingTick : public Verification {};

TEST_F(VerifyingTick, decidesThenVerifiesThenSetsTheLight) {
  mac.keyOnWrite("CHTE", OnWrite::ignore);
  mac.charge(85);
  evaluate();
  EXPECT_THAT(mac.writes(), ElementsAre("CHIE=00", "CHTE=01000000",  // the decision
                                        "CHTE=01000000",             // the verification
                                        "ACLC=03"));                 // the light
  const auto lines = newLines();
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0], "→ state: hold");
  EXPECT_EQ(lines[1], foundOpen("CHTE"));
  EXPECT_THAT(lines[2], HasSubstr("state=hold  LED=green"));
}

TEST_F(VerifyingTick, checksTheKeysBeforeTheCurrent) {
  mac.settings("{\"discharge\":true}");
  mac.charge(85);
  evaluate();
  mac.forgetJournal();
  mac.keepReads();
  ticks(1);
  std::string order;
  for (const auto& entry : mac.journal()) {
    if (entry.command != 5) continue;
    if (entry.key == virtual_mac::keyCode("CHTE")) order += "stop ";
    if (entry.key == virtual_mac::keyCode("CHIE")) order += "cut ";
    if (entry.key == virtual_mac::keyCode("AC-W")) order += "adapter ";
  }
  // Reads of the adapter for the decision, the discharge, the light, the status and the history.
  EXPECT_EQ(order, "adapter stop cut adapter adapter adapter adapter ");
}

TEST_F(VerifyingTick, correctsDriftBeforeItEvaluates) {
  mac.keyOnWrite("CHTE", OnWrite::storeWithoutEffect);
  mac.charge(85);
  evaluate();
  ticks(9);
  forget();
  systemTakes("CHTE");
  ticks(1);  // 120 s
  const auto lines = newLines();
  ASSERT_GE(lines.size(), 2U);
  EXPECT_EQ(lines[0], foundOpen("CHTE"));
  EXPECT_EQ(lines[1], broken);
}

TEST_F(VerifyingTick, doesNotEvaluateTheDrainOfACalibrationInAMaintenanceWake) {
  mac.settings("{\"calibrate\":true,\"calDrain\":15}");
  gCal = {.phase = CalPhase::drain, .phaseSince = platform::wallNow()};
  mac.charge(90);
  mac.keyOnWrite("CHIE", OnWrite::storeWithoutEffect);
  mac.number(ChangeKind::capabilities, 9);
  evaluate();
  ticks(20);
  EXPECT_EQ(gState, ChargeState::discharge);
  EXPECT_FALSE(gCutSince.has_value());
  mac.number(ChangeKind::capabilities, 15);
  ticks(5);
  EXPECT_FALSE(gDischargeBroken);
  ticks(1);  // 60 s of full wake
  EXPECT_TRUE(gDischargeBroken);
  EXPECT_EQ(gState, ChargeState::hold);
}

TEST_F(VerifyingTick, neverVerifiesWhereMacOSHoldsTheCharge) {
  gGate = ChargeGate{ChargeKeys::macOSLimit, AdapterCutKey::none};
  gState = ChargeState::hold;
  mac.charge(85);
  evaluate();
  EXPECT_FALSE(gHoldSince.has_value());
  gCutSince = 5;
  ticks(1);
  EXPECT_EQ(gCutSince, 5);
  EXPECT_THAT(mac.writes(), ElementsAre("limit set 85", "ACLC=04"));  // the light is still set
}

TEST_F(VerifyingTick, holdsAfterTheCutWasLostInSixTicks) {
  mac.settings("{\"discharge\":true}");
  mac.charge(90);
  mac.change({.kind = ChangeKind::keyReleaseAfter, .key = virtual_mac::keyCode("CHIE"), .number = 0});
  evaluate();
  ticks(4);
  EXPECT_EQ(gState, ChargeState::discharge);
  const auto lines = newLines();
  for (int attempt = 1; attempt <= 5; ++attempt) {
    EXPECT_THAT(lines, Contains(cutReleased("CHIE", attempt)).Times(1));
  }
  ticks(1);
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_EQ(gMode, LedMode::green);
  EXPECT_THAT(newLines(), Contains(cutWillNotStay));
  ticks(10);
  EXPECT_EQ(gState, ChargeState::hold);
}

TEST_F(VerifyingTick, timesADischargeAgainAfterADarkWakeAndAnUnplug) {
  mac.settings("{\"discharge\":true}");
  mac.charge(90);
  evaluate();
  EXPECT_TRUE(gCutSince.has_value());
  mac.number(ChangeKind::capabilities, 9);
  ticks(1);
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_FALSE(gCutSince.has_value());
  mac.number(ChangeKind::capabilities, 15);
  ticks(1);
  EXPECT_EQ(gState, ChargeState::discharge);
  EXPECT_EQ(gCutSince, platform::wallNow());
  mac.unplug();
  ticks(1);
  EXPECT_EQ(gState, ChargeState::allow);
  EXPECT_FALSE(gCutSince.has_value());
}

TEST_F(VerifyingTick, logsTheHoldThatReplacesAFailedDischarge) {
  mac.settings("{\"discharge\":true}");
  mac.charge(90);
  mac.keyOnWrite("CHIE", OnWrite::storeWithoutEffect);
  evaluate();
  ticks(5);  // 60 s
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_TRUE(gDischargeBroken);
  EXPECT_EQ(mac.writes().back(), "ACLC=03");
  EXPECT_THAT(newLines(), Contains(notRunningDown(0)));
  // The tick that sees a changed setting re-arms it.
  mac.settings("{\"discharge\":true,\"limit\":79}");
  ticks(2);
  EXPECT_THAT(newLines(), Contains("forced discharge re-armed (settings changed)"));
  EXPECT_EQ(gState, ChargeState::discharge);
}

TEST_F(VerifyingTick, doesNotReportAnOrdinaryDischargeAsFailed) {
  mac.settings("{\"discharge\":true}");
  mac.charge(90);
  evaluate();
  ticks(50);
  EXPECT_EQ(gState, ChargeState::discharge);
  EXPECT_THAT(newLines(), Each(Not(HasSubstr("no effect"))));
}

}  // namespace
}  // namespace brisko::verification_test
