// Sleep and wake of the machine without a daemon: stages, messages, scheduled events, and what continues
// during sleep.

#include <cmath>
#include <limits>
#include <memory>
#include <string>

#include "platform/system_power.h"
#include "sim/machine/machine_bench.h"
#include "support/testing.h"

namespace brisko::test {
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

constexpr std::int64_t somebody = 4711;

class MachineSleep : public ::testing::Test {
 protected:
  // The types of the messages sent so far; their tokens are 1, 2, …
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
  // Puts the machine to sleep without a client.
  void fallAsleep() {
    mac.change(ChangeKind::sleep).pass(virtual_mac::fallingSeconds);
    ASSERT_TRUE(asleep());
  }

  Bench mac;
  std::unique_ptr<Journal> journal = std::make_unique<Journal>();
};

TEST_F(MachineSleep, isOnlyAnnouncedWhenTheLidIsClosed) {
  registerClient();
  mac.change(ChangeKind::sleep);
  EXPECT_THAT(messages(), ElementsAre(PowerMessage::systemWillSleep));
  mac.pass(10);
  EXPECT_FALSE(asleep()) << "nobody answered";
  allow(1);
  EXPECT_FALSE(asleep());
  mac.pass(1.9);
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
  mac.pass(2);
  EXPECT_TRUE(asleep());
}

TEST_F(MachineSleep, continuesWithoutAnAnswerAfter30SecondsForEachQuestion) {
  registerClient();
  mac.change(ChangeKind::idleSleep).pass(29.9);
  EXPECT_EQ(messages().size(), 1U);
  mac.pass(0.1);
  EXPECT_EQ(messages().size(), 2U);
  mac.pass(30 + 1.9);
  EXPECT_FALSE(asleep());
  mac.pass(0.1);
  EXPECT_TRUE(asleep());
  EXPECT_LT(notice(1).answeredAt, 0);
  EXPECT_LT(notice(2).answeredAt, 0);
}

TEST_F(MachineSleep, doesNotWaitForAClientThatWasLateThreeTimesInARow) {
  registerClient();
  for (int night = 0; night < 3; ++night) {
    mac.change(ChangeKind::sleep).pass(31.9);
    EXPECT_FALSE(asleep()) << night;
    mac.pass(0.1);
    EXPECT_TRUE(asleep()) << night;
    mac.change(ChangeKind::wake).pass(10);
  }
  mac.change(ChangeKind::sleep).pass(2);
  EXPECT_TRUE(asleep());
  mac.change(ChangeKind::wake).pass(10);
  registerClient();
  mac.change(ChangeKind::sleep).pass(31.9);
  EXPECT_FALSE(asleep()) << "a new client starts with its full time";
}

TEST_F(MachineSleep, forgetsLateAnswersAfterOneInTime) {
  registerClient();
  for (int night = 0; night < 8; ++night) {
    mac.change(ChangeKind::sleep).pass(1);
    if (night % 3 == 2) allow(mac.machine.sleep.noticesSent);
    mac.pass(40).change(ChangeKind::wake).pass(10);
  }
  mac.change(ChangeKind::sleep).pass(10);
  EXPECT_FALSE(asleep());
}

TEST_F(MachineSleep, asksNobodyWithoutARegistration) {
  mac.change(ChangeKind::idleSleep).pass(2);
  EXPECT_TRUE(asleep());
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(MachineSleep, doesNotWaitForADeadProcess) {
  registerClient();
  mac.change(ChangeKind::sleep).pass(5);
  virtual_mac::forgetPowerClient(mac.machine);
  mac.pass(2);
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
  mac.change(ChangeKind::sleep);
  allow(2);
  EXPECT_EQ(mac.machine.sleep.strayAnswers, 2U);
  allow(1);
  allow(1);
  EXPECT_EQ(mac.machine.sleep.strayAnswers, 3U) << "answered twice";
  mac.pass(2).change(ChangeKind::wake).pass(2);
  allow(2);  // HasPoweredOn needs no answer
  EXPECT_EQ(mac.machine.sleep.strayAnswers, 4U);
}

TEST_F(MachineSleep, isRefusedAfterTheAnswerAndShowsOnlyInTheCapabilities) {
  registerClient();
  mac.change(ChangeKind::sleepRefused, 1).change(ChangeKind::capabilities, 9).change(ChangeKind::sleep);
  allow(1);
  mac.pass(100);
  EXPECT_FALSE(asleep());
  EXPECT_EQ(messages().size(), 1U);
  EXPECT_EQ(capabilities(), 15U);
  mac.change(ChangeKind::sleepRefused, 0).change(ChangeKind::sleep);
  allow(2);
  mac.pass(2);
  EXPECT_TRUE(asleep());
}

TEST_F(MachineSleep, endsWithAFullWakeThatIsReportedTwoSecondsLater) {
  registerClient();
  mac.change(ChangeKind::sleep);
  allow(1);
  mac.pass(3600).change(ChangeKind::wake);
  EXPECT_FALSE(asleep());
  mac.pass(1.9);
  EXPECT_EQ(messages().size(), 1U);
  mac.pass(0.1);
  EXPECT_THAT(messages(), ElementsAre(PowerMessage::systemWillSleep, PowerMessage::systemHasPoweredOn));
  EXPECT_EQ(capabilities(), 15U);
  mac.change(ChangeKind::wake).pass(10);
  EXPECT_EQ(messages().size(), 2U) << "it is awake already";
}

TEST_F(MachineSleep, reportsTheWakeBeforeTheNextSleep) {
  registerClient();
  mac.change(ChangeKind::sleep);
  allow(1);
  mac.pass(60).change(ChangeKind::wake).pass(1).change(ChangeKind::sleep).pass(5);
  EXPECT_THAT(messages(), ElementsAre(PowerMessage::systemWillSleep, PowerMessage::systemHasPoweredOn,
                                      PowerMessage::systemWillSleep));
}

TEST_F(MachineSleep, changesToADarkWakeWithoutAMessage) {
  registerClient();
  mac.change(ChangeKind::sleep);
  allow(1);
  mac.pass(600);
  EXPECT_EQ(capabilities(), 15U) << "falling asleep does not write them";
  mac.change(ChangeKind::darkWake, 45);
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
  registerClient();
  mac.change(ChangeKind::sleep);
  allow(1);
  mac.pass(600).change(ChangeKind::darkWake, 45).pass(10).change(ChangeKind::wake).pass(100);
  EXPECT_FALSE(asleep());
  EXPECT_FALSE(dark());
  EXPECT_EQ(capabilities(), 15U);
  EXPECT_EQ(messages().back(), PowerMessage::systemHasPoweredOn);
}

TEST_F(MachineSleep, followsADarkWakeAtOnceWhenTheLidIsClosed) {
  fallAsleep();
  registerClient();
  mac.change(ChangeKind::darkWake, 45).pass(10).change(ChangeKind::idleSleep).pass(1);
  EXPECT_FALSE(asleep()) << "an idle timer has no effect in a dark wake";
  mac.change(ChangeKind::sleep);
  EXPECT_TRUE(asleep());
  EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(MachineSleep, startsOnlyIfPossible) {
  registerClient();
  mac.change(ChangeKind::darkWake, 45);
  EXPECT_FALSE(dark()) << "awake already";
  mac.change(ChangeKind::sleep).change(ChangeKind::sleep).change(ChangeKind::idleSleep);
  EXPECT_EQ(messages().size(), 1U) << "a sleep is already announced";
  allow(1);
  mac.pass(2).change(ChangeKind::sleep).change(ChangeKind::idleSleep).pass(100);
  EXPECT_EQ(messages().size(), 1U) << "asleep already";
  virtual_mac::shutDown(mac.machine);
  mac.change(ChangeKind::sleep).change(ChangeKind::wake).pass(100);
  EXPECT_FALSE(asleep());
}

TEST_F(MachineSleep, announcesAClosedLidDuringTheQuestionOfAnIdleSleep) {
  registerClient();
  mac.change(ChangeKind::idleSleep).change(ChangeKind::sleep);
  EXPECT_THAT(messages(), ElementsAre(PowerMessage::canSystemSleep, PowerMessage::systemWillSleep));
  allow(1);
  mac.pass(10);
  EXPECT_FALSE(asleep()) << "that was the answer to the other question";
  allow(2);
  mac.pass(2);
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
  mac.change(ChangeKind::sleep);
  virtual_mac::shutDown(mac.machine);
  virtual_mac::boot(mac.machine);
  mac.pass(100);
  EXPECT_FALSE(asleep());
  EXPECT_EQ(messages().size(), 1U);
  mac.change(ChangeKind::sleep).pass(2);
  EXPECT_TRUE(asleep()) << "the client did not survive the restart of the system";
}

TEST_F(MachineSleep, isEndedByAScheduledWakeForMaintenance) {
  ASSERT_EQ(schedule(600), kernelSuccess);
  fallAsleep();
  mac.pass(597.9);
  EXPECT_TRUE(asleep());
  mac.pass(0.1);
  EXPECT_TRUE(dark());
  EXPECT_EQ(pendingEvents(), 0);
  mac.pass(44.9);
  EXPECT_FALSE(asleep());
  mac.pass(0.1);
  EXPECT_TRUE(asleep());
  mac.pass(86'400);
  EXPECT_TRUE(asleep());
}

TEST_F(MachineSleep, endsWithAFullWakeIfScheduledWakesAreFull) {
  registerClient();
  mac.change(ChangeKind::scheduledWakes, 0);
  ASSERT_EQ(schedule(600), kernelSuccess);
  mac.change(ChangeKind::sleep);
  allow(1);
  mac.pass(700);
  EXPECT_FALSE(asleep());
  EXPECT_FALSE(dark());
  EXPECT_EQ(messages().back(), PowerMessage::systemHasPoweredOn);
}

TEST_F(MachineSleep, isEndedForAsLongAsScheduledWakesLast) {
  mac.change(ChangeKind::scheduledWakes, 7);
  ASSERT_EQ(schedule(600), kernelSuccess);
  fallAsleep();
  mac.pass(598 + 6.9);
  EXPECT_TRUE(dark());
  mac.pass(0.1);
  EXPECT_TRUE(asleep());
}

TEST_F(MachineSleep, isNotEndedByAWakeThatCameDueBefore) {
  ASSERT_EQ(schedule(100), kernelSuccess);
  mac.pass(200);
  EXPECT_FALSE(dark());
  fallAsleep();
  mac.pass(86'400);
  EXPECT_TRUE(asleep());
  EXPECT_EQ(pendingEvents(), 0);
}

TEST_F(MachineSleep, isEndedByTheWallClock) {
  ASSERT_EQ(schedule(7200), kernelSuccess);
  fallAsleep();
  mac.change(ChangeKind::clockStep, 3600).pass(3597.9);
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

TEST_F(MachineSleep, purgesPastEventsAtWakeAtBootAndWhenOneIsAdded) {
  const auto addTwo = [this] {
    ASSERT_EQ(schedule(100, "restart"), kernelSuccess);
    ASSERT_EQ(schedule(1e6, "restart"), kernelSuccess);
    mac.pass(200);
  };
  addTwo();
  EXPECT_EQ(pendingEvents(), 2);
  ASSERT_EQ(schedule(2e6), kernelSuccess);
  EXPECT_EQ(pendingEvents(), 2);
  ASSERT_EQ(schedule(100, "restart"), kernelSuccess);
  fallAsleep();
  mac.pass(200);
  EXPECT_EQ(pendingEvents(), 3);
  mac.change(ChangeKind::wake);
  EXPECT_EQ(pendingEvents(), 2);
  ASSERT_EQ(schedule(100, "restart"), kernelSuccess);
  mac.pass(200);
  virtual_mac::boot(mac.machine);
  EXPECT_EQ(pendingEvents(), 2) << "future events survive a shutdown";
}

TEST_F(MachineSleep, acceptsAnEventInThePastAndPurgesIt) {
  EXPECT_EQ(schedule(-1), kernelSuccess);
  EXPECT_EQ(schedule(0), kernelSuccess);
  EXPECT_EQ(pendingEvents(), 0);
}

TEST_F(MachineSleep, refusesInvalidEvents) {
  EXPECT_EQ(schedule(100, "dance"), kernelBadArgument);
  EXPECT_EQ(schedule(std::numeric_limits<double>::quiet_NaN()), kernelBadArgument);
  EXPECT_EQ(schedule(std::numeric_limits<double>::infinity()), kernelBadArgument);
  EXPECT_EQ(pendingEvents(), 0);
}

TEST_F(MachineSleep, hasRoomForSixteenEvents) {
  for (int event = 1; event <= 16; ++event) EXPECT_EQ(schedule(event * 100), kernelSuccess);
  EXPECT_EQ(schedule(5000), kernelNoSpace);
  mac.pass(100);
  EXPECT_EQ(schedule(5000), kernelSuccess) << "the first event is in the past";
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

TEST_F(MachineSleep, stopsAProcessAtMessagesAndAtTheEndsOfSleep) {
  registerClient();
  ASSERT_EQ(schedule(1000), kernelSuccess);
  mac.change(ChangeKind::charge, 80);
  mac.write("CHTE", {1, 0, 0, 0});
  mac.pass(120);
  ASSERT_TRUE(mac.later(10, {.kind = ChangeKind::idleSleep}));
  const double begin = mac.machine.now;
  std::vector<double> stops;
  while (virtual_mac::advanceToNotice(mac.machine, begin + 2000)) stops.push_back(mac.machine.now - begin);
  // The question, the announcement, the sleep, the scheduled wake and its end.
  EXPECT_THAT(stops, ElementsAre(10, 40, 72, 880, 925));
}

TEST_F(MachineSleep, stopsNoProcessForWhatHappensMeanwhile) {
  fallAsleep();
  const std::uint64_t before = mac.machine.powerSource.changes;
  ASSERT_TRUE(mac.later(600, {.kind = ChangeKind::unplug}));
  EXPECT_FALSE(virtual_mac::advanceToNotice(mac.machine, mac.machine.now + 1800));
  EXPECT_GT(mac.machine.powerSource.changes, before + 5) << "it charged and was unplugged";
}

TEST_F(MachineSleep, isIndependentOfTheNumberOfAdvances) {
  registerClient();
  ASSERT_EQ(schedule(900.25), kernelSuccess);
  ASSERT_TRUE(mac.later(10.5, {.kind = ChangeKind::sleep}));
  ASSERT_TRUE(mac.later(3000, {.kind = ChangeKind::wake}));
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
}  // namespace brisko::test
