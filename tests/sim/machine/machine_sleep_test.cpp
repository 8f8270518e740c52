// Sleep and wake of the machine without a daemon: stages, messages, scheduled events, and what continues
// during sleep.

#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <string>

#include "platform/system_power.h"
#include "sim/machine/machine_bench.h"
#include "support/testing.h"

namespace brisko::test::machine_sleep_test {
namespace {

using platform::kernelBadArgument;
using platform::kernelNoSpace;
using platform::kernelNotFound;
using platform::kernelNotPrivileged;
using platform::kernelSuccess;
using platform::PowerMessage;
using virtual_mac::ChangeKind;
using virtual_mac::Journal;
using virtual_mac::Machine;
using virtual_mac::Nights;
using virtual_mac::SleepRefusal;

constexpr std::int64_t somebody = 4711;
constexpr auto willNotSleep = static_cast<PowerMessage>(virtual_mac::willNotSleep);
constexpr auto willPowerOn = static_cast<PowerMessage>(virtual_mac::willPowerOn);

// On a Mac that nothing but these tests wakes.
class MachineSleep : public ::testing::Test {
 protected:
  MachineSleep() { setNights(Nights::quiet); }
  void setNights(Nights nights) { mac.change(ChangeKind::nights, static_cast<double>(nights)); }
  void refuse(SleepRefusal refusal) { mac.change(ChangeKind::sleepRefused, static_cast<double>(refusal)); }
  // The tokens of the messages sent so far are 1, 2, …; their types:
  [[nodiscard]] std::vector<PowerMessage> messages() const {
    std::vector<PowerMessage> types;
    for (std::uint32_t token = 1; token <= mac.machine.sleep.noticesSent; ++token)
      types.push_back(static_cast<PowerMessage>(notice(token).type));
    return types;
  }
  [[nodiscard]] const virtual_mac::PowerNotice& notice(std::uint32_t token) const {
    return mac.machine.sleep.notices[token % virtual_mac::noticePlaces];
  }
  void registerClient() { ASSERT_TRUE(virtual_mac::registerPowerClient(mac.machine, somebody)); }
  void allow(std::uint32_t token) { virtual_mac::allowPowerChange(mac.machine, *journal, token); }
  platform::KernelStatus schedule(double inSeconds, std::string_view type = "wake",
                                  std::string_view identifier = "us") {
    return virtual_mac::scheduleEvent(mac.machine, *journal, virtual_mac::wallClock(mac.machine) + inSeconds,
                                      identifier, type);
  }
  [[nodiscard]] bool asleep() const { return mac.machine.system.asleep; }
  [[nodiscard]] bool dark() const { return mac.machine.sleep.dark; }
  [[nodiscard]] std::uint32_t capabilities() const { return mac.machine.system.capabilities; }
  [[nodiscard]] int pendingEvents() const {
    int count = 0;
    for (const auto& event : mac.machine.sleep.events) count += event.pending ? 1 : 0;
    return count;
  }
  // Closes the lid; nobody is asked.
  void fallAsleep() {
    mac.change(ChangeKind::closeLid).pass(virtual_mac::lingerSeconds);
    ASSERT_TRUE(asleep());
  }
  // The same with a client that answers at once. It has heard one message by then.
  void fallAsleepWithClient() {
    registerClient();
    mac.change(ChangeKind::closeLid);
    allow(1);
    mac.pass(virtual_mac::lingerSeconds);
    ASSERT_TRUE(asleep());
  }
  // The messages from the second one on.
  [[nodiscard]] std::vector<PowerMessage> laterMessages() const {
    const std::vector<PowerMessage> all = messages();
    return {all.begin() + 1, all.end()};
  }

