#include "policy/decision.h"

#include "support/testing.h"

namespace brisko::decision_test {
namespace {

constexpr auto allow = ChargeState::allow;
constexpr auto hold = ChargeState::hold;
constexpr auto discharge = ChargeState::discharge;

// A healthy Mac on its adapter, limit 80, band 75 to 80.
DecisionInputs at(std::int64_t pct) {
  DecisionInputs inputs;
  inputs.pct = pct;
  inputs.plugged = true;
  inputs.adapterPresent = true;
  inputs.canDischarge = true;
  return inputs;
}

TEST(Decision, chargesUpToTheTargetAndHoldsThere) {
  EXPECT_EQ(decideState(at(30)), allow);
  EXPECT_EQ(decideState(at(79)), allow);
  EXPECT_EQ(decideState(at(80)), hold);
  EXPECT_EQ(decideState(at(95)), hold);
}

TEST(Decision, holdsInTheBandOnceTheLimitWasReached) {
  const auto reached = [](std::int64_t pct) {
    DecisionInputs inputs = at(pct);
    inputs.atLimit = true;
    return decideState(inputs);
  };
  EXPECT_EQ(reached(79), hold);
  EXPECT_EQ(reached(76), hold);
  EXPECT_EQ(reached(75), allow);
  EXPECT_EQ(reached(74), allow);
}

TEST(Decision, dischargesOnlyAboveTheTarget) {
  DecisionInputs inputs = at(81);
  inputs.dischargeNow = true;
  EXPECT_EQ(decideState(inputs), discharge);
  inputs.pct = 80;
  EXPECT_EQ(decideState(inputs), hold);
  inputs.pct = 81;
  inputs.dischargeNow = false;
  EXPECT_EQ(decideState(inputs), hold);
}

TEST(Decision, letsADrainWaitForAnUnpluggedAdapterWhereNoneIsCut) {
  DecisionInputs inputs = at(90);
  inputs.calDrive = CalDrive{.toFull = false, .target = 15};
  inputs.canDischarge = false;
  EXPECT_EQ(decideState(inputs), allow);
  inputs.drainWaits = true;
  EXPECT_EQ(decideState(inputs), hold);
  inputs.adapterPresent = false;
  EXPECT_EQ(decideState(inputs), allow);
}

TEST(Decision, endsADischargeWithAHold) {
  DecisionInputs inputs = at(81);
  inputs.state = discharge;
  inputs.dischargeNow = true;
  EXPECT_EQ(decideState(inputs), discharge);
  inputs.pct = 80;
  EXPECT_EQ(decideState(inputs), hold);
  // Even far below the band; the next tick allows charging.
  inputs.pct = 15;
  EXPECT_EQ(decideState(inputs), hold);
  inputs.pct = 90;
  inputs.dischargeNow = false;
  EXPECT_EQ(decideState(inputs), hold);
}

TEST(Decision, continuesDischargingWhileTheSystemReportsBattery) {
  DecisionInputs inputs = at(90);
  inputs.state = discharge;
  inputs.dischargeNow = true;
  inputs.plugged = false;
  EXPECT_EQ(decideState(inputs), discharge);
}

TEST(Decision, allowsWithoutAnAdapterWhateverTheState) {
  for (const auto state : {allow, hold, discharge}) {
    DecisionInputs inputs = at(95);
    inputs.state = state;
    inputs.dischargeNow = true;
    inputs.adapterPresent = false;
    EXPECT_EQ(decideState(inputs), allow);
  }
}

TEST(Decision, allowsAboveTheLimitWhileTheSystemStillReportsBattery) {
  DecisionInputs inputs = at(90);
  inputs.plugged = false;
  EXPECT_EQ(decideState(inputs), allow);
  inputs.pct = 77;
  inputs.atLimit = true;
  EXPECT_EQ(decideState(inputs), allow);
}

TEST(Decision, allowsWhenTheLimitIsOff) {
  DecisionInputs inputs = at(95);
  inputs.enabled = false;
  EXPECT_EQ(decideState(inputs), allow);
  // Even for a hot battery: nothing is controlled then.
  inputs.thermalPaused = true;
  EXPECT_EQ(decideState(inputs), allow);
}

TEST(Decision, holdsAHotBattery) {
  DecisionInputs inputs = at(30);
  inputs.thermalPaused = true;
  EXPECT_EQ(decideState(inputs), hold);
  inputs.adapterPresent = false;
  EXPECT_EQ(decideState(inputs), hold);
  inputs.calDrive = CalDrive{true, 100};
  EXPECT_EQ(decideState(inputs), hold);
  inputs.enabled = false;
  EXPECT_EQ(decideState(inputs), hold);
}

TEST(Decision, followsACalibrationThatCharges) {
  DecisionInputs inputs = at(99);
  inputs.calDrive = CalDrive{true, 100};
  EXPECT_EQ(decideState(inputs), allow);
  inputs.enabled = false;
  EXPECT_EQ(decideState(inputs), allow);
}

TEST(Decision, followsACalibrationThatDrains) {
  DecisionInputs inputs = at(16);
  inputs.calDrive = CalDrive{false, 15};
  EXPECT_EQ(decideState(inputs), discharge);
  inputs.pct = 15;
  EXPECT_EQ(decideState(inputs), hold);
  inputs.pct = 14;
  EXPECT_EQ(decideState(inputs), hold);
}

TEST(Decision, allowsChargingInADrainIfTheAdapterCannotBeCut) {
  DecisionInputs inputs = at(50);
  inputs.calDrive = CalDrive{false, 15};
  inputs.adapterPresent = false;
  EXPECT_EQ(decideState(inputs), allow);
  inputs.adapterPresent = true;
  inputs.canDischarge = false;
  EXPECT_EQ(decideState(inputs), allow);
}

TEST(Decision, drainsACalibrationInADarkWakeToo) {
  DecisionInputs inputs = at(50);
  inputs.calDrive = CalDrive{false, 15};
  inputs.dischargeNow = false;
  EXPECT_EQ(decideState(inputs), discharge);
}

TEST(CalibrationDrive, asksForWhatThePhaseNeeds) {
  EXPECT_FALSE(calibrationDrive(CalPhase::idle, 15, 80));
  for (const auto phase : {CalPhase::fill, CalPhase::refill, CalPhase::soak}) {
    EXPECT_TRUE(calibrationDrive(phase, 15, 80)->toFull);
    EXPECT_EQ(calibrationDrive(phase, 15, 80)->target, 100);
  }
  EXPECT_FALSE(calibrationDrive(CalPhase::drain, 15, 80)->toFull);
  EXPECT_EQ(calibrationDrive(CalPhase::drain, 15, 80)->target, 15);
  EXPECT_FALSE(calibrationDrive(CalPhase::restore, 15, 150)->toFull);
  EXPECT_EQ(calibrationDrive(CalPhase::restore, 15, 150)->target, 150);
}

}  // namespace
}  // namespace brisko::decision_test
