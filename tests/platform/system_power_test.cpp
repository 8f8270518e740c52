// The contract of platform/system_power.h.

#include "platform/system_power.h"

#include <algorithm>
#include <functional>
#include <string>
#include <vector>

#include "platform/clock.h"
#include "platform/registry.h"
#include "platform/run_loop.h"
#include "support/contract_machine.h"
#include "support/testing.h"

namespace brisko::platform::system_power_test {
namespace {

using namespace test;
using virtual_mac::ChangeKind;

class SystemPowerContract : public ::testing::Test {
 protected:
  // Registers a client that records its messages, and by default answers them.
  void listen(bool answers = true) {
    const PowerRegistration registration =
        registerSystemPower([this, answers](PowerMessage message, std::intptr_t argument) {
          words.push_back(wordFor(message));
          const bool asks =
              message == PowerMessage::canSystemSleep || message == PowerMessage::systemWillSleep;
          if (asks && answers) allowPowerChange(port, argument);
        });
    port = registration.rootPort;
    ASSERT_NE(port, 0U);
    ASSERT_TRUE(registration.notifying);
  }
  static std::string wordFor(PowerMessage message) {
    switch (message) {
      case PowerMessage::canSystemSleep:
        return "may it?";
      case PowerMessage::systemWillSleep:
        return "it will";
      case PowerMessage::systemHasPoweredOn:
        return "it is up";
    }
    switch (static_cast<std::uint32_t>(message)) {
      case virtual_mac::willPowerOn:
        return "it will be up";
      case virtual_mac::willNotSleep:
        return "it will not";
      default:
        return "what?";
    }
  }
  void later(double seconds, ChangeKind kind, double number = 0) {
    mac.later(seconds, {.kind = kind, .number = number});
  }
  // Runs the loop for so much uptime.
  static void runFor(double seconds) {
    postMainAfter(seconds, [] { stopMain(); });
    runMain();
  }
  // Runs the loop until `done` returns true, because in real time a busy computer may react late. Gives up
  // after some hours of machine time.
  static void runUntil(const std::function<bool()>& done) {
    constexpr double longEnough = 20'000;
    const double end = uptime() + longEnough;
    const TimerToken look = addRepeatingTimer(1, [&] {
      if (done() || uptime() > end) stopMain();
    });
    runMain();
    invalidateTimer(look);
    EXPECT_TRUE(done());
  }
  [[nodiscard]] bool isUp() const { return std::count(words.begin(), words.end(), "it is up") > 0; }
  void runUntilItIsUp() {
    runUntil([this] { return isUp(); });
  }
  [[nodiscard]] int pendingEvents() const {
    int count = 0;
    for (const auto& event : mac.record().sleep.events) count += event.pending ? 1 : 0;
    return count;
  }