  Bench mac;
  std::unique_ptr<Journal> journal = std::make_unique<Journal>();
};

TEST_F(MachineSleep, isOnlyAnnouncedWhenTheLidIsClosed) {
  registerClient();
  mac.change(ChangeKind::closeLid);
  EXPECT_THAT(messages(), ElementsAre(PowerMessage::systemWillSleep));
  mac.pass(10);
  EXPECT_FALSE(dark()) << "nobody answered";
  allow(1);
  EXPECT_FALSE(asleep());
  mac.pass(4.9);
  EXPECT_FALSE(asleep());
  mac.pass(0.1);
  EXPECT_TRUE(asleep());
  EXPECT_EQ(notice(1).answeredAt - notice(1).sentAt, 10);
}

TEST_F(MachineSleep, isPrecededByAQuestionForAnIdleMac) {
  registerClient();
  mac.change(ChangeKind::idleSleep);
  EXPECT_THAT(messages(), ElementsAre(PowerMessage::canSystemSleep));
  allow(1);
  EXPECT_THAT(messages(), ElementsAre(PowerMessage::canSystemSleep, PowerMessage::systemWillSleep));
  mac.pass(5);
  EXPECT_FALSE(asleep());
  allow(2);
  mac.pass(5);
  EXPECT_TRUE(asleep());
}

// The rest of the way is a dark wake: timers run, and nothing is said of the sleep itself.
TEST_F(MachineSleep, showsADarkWakeFromTheLastAnswerOn) {
  for (const ChangeKind kind : {ChangeKind::idleSleep, ChangeKind::closeLid, ChangeKind::sleep}) {
    SCOPED_TRACE(static_cast<int>(kind));
    registerClient();
    mac.change(kind);
    if (kind == ChangeKind::idleSleep) allow(mac.machine.sleep.noticesSent);
    EXPECT_EQ(capabilities(), 15U);
    EXPECT_FALSE(dark());
    allow(mac.machine.sleep.noticesSent);
    EXPECT_EQ(capabilities(), 9U);
    EXPECT_TRUE(dark());
    EXPECT_FALSE(asleep());
    const double uptime = virtual_mac::uptimeOf(mac.machine);
    mac.pass(5);
    EXPECT_TRUE(asleep());
    EXPECT_EQ(virtual_mac::uptimeOf(mac.machine), uptime + 5);
    EXPECT_EQ(capabilities(), 9U);
    mac.change(ChangeKind::openLid).pass(100);
    EXPECT_EQ(capabilities(), 15U);
  }
}

TEST_F(MachineSleep, continuesWithoutAnAnswerAfter30SecondsForEachQuestion) {
  registerClient();
  mac.change(ChangeKind::idleSleep).pass(29.9);
  EXPECT_EQ(messages().size(), 1U);
  mac.pass(0.1);
  EXPECT_EQ(messages().size(), 2U);
  mac.pass(30 + 4.9);
  EXPECT_FALSE(asleep());
  mac.pass(0.1);
  EXPECT_TRUE(asleep());
  EXPECT_LT(notice(1).answeredAt, 0);
  EXPECT_LT(notice(2).answeredAt, 0);
}

TEST_F(MachineSleep, doesNotWaitForWhoWasLateThreeTimesInARow) {
  mac.change(ChangeKind::unplug);  // an adapter would keep it awake for a while after each wake
  registerClient();
  for (int night = 0; night < 3; ++night) {
    mac.change(ChangeKind::closeLid).pass(29.9);
    EXPECT_FALSE(dark()) << night;
    mac.pass(5.1);
    EXPECT_TRUE(asleep()) << night;
    mac.change(ChangeKind::openLid).pass(10);
  }
  mac.change(ChangeKind::closeLid).pass(5);
  EXPECT_TRUE(asleep());
  mac.change(ChangeKind::openLid).pass(10);
  registerClient();
  mac.change(ChangeKind::closeLid).pass(29.9);
  EXPECT_FALSE(dark()) << "a new client has its time again";
}

TEST_F(MachineSleep, forgetsLateAnswersAfterOneInTime) {
  registerClient();
  for (int night = 0; night < 8; ++night) {
    mac.change(ChangeKind::closeLid).pass(1);
    if (night % 3 == 2) allow(mac.machine.sleep.noticesSent);
    mac.pass(100).change(ChangeKind::openLid).pass(10);
  }
  mac.change(ChangeKind::closeLid).pass(10);
  EXPECT_FALSE(dark());
}

TEST_F(MachineSleep, asksNobodyWhenNobodyRegistered) {
  mac.change(ChangeKind::idleSleep).pass(5);
  EXPECT_TRUE(asleep());
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(MachineSleep, doesNotWaitForADeadProcess) {
  registerClient();
  mac.change(ChangeKind::closeLid).pass(5);
  virtual_mac::forgetPowerClient(mac.machine);
  mac.pass(5);
  EXPECT_TRUE(asleep());
}

TEST_F(MachineSleep, registersNoClientWhileItRefusesThem) {
  mac.change(ChangeKind::powerClients, 0);
  EXPECT_FALSE(virtual_mac::registerPowerClient(mac.machine, somebody));
  mac.change(ChangeKind::powerClients, 1);
  EXPECT_TRUE(virtual_mac::registerPowerClient(mac.machine, somebody));
}

TEST_F(MachineSleep, countsUnexpectedAnswers) {
  registerClient();
  allow(1);
  EXPECT_EQ(mac.machine.sleep.strayAnswers, 1U);
  mac.change(ChangeKind::closeLid);
  allow(2);
  EXPECT_EQ(mac.machine.sleep.strayAnswers, 2U);
  allow(1);
  allow(1);
  EXPECT_EQ(mac.machine.sleep.strayAnswers, 3U) << "answered twice";
  mac.pass(5).change(ChangeKind::openLid).pass(2);
  allow(2);  // nobody is to answer WillPowerOn …
  EXPECT_EQ(mac.machine.sleep.strayAnswers, 4U);
  allow(3);  // … nor HasPoweredOn
  EXPECT_EQ(mac.machine.sleep.strayAnswers, 5U);
}

// ---------------------------------------------------------------------------------------------------------
// Sleeps that do not happen

TEST_F(MachineSleep, thatIsVetoedIsTakenBackAndAskedForAgain) {
  registerClient();
  refuse(SleepRefusal::vetoed);
  mac.change(ChangeKind::idleSleep);
  allow(1);
  EXPECT_THAT(messages(), ElementsAre(PowerMessage::canSystemSleep, willNotSleep));
  EXPECT_EQ(capabilities(), 15U);
  refuse(SleepRefusal::none);
  mac.pass(59.9);
  EXPECT_EQ(messages().size(), 2U);
  mac.pass(0.1);
  EXPECT_EQ(messages().back(), PowerMessage::canSystemSleep);
  allow(3);
  allow(4);
  mac.pass(5);
  EXPECT_TRUE(asleep());
}

TEST_F(MachineSleep, byTheLidIsNotVetoed) {
  registerClient();
  refuse(SleepRefusal::vetoed);
  mac.change(ChangeKind::closeLid);
  allow(1);
  EXPECT_TRUE(dark());
}

TEST_F(MachineSleep, ofAnIdleMacIsVetoedWhileAWakeIsDueWithinAMinute) {
  struct Case {
    double seconds;
    const char* type;
    bool vetoed;
  };
  for (const Case& expected :
       {Case{60, "wake", true}, Case{60.1, "wake", false}, Case{1, "wake", true}, Case{30, "sleep", false}}) {
    SCOPED_TRACE(std::string(expected.type) + " in " + std::to_string(expected.seconds) + " s");
    mac = Bench();
    setNights(Nights::quiet);
    registerClient();
    ASSERT_EQ(schedule(expected.seconds, expected.type), kernelSuccess);
    mac.change(ChangeKind::idleSleep);
    allow(1);
    EXPECT_EQ(messages().back(), expected.vetoed ? willNotSleep : PowerMessage::systemWillSleep);
  }
}

TEST_F(MachineSleep, thatIsCancelledAfterTheAnnouncementEndsInTheMessagesOfAWake) {
  registerClient();
  refuse(SleepRefusal::cancelled);
  mac.change(ChangeKind::closeLid);
  allow(1);
  EXPECT_THAT(laterMessages(), ElementsAre(willPowerOn));
  EXPECT_EQ(capabilities(), 15U) << "it was fully awake all the while";
  mac.pass(2);
  EXPECT_THAT(laterMessages(), ElementsAre(willPowerOn, PowerMessage::systemHasPoweredOn));
  mac.pass(100);
  EXPECT_FALSE(dark());
  EXPECT_FALSE(asleep());
  EXPECT_EQ(capabilities(), 15U);
}

TEST_F(MachineSleep, isCancelledByTheLidAsLongAsTheMacIsFullyAwake) {
  registerClient();
  mac.change(ChangeKind::closeLid).pass(1).change(ChangeKind::openLid);
  EXPECT_THAT(laterMessages(), ElementsAre(willPowerOn));
  allow(1);
  mac.pass(100);
  EXPECT_FALSE(asleep()) << "the answer came too late";
  EXPECT_THAT(laterMessages(), ElementsAre(willPowerOn, PowerMessage::systemHasPoweredOn));
  EXPECT_EQ(mac.machine.sleep.strayAnswers, 0U);
}

TEST_F(MachineSleep, thatIsAskedForIsTakenBackWhenSomebodyUsesTheMac) {
  registerClient();
  mac.change(ChangeKind::idleSleep).change(ChangeKind::wake);
  EXPECT_THAT(messages(), ElementsAre(PowerMessage::canSystemSleep, willNotSleep));
  mac.pass(3600);
  EXPECT_EQ(messages().size(), 2U);
}

TEST_F(MachineSleep, thatIsRefusedInTheDarkGoesOnDarkAndSilent) {
  registerClient();
  refuse(SleepRefusal::inDarkness);
  mac.change(ChangeKind::closeLid);
  allow(1);
  const double uptime = virtual_mac::uptimeOf(mac.machine);
  mac.pass(3600);
  EXPECT_FALSE(asleep());
  EXPECT_EQ(capabilities(), 9U);
  EXPECT_EQ(virtual_mac::uptimeOf(mac.machine), uptime + 3600) << "timers run";
  EXPECT_THAT(laterMessages(), IsEmpty());
  refuse(SleepRefusal::none);
  mac.pass(5);
  EXPECT_TRUE(asleep());
  EXPECT_THAT(laterMessages(), IsEmpty());
}

TEST_F(MachineSleep, thatIsRefusedAfterADarkWakeGoesOnDarkAndSilent) {
  fallAsleepWithClient();
  refuse(SleepRefusal::inDarkness);
  mac.change(ChangeKind::darkWake, 45).pass(3600);
  EXPECT_FALSE(asleep());
  EXPECT_TRUE(dark());
  EXPECT_THAT(laterMessages(), IsEmpty());
}

// ---------------------------------------------------------------------------------------------------------
// Wakes

TEST_F(MachineSleep, endsInAFullWakeThatIsAnnouncedAndReportedTwoSecondsLater) {
  fallAsleepWithClient();
  mac.pass(3600).change(ChangeKind::openLid);
  EXPECT_FALSE(asleep());
  EXPECT_THAT(laterMessages(), ElementsAre(willPowerOn));
  mac.pass(1.9);
  EXPECT_EQ(laterMessages().size(), 1U);
  EXPECT_EQ(capabilities(), 9U) << "until the message";
  mac.pass(0.1);
  EXPECT_THAT(laterMessages(), ElementsAre(willPowerOn, PowerMessage::systemHasPoweredOn));
  EXPECT_EQ(capabilities(), 15U);
  mac.change(ChangeKind::openLid).change(ChangeKind::wake).pass(10);
  EXPECT_EQ(laterMessages().size(), 2U) << "it is awake already";
}

TEST_F(MachineSleep, remembersWhenItWasLeftDarkOrFully) {
  EXPECT_LT(mac.machine.sleep.wokenAt, 0);
  fallAsleep();
  mac.pass(600);
  const double dark = mac.machine.now;
  mac.change(ChangeKind::darkWake, 45).pass(10);
  EXPECT_EQ(mac.machine.sleep.wokenAt, dark);
  mac.change(ChangeKind::wake).pass(10);
  EXPECT_EQ(mac.machine.sleep.wokenAt, dark) << "the Mac did not sleep in between";
  mac.change(ChangeKind::closeLid).pass(600);
  const double fully = mac.machine.now;
  mac.change(ChangeKind::openLid);
  EXPECT_EQ(mac.machine.sleep.wokenAt, fully) << "before any message";
  virtual_mac::shutDown(mac.machine);
  virtual_mac::boot(mac.machine);
  EXPECT_LT(mac.machine.sleep.wokenAt, 0);
}

TEST_F(MachineSleep, mayShowTheFullWakeALittleAfterItsMessage) {
  mac.change(ChangeKind::lateCapabilities, 0.5);
  fallAsleepWithClient();
  mac.change(ChangeKind::openLid).pass(2);
  EXPECT_EQ(messages().back(), PowerMessage::systemHasPoweredOn);
  EXPECT_EQ(capabilities(), 9U);
  mac.pass(0.4);
  EXPECT_EQ(capabilities(), 9U);
  mac.pass(0.1);
  EXPECT_EQ(capabilities(), 15U);
}

TEST_F(MachineSleep, reportsTheWakeBeforeTheNextSleep) {
  fallAsleepWithClient();
  mac.pass(60).change(ChangeKind::openLid).pass(1).change(ChangeKind::closeLid).pass(5);
  EXPECT_THAT(laterMessages(),
              ElementsAre(willPowerOn, PowerMessage::systemHasPoweredOn, PowerMessage::systemWillSleep));
}

TEST_F(MachineSleep, staysAwakeWithTheLidClosedForWhoUsesAKeyboard) {
  fallAsleep();
  mac.change(ChangeKind::wake).pass(3600);
  EXPECT_FALSE(asleep());
  EXPECT_TRUE(mac.machine.sleep.lidClosed);
  mac.change(ChangeKind::closeLid).pass(5);
  EXPECT_TRUE(asleep());
  mac.change(ChangeKind::openLid);
  EXPECT_FALSE(mac.machine.sleep.lidClosed);
}

TEST_F(MachineSleep, keepsTheLidOpenWhenItComesByCommand) {
  mac.change(ChangeKind::sleep).pass(5);
  EXPECT_TRUE(asleep());
  EXPECT_FALSE(mac.machine.sleep.lidClosed);
}

// Something may have woken it that soon calls it back: powerd waits, on the adapter.
TEST_F(MachineSleep, lingersDarkUntil45SecondsAfterTheWakeOnTheAdapter) {
  fallAsleep();
  mac.change(ChangeKind::openLid).pass(10).change(ChangeKind::closeLid).pass(34.9);
  EXPECT_TRUE(dark());
  mac.pass(0.1);
  EXPECT_TRUE(asleep());
  mac.change(ChangeKind::unplug).pass(100).change(ChangeKind::openLid).pass(10);
  mac.change(ChangeKind::closeLid).pass(5);
  EXPECT_TRUE(asleep()) << "not on battery";
}

TEST_F(MachineSleep, isLeftForADarkWakeWithoutAWord) {
  fallAsleepWithClient();
  mac.pass(600).change(ChangeKind::darkWake, 45);
  EXPECT_FALSE(asleep());
  EXPECT_TRUE(dark());
  EXPECT_EQ(capabilities(), 9U);
  mac.pass(44.9);
  EXPECT_FALSE(asleep());
  mac.pass(0.1);
  EXPECT_TRUE(asleep());
  EXPECT_FALSE(dark());
  EXPECT_EQ(capabilities(), 9U);
  EXPECT_EQ(messages().size(), 1U);
}

TEST_F(MachineSleep, turnsADarkWakeIntoAFullOne) {
  fallAsleepWithClient();
  mac.pass(600).change(ChangeKind::darkWake, 45).pass(10).change(ChangeKind::wake).pass(1.9);
  EXPECT_EQ(capabilities(), 9U);
  mac.pass(100);
  EXPECT_FALSE(asleep());
  EXPECT_FALSE(dark());
  EXPECT_EQ(capabilities(), 15U);
  EXPECT_THAT(laterMessages(), ElementsAre(willPowerOn, PowerMessage::systemHasPoweredOn));
}

TEST_F(MachineSleep, followsADarkWakeAtOnceByCommandAndInItsTimeByTheLid) {
  fallAsleep();
  registerClient();
  mac.change(ChangeKind::darkWake, 45).pass(10).change(ChangeKind::idleSleep).pass(1);
  EXPECT_FALSE(asleep()) << "an idle timer has no say in a dark wake";
  mac.change(ChangeKind::closeLid).pass(1);
  EXPECT_FALSE(asleep()) << "nor has the lid";
  mac.change(ChangeKind::sleep);
  EXPECT_TRUE(asleep());
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(MachineSleep, startsOnlyIfPossible) {
  registerClient();
  mac.change(ChangeKind::darkWake, 45);
  EXPECT_FALSE(dark()) << "awake already";
  mac.change(ChangeKind::closeLid).change(ChangeKind::sleep).change(ChangeKind::idleSleep);
  EXPECT_EQ(messages().size(), 1U) << "on its way already";
  allow(1);
  mac.pass(5).change(ChangeKind::sleep).change(ChangeKind::idleSleep).pass(100);
  EXPECT_EQ(messages().size(), 1U) << "asleep already";
  virtual_mac::shutDown(mac.machine);
  mac.change(ChangeKind::closeLid).change(ChangeKind::openLid).pass(100);
  EXPECT_FALSE(asleep());
}

TEST_F(MachineSleep, announcesAClosedLidDuringTheQuestionOfAnIdleSleep) {
  registerClient();
  mac.change(ChangeKind::idleSleep).change(ChangeKind::closeLid);
  EXPECT_THAT(messages(), ElementsAre(PowerMessage::canSystemSleep, PowerMessage::systemWillSleep));
  allow(1);
  mac.pass(10);
  EXPECT_FALSE(dark()) << "that was the answer to the other question";
  allow(2);
  mac.pass(5);
  EXPECT_TRUE(asleep());
}

TEST_F(MachineSleep, stopsUptimeAndNothingElse) {
  fallAsleep();
  const double uptime = virtual_mac::uptimeOf(mac.machine);
  const double wall = virtual_mac::wallClock(mac.machine);
  mac.pass(3600);
  EXPECT_EQ(virtual_mac::uptimeOf(mac.machine), uptime);
  EXPECT_EQ(virtual_mac::wallClock(mac.machine), wall + 3600);
}

TEST_F(MachineSleep, continuesChargingAsTheKeysAllow) {
  fallAsleep();
  mac.pass(1800);
  EXPECT_GT(virtual_mac::level(mac.machine), 85);
  mac.write("CHTE", {1, 0, 0, 0});
  const double held = virtual_mac::level(mac.machine);
  mac.pass(8 * 3600);
  EXPECT_NEAR(virtual_mac::level(mac.machine), held, 0.01);
}

TEST_F(MachineSleep, drainsAboutASixthOfAPercentAnHour) {
  mac.change(ChangeKind::unplug);
  fallAsleep();
  const double before = virtual_mac::level(mac.machine);
  mac.pass(10 * 3600);
  const double anHour = (before - virtual_mac::level(mac.machine)) / 10;
  EXPECT_GT(anHour, 0.13);
  EXPECT_LT(anHour, 0.25);
}

TEST_F(MachineSleep, drawsLittleInADarkWake) {
  mac.change(ChangeKind::unplug).change(ChangeKind::load, 20);
  fallAsleep();
  const double asleepMA = mac.machine.battery.currentMA;
  mac.change(ChangeKind::darkWake, 3600);
  EXPECT_LT(mac.machine.battery.currentMA, asleepMA);
  EXPECT_GT(mac.machine.battery.currentMA, -300);
  mac.change(ChangeKind::wake);
  EXPECT_LT(mac.machine.battery.currentMA, -1500);
}

TEST_F(MachineSleep, endsWithShutdownAndBootWithoutPendingMessages) {
  registerClient();
  mac.change(ChangeKind::closeLid);
  virtual_mac::shutDown(mac.machine);
  virtual_mac::boot(mac.machine);
  mac.pass(100);
  EXPECT_FALSE(asleep());
  EXPECT_EQ(messages().size(), 1U);
  mac.change(ChangeKind::closeLid).pass(5);
  EXPECT_TRUE(asleep()) << "the client went with the system that it ran on";
}

// ---------------------------------------------------------------------------------------------------------
// Scheduled wakes

TEST_F(MachineSleep, isEndedDarkAndSilentByAScheduledWakeWithTheLidClosed) {
  ASSERT_EQ(schedule(600), kernelSuccess);
  fallAsleepWithClient();
  mac.pass(594.9);
  EXPECT_TRUE(asleep());
  mac.pass(0.1);
  EXPECT_TRUE(dark());
  EXPECT_EQ(capabilities(), 9U);
  EXPECT_EQ(pendingEvents(), 0);
  mac.pass(44.9);
  EXPECT_FALSE(asleep());
  mac.pass(0.1);
  EXPECT_TRUE(asleep());
  mac.pass(86'400);
  EXPECT_TRUE(asleep());
  EXPECT_THAT(laterMessages(), IsEmpty());
}

// The other of the two outcomes: a full wake for some seconds, and then the sleep of a closed Mac, of which
// the dark part lasts until 45 s after the wake.
TEST_F(MachineSleep, isEndedFullyForSomeSecondsByAScheduledWakeThatIsPromoted) {
  mac.change(ChangeKind::scheduledWakes, 1);
  ASSERT_EQ(schedule(600), kernelSuccess);
  fallAsleepWithClient();
  mac.pass(595);
  EXPECT_FALSE(dark());
  EXPECT_THAT(laterMessages(), ElementsAre(willPowerOn));
  EXPECT_EQ(capabilities(), 9U);
  mac.pass(2);
  EXPECT_THAT(laterMessages(), ElementsAre(willPowerOn, PowerMessage::systemHasPoweredOn));
  EXPECT_EQ(capabilities(), 15U);
  mac.pass(2.9);
  EXPECT_EQ(laterMessages().size(), 2U);
  mac.pass(0.1);
  EXPECT_EQ(messages().back(), PowerMessage::systemWillSleep) << "without a question";
  allow(mac.machine.sleep.noticesSent);
  EXPECT_EQ(capabilities(), 9U);
  EXPECT_TRUE(dark());
  mac.pass(39.9);
  EXPECT_TRUE(dark());
  mac.pass(0.1);
  EXPECT_TRUE(asleep());
  mac.pass(86'400);
  EXPECT_EQ(laterMessages().size(), 3U);
}

TEST_F(MachineSleep, isEndedFullyByAScheduledWakeWithTheLidOpenUntilItIsIdleAgain) {
  for (const bool plugged : {true, false}) {
    SCOPED_TRACE(plugged);
    mac = Bench({.plugged = plugged});
    setNights(Nights::quiet);
    registerClient();
    ASSERT_EQ(schedule(600), kernelSuccess);
    mac.change(ChangeKind::sleep);
    allow(1);
    mac.pass(602);
    EXPECT_EQ(capabilities(), 15U);
    EXPECT_THAT(laterMessages(), ElementsAre(willPowerOn, PowerMessage::systemHasPoweredOn));
    mac.pass(59.9);
    EXPECT_EQ(laterMessages().size(), 2U);
    mac.pass(0.1);
    EXPECT_EQ(messages().back(), PowerMessage::canSystemSleep);
    allow(4);
    allow(5);
    mac.pass(5);
    EXPECT_TRUE(asleep());
  }
}

TEST_F(MachineSleep, staysEndedForWhoUsesTheMacMeanwhile) {
  mac.change(ChangeKind::scheduledWakes, 1);
  ASSERT_EQ(schedule(600), kernelSuccess);
  fallAsleep();
  mac.pass(597).change(ChangeKind::openLid).pass(3600);
  EXPECT_FALSE(asleep());
  EXPECT_FALSE(dark());
}

TEST_F(MachineSleep, isEndedDarkOnBatteryForAsLongAsDevicesNeed) {
  mac.change(ChangeKind::unplug).change(ChangeKind::scheduledWakes, 1).change(ChangeKind::batteryWakes, 7);
  ASSERT_EQ(schedule(600), kernelSuccess);
  fallAsleepWithClient();
  mac.pass(595 + 6.9);
  EXPECT_TRUE(dark());
  mac.pass(0.1);
  EXPECT_TRUE(asleep());
  EXPECT_THAT(laterMessages(), IsEmpty());
}

// powerd goes by the battery's flag, which a cut clears on some Macs and leaves on others.
TEST_F(MachineSleep, goesByTheFlagOfTheBatteryWhileTheAdapterIsCut) {
  for (const bool stays : {false, true}) {
    SCOPED_TRACE(stays);
    mac = Bench();
    setNights(Nights::quiet);
    mac.change(ChangeKind::cutKeepsExternal, stays ? 1 : 0).change(ChangeKind::scheduledWakes, 1);
    mac.write("CHIE", {8});
    EXPECT_FALSE(adapterReachesBattery(mac.machine));
    EXPECT_EQ(externalIsConnected(mac.machine), stays);
    EXPECT_EQ(mac.machine.powerSource.onAdapter, stays);
    EXPECT_LT(mac.machine.battery.currentMA, -100);
    ASSERT_EQ(schedule(600), kernelSuccess);
    fallAsleep();
    mac.pass(597);
    EXPECT_EQ(dark(), !stays) << "only then it is promoted";
  }
}

TEST_F(MachineSleep, isNotEndedByAWakeThatCameDueBefore) {
  ASSERT_EQ(schedule(100), kernelSuccess);
  mac.pass(200);
  EXPECT_FALSE(dark());
  fallAsleep();
  mac.pass(86'400);
  EXPECT_TRUE(asleep());
}

TEST_F(MachineSleep, isPutOffByAWakeThatComesDueInAFullOne) {
  registerClient();
  ASSERT_EQ(schedule(600), kernelSuccess);
  ASSERT_EQ(schedule(640), kernelSuccess);
  mac.change(ChangeKind::sleep);
  allow(1);
  // Up at 600; it would be idle at 662. The other wake counts as use of the Mac.
  mac.pass(662.5);
  EXPECT_EQ(messages().back(), PowerMessage::systemHasPoweredOn);
  mac.pass(37.4);
  EXPECT_EQ(messages().back(), PowerMessage::systemHasPoweredOn);
  mac.pass(0.1);
  EXPECT_EQ(messages().back(), PowerMessage::canSystemSleep);
}

TEST_F(MachineSleep, leavesADarkWakeFullyWhenAWakeComesDueInIt) {
  struct Case {
    bool lidClosed, plugged, promoted;
  };
  for (const Case& expected : {Case{true, true, true}, Case{true, false, false}, Case{false, true, true},
                               Case{false, false, true}}) {
    SCOPED_TRACE(std::string(expected.lidClosed ? "closed" : "open") + (expected.plugged ? ", AC" : ""));
    mac = Bench({.plugged = expected.plugged});
    setNights(Nights::quiet);
    ASSERT_EQ(schedule(600), kernelSuccess);
    mac.change(expected.lidClosed ? ChangeKind::closeLid : ChangeKind::sleep).pass(590);
    mac.change(ChangeKind::darkWake, 45).pass(12);
    EXPECT_EQ(dark(), !expected.promoted);
    EXPECT_EQ(capabilities(), expected.promoted ? 15U : 9U);
  }
}

TEST_F(MachineSleep, isEndedByTheWallClock) {
  ASSERT_EQ(schedule(7200), kernelSuccess);
  fallAsleep();
  mac.change(ChangeKind::clockStep, 3600).pass(3594.9);
  EXPECT_TRUE(asleep());
  mac.pass(0.1);
  EXPECT_TRUE(dark());
}

TEST_F(MachineSleep, isEndedAtOnceWhenTheClockJumpsPastTheWake) {
  ASSERT_EQ(schedule(7200), kernelSuccess);
  fallAsleep();
  mac.change(ChangeKind::clockStep, 86'400).pass(0.1);
  EXPECT_TRUE(dark());
  EXPECT_EQ(pendingEvents(), 0);
}

TEST_F(MachineSleep, isEndedOnlyByEventsThatWake) {
  for (const char* type : {"poweron", "sleep", "shutdown", "restart"})
    ASSERT_EQ(schedule(600, type), kernelSuccess) << type;
  fallAsleep();
  mac.pass(700);
  EXPECT_TRUE(asleep());
  ASSERT_EQ(schedule(600, "wakepoweron"), kernelSuccess);
  mac.pass(610);
  EXPECT_TRUE(dark());
}

TEST_F(MachineSleep, purgesEventsOfThePastAtBootAtEachWakeAndBeforeAnIdleSleep) {
  const auto addTwo = [this](std::string_view type) {
    ASSERT_EQ(schedule(100, type), kernelSuccess);
    ASSERT_EQ(schedule(1e6, type), kernelSuccess);
    mac.pass(200);
  };
  addTwo("restart");
  EXPECT_EQ(pendingEvents(), 2);
  ASSERT_EQ(schedule(2e6, "restart"), kernelSuccess);
  EXPECT_EQ(pendingEvents(), 3) << "not when one is added";
  fallAsleep();
  EXPECT_EQ(pendingEvents(), 3) << "nor on the way to a sleep by the lid";
  mac.change(ChangeKind::darkWake, 5);
  EXPECT_EQ(pendingEvents(), 2);
  mac.pass(10);
  ASSERT_EQ(schedule(100, "restart"), kernelSuccess);
  mac.pass(200).change(ChangeKind::openLid).pass(10);
  EXPECT_EQ(pendingEvents(), 2);
  addTwo("wake");
  addTwo("restart");
  EXPECT_EQ(pendingEvents(), 6);
  mac.change(ChangeKind::idleSleep);
  EXPECT_EQ(pendingEvents(), 5) << "wakes only";
  virtual_mac::boot(mac.machine);
  EXPECT_EQ(pendingEvents(), 4) << "those of the future outlast a shutdown";
}

TEST_F(MachineSleep, takesAnEventOfThePastAndListsItUntilTheNextPurge) {
  EXPECT_EQ(schedule(-1), kernelSuccess);
  EXPECT_EQ(schedule(0), kernelSuccess);
  EXPECT_EQ(pendingEvents(), 2);
  fallAsleep();
  mac.pass(3600);
  EXPECT_TRUE(asleep()) << "nothing comes of it";
  EXPECT_EQ(pendingEvents(), 2);
  mac.change(ChangeKind::darkWake, 45);
  EXPECT_EQ(pendingEvents(), 0);
  EXPECT_EQ(schedule(-1), kernelSuccess);
  mac.pass(10);
  EXPECT_TRUE(dark()) << "nor does it end a dark wake";
}

TEST_F(MachineSleep, refusesInvalidEvents) {
  EXPECT_EQ(schedule(100, "dance"), kernelBadArgument);
  EXPECT_EQ(schedule(std::numeric_limits<double>::quiet_NaN()), kernelBadArgument);
  EXPECT_EQ(schedule(std::numeric_limits<double>::infinity()), kernelBadArgument);
  EXPECT_EQ(pendingEvents(), 0);
}

TEST_F(MachineSleep, hasRoomForAThousandEvents) {
  for (int event = 1; event <= 1000; ++event) ASSERT_EQ(schedule(event * 100), kernelSuccess) << event;
  EXPECT_EQ(schedule(5000), kernelNoSpace);
  mac.pass(100);
  EXPECT_EQ(schedule(5000), kernelNoSpace) << "the first is of the past, but still listed";
  const double date = virtual_mac::wallClock(mac.machine) - 100 + 500 * 100;
  EXPECT_EQ(virtual_mac::cancelEvent(mac.machine, *journal, date, "us", "wake"), kernelSuccess);
  EXPECT_EQ(schedule(5000), kernelSuccess);
}

TEST_F(MachineSleep, schedulesForRootOnlyAndUnlessRefused) {
  mac.change(ChangeKind::userId, 501);
  EXPECT_EQ(schedule(100), kernelNotPrivileged);
  mac.change(ChangeKind::userId, 0);
  mac.change({.kind = ChangeKind::scheduleStatus, .status = kernelNotPrivileged});
  EXPECT_EQ(schedule(100), kernelNotPrivileged);
  mac.change({.kind = ChangeKind::scheduleStatus});
  EXPECT_EQ(schedule(100), kernelSuccess);
}

TEST_F(MachineSleep, cancelsByDateIdentifierAndType) {
  ASSERT_EQ(schedule(100), kernelSuccess);
  const double date = virtual_mac::wallClock(mac.machine) + 100;
  const auto cancel = [this](double at, std::string_view identifier, std::string_view type) {
    return virtual_mac::cancelEvent(mac.machine, *journal, at, identifier, type);
  };
  EXPECT_EQ(cancel(date + 0.001, "us", "wake"), kernelNotFound);
  EXPECT_EQ(cancel(date, "them", "wake"), kernelNotFound);
  EXPECT_EQ(cancel(date, "us", "wakepoweron"), kernelNotFound);
  EXPECT_EQ(pendingEvents(), 1);
  EXPECT_EQ(cancel(date, "us", "wake"), kernelSuccess);
  EXPECT_EQ(pendingEvents(), 0);
  EXPECT_EQ(cancel(date, "us", "wake"), kernelNotFound);
}

// ---------------------------------------------------------------------------------------------------------
// The wakes of a night

// How long the dark wakes of the next hours last, and how far apart they begin.
struct DarkWakes {
  std::vector<double> lengths, intervals;
};
DarkWakes darkWakesOf(Bench& mac, double hours) {
  DarkWakes wakes;
  const double end = mac.machine.now + hours * 3600;
  double began = -1;
  while (mac.machine.now < end) {
    const double before = mac.machine.now;
    (void)virtual_mac::advanceToNotice(mac.machine, end);
    if (mac.machine.now == before || mac.machine.now >= end) continue;
    if (mac.machine.system.asleep) {
      wakes.lengths.push_back(mac.machine.now - began);
      continue;
    }
    if (!wakes.lengths.empty()) wakes.intervals.push_back(mac.machine.now - began);
    began = mac.machine.now;
  }
  return wakes;
}

TEST_F(MachineSleep, isInterruptedEveryTwoHoursByDefault) {
  mac = Bench({.percent = 100});  // nothing else is published
  fallAsleep();
  const DarkWakes wakes = darkWakesOf(mac, 9);
  EXPECT_THAT(wakes.lengths, ElementsAre(45, 45, 45, 45));
  // Two hours after it fell asleep again.
  EXPECT_THAT(wakes.intervals, ElementsAre(7245, 7245, 7245));
}

TEST_F(MachineSleep, isInterruptedOnBatteryForAsLongAsDevicesNeed) {
  mac = Bench({.plugged = false});
  mac.change(ChangeKind::batteryWakes, 5);
  fallAsleep();
  EXPECT_THAT(darkWakesOf(mac, 5).lengths, ElementsAre(5, 5));
}

TEST_F(MachineSleep, isInterruptedEveryFewMinutesInABusyNight) {
  mac = Bench({.percent = 100});
  setNights(Nights::busy);
  fallAsleep();
  const DarkWakes wakes = darkWakesOf(mac, 48);
  EXPECT_GT(wakes.lengths.size(), 150U);
  EXPECT_EQ(*std::min_element(wakes.lengths.begin(), wakes.lengths.end()), 2);
  EXPECT_EQ(*std::max_element(wakes.lengths.begin(), wakes.lengths.end()), 180);
  EXPECT_GE(*std::min_element(wakes.intervals.begin(), wakes.intervals.end()), 300);
  EXPECT_LE(*std::max_element(wakes.intervals.begin(), wakes.intervals.end()), 1020 + 180);
}

TEST_F(MachineSleep, isNotInterruptedInAQuietNight) {
  mac = Bench({.percent = 100});
  setNights(Nights::quiet);
  fallAsleep();
  EXPECT_THAT(darkWakesOf(mac, 48).lengths, IsEmpty());
}

TEST_F(MachineSleep, isInterruptedWhenTheAdapterComesOrGoes) {
  fallAsleepWithClient();
  mac.change(ChangeKind::unplug);
  EXPECT_TRUE(dark());
  mac.pass(19.9);
  EXPECT_TRUE(dark());
  mac.pass(0.1);
  EXPECT_TRUE(asleep());
  mac.change(ChangeKind::unplug);
  EXPECT_TRUE(asleep()) << "it was gone already";
  mac.change(ChangeKind::plug, 30).pass(44.9);
  EXPECT_TRUE(dark());
  mac.pass(0.1);
  EXPECT_TRUE(asleep());
  mac.change(ChangeKind::plug, 67);
  EXPECT_TRUE(asleep()) << "another one, but it was there already";
  mac.change(ChangeKind::adapterWakes, 0).change(ChangeKind::unplug);
  EXPECT_TRUE(asleep()) << "some Macs do not";
  EXPECT_THAT(laterMessages(), IsEmpty());
}

// ---------------------------------------------------------------------------------------------------------

TEST_F(MachineSleep, stopsAProcessAtMessagesAndAtTheEndsOfSleep) {
  registerClient();
  ASSERT_EQ(schedule(1000), kernelSuccess);
  mac.change(ChangeKind::charge, 80);
  mac.write("CHTE", {1, 0, 0, 0});
  mac.pass(120);
  mac.machine.sleep.lidClosed = true;
  ASSERT_TRUE(mac.later(10, {.kind = ChangeKind::idleSleep}));
  const double begin = mac.machine.now;
  std::vector<double> stops;
  while (virtual_mac::advanceToNotice(mac.machine, begin + 2000)) stops.push_back(mac.machine.now - begin);
  // Asked, announced, asleep; the scheduled wake and its end.
  EXPECT_THAT(stops, ElementsAre(10, 40, 75, 880, 925));
}

TEST_F(MachineSleep, stopsNoProcessForWhatHappensMeanwhile) {
  mac.change(ChangeKind::adapterWakes, 0);
  fallAsleep();
  const std::uint64_t before = mac.machine.powerSource.changes;
  ASSERT_TRUE(mac.later(600, {.kind = ChangeKind::unplug}));
  EXPECT_FALSE(virtual_mac::advanceToNotice(mac.machine, mac.machine.now + 1800));
  EXPECT_GT(mac.machine.powerSource.changes, before + 5) << "it charged and was unplugged";
}

TEST_F(MachineSleep, isIndependentOfTheNumberOfAdvances) {
  registerClient();
  setNights(Nights::busy);
  mac.change(ChangeKind::scheduledWakes, 1);
  ASSERT_EQ(schedule(900.25), kernelSuccess);
  ASSERT_TRUE(mac.later(10.5, {.kind = ChangeKind::closeLid}));
  ASSERT_TRUE(mac.later(3000, {.kind = ChangeKind::openLid}));
  Machine once = mac.machine;
  Machine often = mac.machine;
  const double end = once.now + 4000;
  virtual_mac::advance(once, end);
  for (double time = often.now; time < end; time += 0.7) virtual_mac::advance(often, time);
  virtual_mac::advance(often, end);
  EXPECT_EQ(once.sleep.noticesSent, often.sleep.noticesSent);
  for (std::size_t place = 0; place < virtual_mac::noticePlaces; ++place) {
    EXPECT_EQ(once.sleep.notices[place].sentAt, often.sleep.notices[place].sentAt);
    EXPECT_EQ(once.sleep.notices[place].type, often.sleep.notices[place].type);
  }
  EXPECT_EQ(once.system.asleep, often.system.asleep);
  EXPECT_EQ(once.battery.chargeMAh, often.battery.chargeMAh);
  EXPECT_NEAR(once.system.sleptSeconds, often.system.sleptSeconds, 1e-6);
}

}  // namespace
}  // namespace brisko::test::machine_sleep_test
