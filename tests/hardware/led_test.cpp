#include "hardware/led.h"

#include "hardware/charge_gate.h"
#include "platform/run_loop.h"
#include "sim/seam/simulated/driver.h"
#include "state/machine_abilities.h"
#include "support/on_virtual_mac.h"
#include "support/testing.h"

namespace brisko::led_test {
namespace {

using namespace test;

TEST(LightMode, isLeftToTheSystemIfSwitchedOffOrWithoutAnAdapter) {
  for (const auto state : {ChargeState::allow, ChargeState::hold, ChargeState::discharge}) {
    EXPECT_EQ(ledMode(state, {.wanted = false, .adapterPresent = true}), LedMode::system);
    EXPECT_EQ(ledMode(state, {.wanted = true, .adapterPresent = false}), LedMode::system);
  }
}

TEST(LightMode, isGreenWhileHeldAndBlinksWhileDischarging) {
  EXPECT_EQ(ledMode(ChargeState::hold, {.adapterPresent = true, .pct = 80, .shownTarget = 80}),
            LedMode::green);
  EXPECT_EQ(ledMode(ChargeState::discharge, {.adapterPresent = true, .pct = 90, .shownTarget = 80}),
            LedMode::blink);
}

TEST(LightMode, blinksOnTheWayToTheTargetAndIsOrangeThere) {
  EXPECT_EQ(ledMode(ChargeState::allow, {.adapterPresent = true, .pct = 79, .shownTarget = 80}),
            LedMode::blink);
  EXPECT_EQ(ledMode(ChargeState::allow, {.adapterPresent = true, .pct = 80, .shownTarget = 80}),
            LedMode::orange);
}

TEST(LightMode, isOrangeWhenNothingIsControlled) {
  EXPECT_EQ(ledMode(ChargeState::allow,
                    {.adapterPresent = true, .controlling = false, .pct = 30, .shownTarget = 80}),
            LedMode::orange);
}

TEST(LightMode, hasNamesForTheSummary) {
  EXPECT_STREQ(ledModeName(LedMode::system), "system");
  EXPECT_STREQ(ledModeName(LedMode::green), "green");
  EXPECT_STREQ(ledModeName(LedMode::orange), "orange");
  EXPECT_STREQ(ledModeName(LedMode::blink), "blink");
}

TEST(LightValues, areTheValuesOfTheKey) {
  EXPECT_EQ(LED_SYSTEM, 0);
  EXPECT_EQ(LED_OFF, 1);
  EXPECT_EQ(LED_GREEN, 3);
  EXPECT_EQ(LED_ORANGE, 4);
}

// --- writing

// The log lines for the values 3 and 4, byte by byte.
constexpr const char* greenTakenBack =
    "\xE2\x9A\xA0\xEF\xB8\x8F LED reprise par le syst\xC3\xA8me \xE2\x80\x94 Brisko la remet \xC3\xA0 3";
constexpr const char* orangeTakenBack =
    "\xE2\x9A\xA0\xEF\xB8\x8F LED reprise par le syst\xC3\xA8me \xE2\x80\x94 Brisko la remet \xC3\xA0 4";

class Light : public test::OnVirtualMac {
 protected:
  void SetUp() override {
    takeGate();
    begin_ = mac.machine().now;
  }

  void systemTakesTheLight() {
    mac.change({.kind = ChangeKind::keyRelease, .key = virtual_mac::keyCode("ACLC")});
  }

  // Lets the timers run.
  static void run(double seconds) {
    platform::postMainAfter(seconds, platform::stopMain);
    platform::runMain();
  }

  // When the light was written, in seconds since the start of the test.
  [[nodiscard]] std::vector<double> times() const {
    std::vector<double> all;
    for (const auto& entry : mac.journal()) all.push_back(entry.time - begin_);
    return all;
  }

  static void blink(double seconds) {
    gBlinkSeconds = seconds;
    gMode = LedMode::blink;
    syncBlinkTimer();
  }