  ContractMachine mac;
  RootPowerPort port = 0;
  std::vector<std::string> words;
};

TEST_F(SystemPowerContract, reportsSleepAndWakeInTheLoop) {
  listen();
  later(10, ChangeKind::closeLid);
  later(500, ChangeKind::openLid);
  runUntilItIsUp();
  EXPECT_THAT(words, ElementsAre("it will", "it will be up", "it is up"));
  EXPECT_EQ(mac.record().sleep.strayAnswers, 0U);
}

TEST_F(SystemPowerContract, asksBeforeAnIdleSleep) {
  listen();
  later(10, ChangeKind::idleSleep);
  later(500, ChangeKind::openLid);
  runUntilItIsUp();
  EXPECT_THAT(words, ElementsAre("may it?", "it will", "it will be up", "it is up"));
}

TEST_F(SystemPowerContract, sleepsAtOnceAfterTheAnswer) {
  listen();
  later(10, ChangeKind::closeLid);
  const double wake = mac.record().now + 500;
  later(500, ChangeKind::openLid);
  runUntilItIsUp();
  const virtual_mac::Machine record = mac.record();
  const double answered = record.sleep.notices[1].answeredAt;
  if (answered >= 0) {  // a very busy computer may answer too late
    EXPECT_GE(record.system.sleptSeconds, wake - answered - virtual_mac::lingerSeconds);
  }
  if (ContractMachine::timeIsExact()) {
    EXPECT_EQ(record.system.sleptSeconds, 500 - 10 - virtual_mac::lingerSeconds);
  }
}

TEST_F(SystemPowerContract, sleepsWithoutAnAnswerAfterATimeout) {
  listen(false);
  later(10, ChangeKind::closeLid);
  later(500, ChangeKind::openLid);
  runUntilItIsUp();
  EXPECT_THAT(words, ElementsAre("it will", "it will be up", "it is up"));
  const virtual_mac::Machine record = mac.record();
  EXPECT_LT(record.sleep.notices[1].answeredAt, 0);
  // In real time the wake is planned a little later than the sleep.
  if (ContractMachine::timeIsExact()) {
    EXPECT_EQ(record.system.sleptSeconds, 500 - 10 - 30 - virtual_mac::lingerSeconds);
  }
  EXPECT_GE(record.sleep.lateAnswers, 1U);
  EXPECT_GT(record.system.sleptSeconds, 350);
}

TEST_F(SystemPowerContract, reportsNothingInADarkWakeAndLetsTimersRunInIt) {
  listen();
  later(10, ChangeKind::closeLid);
  later(1000, ChangeKind::darkWake, 200);
  later(3000, ChangeKind::openLid);
  std::vector<std::int64_t> capabilities;
  (void)addRepeatingTimer(50, [&] {
    const auto word = registryProperty("IOPMrootDomain", "System Capabilities");
    capabilities.push_back(word ? word->asInteger().value_or(-1) : -1);
    words.push_back("tick");
  });
  // 15 s before the sleep, 200 s in the dark and the rest in full wake. Where time really passes a tick may
  // come late.
  runUntil(
      [&] { return !capabilities.empty() && capabilities.back() == 15 && words.back() == "tick" && isUp(); });
  EXPECT_EQ(std::count(words.begin(), words.end(), "it is up"), 1);
  EXPECT_EQ(std::count(words.begin(), words.end(), "it will"), 1);
  EXPECT_THAT(capabilities, Contains(9));
  if (ContractMachine::timeIsExact()) {
    EXPECT_THAT(words,
                ElementsAre("it will", "tick", "tick", "tick", "tick", "it will be up", "it is up", "tick"));
    EXPECT_THAT(capabilities, ElementsAre(9, 9, 9, 9, 15));
  }
}

TEST_F(SystemPowerContract, stopsTimersAndDelayedWorkInSleep) {
  listen();
  later(10, ChangeKind::closeLid);
  later(1000, ChangeKind::openLid);
  const double wallBegin = wallNow();
  const double begin = uptime();
  std::vector<double> fired;
  (void)addRepeatingTimer(100, [&] { fired.push_back(uptime() - begin); });
  double delayed = 0;
  postMainAfter(50, [&] { delayed = uptime() - begin; });
  runUntil([&] { return fired.size() >= 2 && isUp(); });
  EXPECT_GE(fired[0], 100) << "not once for each interval asleep";
  EXPECT_GE(fired[1], 200) << "and not again to catch up";
  EXPECT_GE(delayed, 50);
  const double slept = mac.record().system.sleptSeconds;
  const double awake = uptime() - begin;
  EXPECT_GT(slept, 900);
  EXPECT_GE(wallNow() - wallBegin, slept + awake) << "the wall clock continues";
  if (ContractMachine::timeIsExact()) {
    EXPECT_THAT(fired, ElementsAre(100, 200));
    EXPECT_EQ(delayed, 50);
  }
}

TEST_F(SystemPowerContract, reportsNothingWithoutARegistration) {
  later(10, ChangeKind::closeLid);
  later(100, ChangeKind::openLid);
  runFor(60);
  EXPECT_THAT(words, IsEmpty());
}

TEST_F(SystemPowerContract, reportsNothingFromBeforeTheRegistration) {
  listen();
  later(1, ChangeKind::closeLid);
  later(50, ChangeKind::openLid);
  runUntilItIsUp();
  words.clear();
  listen();
  runFor(20);
  EXPECT_THAT(words, IsEmpty());
}

TEST_F(SystemPowerContract, refusesARegistration) {
  mac.change({.kind = ChangeKind::powerClients, .number = 0});
  const PowerRegistration registration = registerSystemPower([](PowerMessage, std::intptr_t) {});
  EXPECT_EQ(registration.rootPort, 0U);
  EXPECT_FALSE(registration.notifying);
  later(1, ChangeKind::closeLid);
  later(50, ChangeKind::openLid);
  runFor(20);
}

TEST_F(SystemPowerContract, ignoresAnAnswerWithoutAPort) {
  const PowerRegistration registration =
      registerSystemPower([](PowerMessage, std::intptr_t argument) { allowPowerChange(0, argument); });
  ASSERT_NE(registration.rootPort, 0U);
  later(1, ChangeKind::closeLid);
  later(400, ChangeKind::openLid);
  runFor(60);
  EXPECT_LT(mac.record().sleep.notices[1].answeredAt, 0);
}

TEST_F(SystemPowerContract, wakesForAScheduledEvent) {
  listen();
  mac.change({.kind = ChangeKind::unplug});
  ASSERT_EQ(schedulePowerEvent(wallNow() + 600, "somebody", "wake"), kernelSuccess);
  EXPECT_EQ(pendingEvents(), 1);
  later(10, ChangeKind::closeLid);
  // A driver holds the dark wake, so that a busy computer cannot miss it.
  later(300, ChangeKind::sleepRefused, static_cast<double>(virtual_mac::SleepRefusal::inDarkness));
  later(5000, ChangeKind::openLid);
  double ticked = 0;
  bool wasUp = true;
  const double begin = wallNow();
  postMainAfter(300, [&] {
    ticked = wallNow() - begin;
    wasUp = isUp();
  });
  runUntilItIsUp();
  EXPECT_GE(ticked, 600) << "not while it slept";
  EXPECT_FALSE(wasUp) << "but in the dark wake";
  EXPECT_THAT(words, ElementsAre("it will", "it will be up", "it is up"));
  EXPECT_EQ(pendingEvents(), 0);
}

TEST_F(SystemPowerContract, takesBackAnIdleSleepBeforeAWake) {
  listen();
  ASSERT_EQ(schedulePowerEvent(wallNow() + 40, "somebody", "wake"), kernelSuccess);
  mac.change({.kind = ChangeKind::idleSleep});
  runUntil([this] { return words.size() >= 2; });
  EXPECT_THAT(words, ElementsAre("may it?", "it will not"));
  EXPECT_EQ(mac.record().sleep.strayAnswers, 0U);
}

// With the lid closed on the adapter a scheduled wake may be full for some seconds.
TEST_F(SystemPowerContract, reportsAScheduledWakeThatIsPromotedAndItsEnd) {
  listen();
  mac.change({.kind = ChangeKind::scheduledWakes, .number = 1});
  ASSERT_EQ(schedulePowerEvent(wallNow() + 600, "somebody", "wake"), kernelSuccess);
  later(10, ChangeKind::closeLid);
  runUntil([this] { return words.size() >= 4; });
  EXPECT_THAT(words, ElementsAre("it will", "it will be up", "it is up", "it will"));
}

TEST_F(SystemPowerContract, cancelsWhatItScheduled) {
  const double date = wallNow() + 600;
  ASSERT_EQ(schedulePowerEvent(date, "somebody", "wake"), kernelSuccess);
  EXPECT_EQ(cancelPowerEvent(date + 1, "somebody", "wake"), kernelNotFound);
  EXPECT_EQ(cancelPowerEvent(date, "else", "wake"), kernelNotFound);
  EXPECT_EQ(cancelPowerEvent(date, "somebody", "poweron"), kernelNotFound);
  EXPECT_EQ(pendingEvents(), 1);
  EXPECT_EQ(cancelPowerEvent(date, "somebody", "wake"), kernelSuccess);
  EXPECT_EQ(pendingEvents(), 0);
}

TEST_F(SystemPowerContract, reportsWhySchedulingFailed) {
  EXPECT_EQ(schedulePowerEvent(wallNow() + 600, "somebody", "dance"), kernelBadArgument);
  mac.change({.kind = ChangeKind::scheduleStatus, .status = kernelNotPrivileged});
  EXPECT_EQ(schedulePowerEvent(wallNow() + 600, "somebody", "wake"), kernelNotPrivileged);
  EXPECT_EQ(pendingEvents(), 0);
}

// The uptime is paused while the Mac sleeps.
TEST_F(SystemPowerContract, keepsAMacOnItsAdapterFromSleepingUntilThatIsReleased) {
  listen();
  const SleepAssertion assertion = preventSystemSleep("a test");
  ASSERT_NE(assertion, 0U);
  later(10, ChangeKind::closeLid);
  later(5000, ChangeKind::openLid);
  double slept = -1;
  postMainAfter(600, [&] {
    slept = mac.record().system.sleptSeconds;
    releaseSleepAssertion(assertion);
  });
  runUntilItIsUp();
  EXPECT_EQ(slept, 0);
  EXPECT_GT(mac.record().system.sleptSeconds, 3000);
  EXPECT_THAT(words, ElementsAre("it will", "it will be up", "it is up"));
}

TEST_F(SystemPowerContract, keepsNoMacOnBatteryFromSleeping) {
  listen();
  mac.change({.kind = ChangeKind::unplug});
  const SleepAssertion assertion = preventSystemSleep("a test");
  EXPECT_NE(assertion, 0U);
  later(10, ChangeKind::closeLid);
  later(1000, ChangeKind::openLid);
  runUntilItIsUp();
  EXPECT_GT(mac.record().system.sleptSeconds, 500);
  releaseSleepAssertion(assertion);
}

TEST_F(SystemPowerContract, reportsThatSleepMayNotBePrevented) {
  mac.change({.kind = ChangeKind::scheduleStatus, .status = kernelNotPrivileged});
  EXPECT_EQ(preventSystemSleep("a test"), 0U);
  EXPECT_FALSE(mac.record().sleep.preventedByClient);
}

TEST(SystemPowerWithoutAMachine, isUnavailable) {
  const PowerRegistration registration = registerSystemPower([](PowerMessage, std::intptr_t) {});
  EXPECT_EQ(registration.rootPort, 0U);
  EXPECT_FALSE(registration.notifying);
  allowPowerChange(1, 1);
  EXPECT_NE(schedulePowerEvent(wallNow() + 600, "somebody", "wake"), kernelSuccess);
  EXPECT_NE(cancelPowerEvent(wallNow() + 600, "somebody", "wake"), kernelSuccess);
  EXPECT_EQ(preventSystemSleep("a test"), 0U);
}

}  // namespace
}  // namespace brisko::platform::system_power_test
