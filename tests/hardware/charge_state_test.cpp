#include "hardware/charge_state.h"

#include "hardware/charge_gate.h"
#include "state/tick_state.h"
#include "support/on_virtual_mac.h"
#include "support/testing.h"

namespace brisko::charge_state_test {
namespace {

using namespace test;

class Applying : public test::OnVirtualMac {
 protected:
  void SetUp() override { takeGate(); }
};

TEST_F(Applying, reconnectsTheAdapterBeforeItStopsChargingForAHold) {
  applyState(ChargeState::hold);
  EXPECT_THAT(mac.writes(), ElementsAre("CHIE=00", "CHTE=01000000"));
  EXPECT_EQ(gState, ChargeState::hold);
  EXPECT_THAT(newLines(), ElementsAre("→ state: hold"));
}

TEST_F(Applying, stopsChargingBeforeItCutsTheAdapterForADischarge) {
  applyState(ChargeState::discharge);
  EXPECT_THAT(mac.writes(), ElementsAre("CHTE=01000000", "CHIE=08"));
  EXPECT_EQ(gState, ChargeState::discharge);
  EXPECT_THAT(newLines(), ElementsAre("→ state: discharge"));
}

TEST_F(Applying, reconnectsTheAdapterBeforeItAllowsCharging) {
  applyState(ChargeState::discharge);
  mac.forgetJournal();
  static_cast<void>(newLines());
  applyState(ChargeState::allow);
  EXPECT_THAT(mac.writes(), ElementsAre("CHIE=00", "CHTE=00000000"));
  EXPECT_THAT(newLines(), ElementsAre("→ state: allow"));
}

TEST_F(Applying, writesAndLogsNothingForTheStateInForce) {
  applyState(ChargeState::allow);
  EXPECT_THAT(mac.writes(), IsEmpty());
  EXPECT_THAT(newLines(), IsEmpty());
  applyState(ChargeState::hold);
  mac.forgetJournal();
  static_cast<void>(newLines());
  gHoldSince = 5;
  applyState(ChargeState::hold);
  EXPECT_THAT(mac.writes(), IsEmpty());
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_EQ(gHoldSince, 5);
}

TEST_F(Applying, doesNothingWithoutAGate) {
  gGate.reset();
  gCutRewrites = 3;
  applyState(ChargeState::hold);
  EXPECT_EQ(gState, ChargeState::allow);
  EXPECT_EQ(gCutRewrites, 3);
  EXPECT_THAT(mac.writes(), IsEmpty());
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(Applying, continuesWhenAWriteFails) {
  mac.keyOnWrite("CHTE", OnWrite::refuse).keyOnWrite("CHIE", OnWrite::refuse);
  applyState(ChargeState::discharge);
  EXPECT_THAT(mac.writes(), ElementsAre("CHTE=01000000!", "CHIE=08!"));
  EXPECT_EQ(gState, ChargeState::discharge);
  mac.forgetJournal();
  applyState(ChargeState::hold);
  EXPECT_THAT(mac.writes(), ElementsAre("CHIE=00!", "CHTE=01000000!"));
}

TEST_F(Applying, resetsTheVerificationOfTheOldState) {
  gHoldSince = 1;
  gCutSince = 2;
  gCutRewrites = 3;
  gDriftLogged = true;
  applyState(ChargeState::hold);
  EXPECT_FALSE(gHoldSince);
  EXPECT_FALSE(gCutSince);
  EXPECT_EQ(gCutRewrites, 0);
  EXPECT_FALSE(gDriftLogged);
}

class Protecting : public Applying {};

TEST_F(Protecting, isHoldingOrDischargingOnAnAdapter) {
  EXPECT_FALSE(isProtecting());
  gState = ChargeState::hold;
  EXPECT_TRUE(isProtecting());
  gState = ChargeState::discharge;
  EXPECT_TRUE(isProtecting());
}

TEST_F(Protecting, needsAnAdapter) {
  gState = ChargeState::hold;
  gLastPlugged = true;
  mac.keyBytes("AC-W", {0xFF});
  EXPECT_FALSE(isProtecting());
}

TEST_F(Protecting, usesTheLastReadingIfTheAdapterCannotBeRead) {
  gState = ChargeState::hold;
  mac.removeKey("AC-W");
  gLastPlugged = false;
  EXPECT_FALSE(isProtecting());
  gLastPlugged = true;
  EXPECT_TRUE(isProtecting());
  gState = ChargeState::allow;
  EXPECT_FALSE(isProtecting());
}

TEST(StateNames, areTheNamesInLogAndFiles) {
  EXPECT_STREQ(stateName(ChargeState::allow), "allow");
  EXPECT_STREQ(stateName(ChargeState::hold), "hold");
  EXPECT_STREQ(stateName(ChargeState::discharge), "discharge");
}

}  // namespace
}  // namespace brisko::charge_state_test