 private:
  double begin_ = 0;
};

TEST_F(Light, isWrittenWhenItShowsSomethingElse) {
  setLED(LED_GREEN);
  setLED(LED_ORANGE);
  setLED(LED_SYSTEM);
  EXPECT_THAT(mac.writes(), ElementsAre("ACLC=03", "ACLC=04", "ACLC=00"));
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(Light, isNotWrittenWhenItIsAlreadyRight) {
  mac.keyBytes("ACLC", {3});
  setLED(LED_GREEN);
  setLED(LED_GREEN);
  EXPECT_THAT(mac.writes(), IsEmpty());
}

TEST_F(Light, isSetAgainAndLoggedOnceWhenTheSystemChangesIt) {
  setLED(LED_GREEN);
  systemTakesTheLight();
  setLED(LED_GREEN);
  EXPECT_THAT(newLines(), ElementsAre(greenTakenBack));
  systemTakesTheLight();
  setLED(LED_GREEN);
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_THAT(mac.writes(), ElementsAre("ACLC=03", "ACLC=03", "ACLC=03"));
}

TEST_F(Light, isLoggedAgainWhenItIsLostAfterItWasRight) {
  setLED(LED_ORANGE);
  systemTakesTheLight();
  setLED(LED_ORANGE);
  setLED(LED_ORANGE);  // right
  systemTakesTheLight();
  setLED(LED_ORANGE);
  EXPECT_THAT(newLines(), ElementsAre(orangeTakenBack, orangeTakenBack));
}

TEST_F(Light, isLoggedWhenItIsLostAfterItWasFoundRightWithoutAWrite) {
  mac.keyBytes("ACLC", {3});
  setLED(LED_GREEN);
  systemTakesTheLight();
  setLED(LED_GREEN);
  EXPECT_THAT(newLines(), ElementsAre(greenTakenBack));
}

TEST_F(Light, logsNoOtherLossUntilItIsFoundRightInAnyColour) {
  setLED(LED_GREEN);
  systemTakesTheLight();
  setLED(LED_GREEN);
  static_cast<void>(newLines());
  setLED(LED_ORANGE);
  systemTakesTheLight();
  setLED(LED_ORANGE);
  EXPECT_THAT(newLines(), IsEmpty());
  setLED(LED_ORANGE);  // right
  systemTakesTheLight();
  setLED(LED_ORANGE);
  EXPECT_THAT(newLines(), ElementsAre(orangeTakenBack));
}

TEST_F(Light, countsNoLossIfTheDaemonLastAskedForAnotherColour) {
  setLED(LED_GREEN);
  mac.keyBytes("ACLC", {0});
  setLED(LED_ORANGE);
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(Light, isTriedAgainAndLoggedOnceIfItRefusesItsColour) {
  mac.keyOnWrite("ACLC", OnWrite::refuse);
  for (int time = 0; time < 3; ++time) setLED(LED_GREEN);
  EXPECT_THAT(mac.writes(), ElementsAre("ACLC=03!", "ACLC=03!", "ACLC=03!"));
  EXPECT_THAT(newLines(), ElementsAre(greenTakenBack));
}

TEST_F(Light, countsAsWrongIfItCannotBeRead) {
  mac.change({.kind = ChangeKind::keyReadStatus,
              .key = virtual_mac::keyCode("ACLC"),
              .status = platform::kernelNotPrivileged});
  mac.keepReads();
  setLED(LED_GREEN);
  EXPECT_THAT(mac.writes(), ElementsAre("info ACLC!", "info ACLC!"));  // to read it, and to write it
}

TEST_F(Light, isNotTouchedAgainAfterTheHandBackWhereMacOSHoldsTheCharge) {
  gGate = ChargeGate{ChargeKeys::macOSLimit, AdapterCutKey::none};
  mac.keyBytes("ACLC", {3});
  setLED(LED_SYSTEM);
  EXPECT_THAT(mac.writes(), ElementsAre("ACLC=00"));
  mac.keyBytes("ACLC", {4});
  mac.forgetJournal();
  mac.keepReads();
  setLED(LED_SYSTEM);
  EXPECT_THAT(mac.writes(), IsEmpty());
  setLED(LED_GREEN);
  EXPECT_THAT(mac.writes().back(), "ACLC=03");
  setLED(LED_SYSTEM);
  EXPECT_THAT(mac.writes().back(), "ACLC=00");
}

TEST_F(Light, isStillCheckedAfterTheHandBackWhereTheDaemonWritesTheKeys) {
  setLED(LED_SYSTEM);
  mac.keyBytes("ACLC", {3});
  setLED(LED_SYSTEM);
  EXPECT_THAT(mac.writes(), ElementsAre("ACLC=00"));
}

TEST_F(Light, isHandedBackWithoutARead) {
  mac.keepReads();
  for (const std::uint8_t shown : {LED_GREEN, LED_SYSTEM}) {
    mac.keyBytes("ACLC", {shown});
    mac.forgetJournal();
    EXPECT_TRUE(handBackLight());
    EXPECT_THAT(mac.writes(), ElementsAre(StartsWith("info ACLC"), "ACLC=00"));
  }
  mac.keyOnWrite("ACLC", OnWrite::refuse);
  EXPECT_FALSE(handBackLight());
}

TEST_F(Light, isNeitherReadNorWrittenIfUnsupported) {
  gLedSupported = false;
  mac.keepReads();
  setLED(LED_GREEN);
  blink(0.5);
  ledTick();
  run(10.25);
  EXPECT_THAT(mac.writes(), IsEmpty());
}

TEST_F(Light, hasNoTimerAndNoPhaseIfUnsupported) {
  gLedSupported = false;
  blink(0.5);
  ledTick();
  int events = 0;
  virtual_mac::setAfterEvent([&events] { ++events; });
  run(10.25);
  EXPECT_EQ(events, 1) << "only the work that ends this run";
  const auto exchanges = mac.machine().smc.exchanges;
  ledTick();
  setLED(LED_GREEN);
  EXPECT_EQ(mac.machine().smc.exchanges, exchanges);
  gLedSupported = true;
  ledTick();
  EXPECT_THAT(mac.writes(), ElementsAre("ACLC=03")) << "the first phase has not begun";
}

// --- blinking

TEST_F(Light, blinksGreenAndOffOnceInEachPeriod) {
  blink(2);
  run(9.25);
  EXPECT_THAT(mac.writes(), ElementsAre("ACLC=03", "ACLC=01", "ACLC=03", "ACLC=01", "ACLC=03"));
  EXPECT_THAT(times(), ElementsAre(0.5, 2.5, 4.5, 6.5, 8.5));
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(Light, changesPhaseOnTheFirstTickAtOrAfterThePeriod) {
  struct Case {
    double period;
    double onTheGrid;
  };
  for (const auto& [period, onTheGrid] : {Case{-5, 0.5}, Case{0, 0.5}, Case{0.1, 0.5}, Case{0.5, 0.5},
                                          Case{0.5625, 1}, Case{1, 1}, Case{1.0625, 1.5}, Case{3.5, 3.5}}) {
    SCOPED_TRACE(period);
    blink(period);
    run(10.25);  // the first phase and a margin
    mac.forgetJournal();
    run(10);
    const std::vector<double> all = times();
    ASSERT_GE(all.size(), 2U);
    for (std::size_t index = 1; index < all.size(); ++index) {
      EXPECT_EQ(all[index] - all[index - 1], onTheGrid);
    }
    gMode = LedMode::green;
    syncBlinkTimer();
  }
}

TEST_F(Light, neverChangesPhaseSoonerThanAfterThreeTenths) {
  gBlinkSeconds = 0.1;
  gMode = LedMode::blink;
  ledTick();
  mac.pass(0.25);
  ledTick();
  EXPECT_THAT(times(), ElementsAre(0.0));
  mac.pass(0.0625);
  ledTick();
  EXPECT_THAT(times(), ElementsAre(0.0, 0.3125));
}

TEST_F(Light, stopsBlinkingAtOnceAndResumesWithTheOtherPhase) {
  blink(0.5);
  run(1.25);
  EXPECT_THAT(mac.writes(), ElementsAre("ACLC=03", "ACLC=01"));
  mac.forgetJournal();
  gMode = LedMode::green;
  syncBlinkTimer();
  setLED(LED_GREEN);
  run(60);
  EXPECT_THAT(mac.writes(), ElementsAre("ACLC=03"));
  EXPECT_THAT(newLines(), IsEmpty());
  mac.forgetJournal();
  blink(0.5);
  run(1.25);
  EXPECT_THAT(mac.writes(), ElementsAre("ACLC=01"));  // the green phase finds the light green
}

TEST_F(Light, hasOneTimerHoweverOftenBlinkingIsRequested) {
  blink(0.3);
  run(0.375);
  blink(0.3);
  run(1.75);
  // A second timer would fire between these.
  EXPECT_THAT(times(), ElementsAre(0.5, 1.0, 1.5, 2.0));
}

TEST_F(Light, isNotWrittenByTheTimerUnlessItBlinks) {
  gMode = LedMode::green;
  syncBlinkTimer();
  ledTick();
  run(10);
  EXPECT_THAT(mac.writes(), IsEmpty());
}

TEST_F(Light, logsNoLossWhileItBlinks) {
  setLED(LED_GREEN);
  mac.keyBytes("ACLC", {0});
  blink(0.5);
  for (int phase = 0; phase < 10; ++phase) {
    run(0.5);
    systemTakesTheLight();
  }
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_GE(mac.writes().size(), 9U);
}

TEST_F(Light, isPausedUntilAClockThatWasSetBackHasCaughtUp) {
  blink(2);
  run(1);
  mac.number(ChangeKind::clockStep, -100);
  mac.forgetJournal();
  run(105.25);
  EXPECT_THAT(times(), ElementsAre(102.5, 104.5));
}

TEST_F(Light, changesPhaseAtOnceWhenTheClockIsSetForward) {
  blink(2);
  run(1);
  mac.number(ChangeKind::clockStep, 100);
  mac.forgetJournal();
  run(3);
  EXPECT_THAT(times(), ElementsAre(1.5, 3.5));
}

}  // namespace
}  // namespace brisko::led_test
