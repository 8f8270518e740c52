// Properties of virtual time beyond the contract of the seam, on which tests rely.

#include <csignal>
#include <limits>
#include <vector>

#include <sys/wait.h>
#include <unistd.h>

#include "platform/clock.h"
#include "platform/host.h"
#include "platform/run_loop.h"
#include "sim/seam/simulated/driver.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::virtual_time_test {
namespace {

using namespace test;
using platform::addRepeatingTimer;
using platform::postMain;
using platform::postMainAfter;
using platform::runMain;
using platform::stopMain;
using platform::uptime;

constexpr double never = std::numeric_limits<double>::infinity();

TEST(VirtualTime, stopsExactlyAtTheHorizonAndContinuesFromThere) {
  VirtualMac mac;
  const double begin = mac.machine().now;
  std::vector<double> asked;
  virtual_mac::setHorizon(begin + 7.25, [&] {
    asked.push_back(mac.machine().now - begin);
    return asked.size() == 1 ? begin + 30 : never;
  });
  postMainAfter(100, [] { stopMain(); });
  runMain();
  EXPECT_THAT(asked, ElementsAre(7.25, 30.0));
}

TEST(VirtualTime, doesWhatIsDueAtTheHorizonBeforeItStops) {
  VirtualMac mac;
  int fired = 0;
  int firedWhenAsked = -1;
  (void)addRepeatingTimer(12, [&] { ++fired; });
  virtual_mac::setHorizon(mac.machine().now + 24, [&] {
    firedWhenAsked = fired;
    stopMain();
    return never;
  });
  runMain();
  EXPECT_EQ(firedWhenAsked, 2);
}

TEST(VirtualTime, aHorizonAtThisMomentStopsAtTheFirstWait) {
  VirtualMac mac;
  std::vector<std::string> trace;
  virtual_mac::setHorizon(mac.machine().now, [&] {
    trace.emplace_back("asked");
    return never;
  });
  postMain([&] { trace.emplace_back("posted"); });
  postMainAfter(1, [&] {
    trace.emplace_back("a second later");
    stopMain();
  });
  runMain();
  EXPECT_THAT(trace, ElementsAre("posted", "asked", "a second later"));
}

TEST(VirtualTime, aPauseStopsAtTheHorizonToo) {
  VirtualMac mac;
  const double begin = mac.machine().now;
  std::vector<double> asked;
  virtual_mac::setHorizon(begin + 2, [&] {
    asked.push_back(mac.machine().now - begin);
    return never;
  });
  platform::pause(5);
  EXPECT_THAT(asked, ElementsAre(2.0));
  EXPECT_EQ(mac.machine().now, begin + 5);
}

TEST(VirtualTime, aPauseThatEndsAtTheHorizonDoesNotStop) {
  VirtualMac mac;
  virtual_mac::setHorizon(mac.machine().now + 5, [] {
    ADD_FAILURE() << "asked";
    return never;
  });
  platform::pause(5);
}

TEST(VirtualTime, callsBackAfterEveryEventOfTheLoop) {
  VirtualMac mac;
  int events = 0;
  int eventsSeenInWork = -1;
  virtual_mac::setAfterEvent([&] { ++events; });
  postMain([] {});
  postMainAfter(1, [] {});
  postMainAfter(2, [&] {
    eventsSeenInWork = events;
    stopMain();
  });
  runMain();
  EXPECT_EQ(eventsSeenInWork, 2);
  EXPECT_EQ(events, 3);
}

// Puts the machine to sleep for an hour after ten seconds.
void sleepForAnHour(VirtualMac& mac) {
  const double asleepAt = mac.machine().now + 10;
  virtual_mac::setHorizon(asleepAt, [&mac, asleepAt] {
    auto& system = mac.store().update().machine().system;
    system.asleep = !system.asleep;
    return system.asleep ? asleepAt + 3600 : never;
  });
}

TEST(VirtualTime, timersPauseWhileTheMachineSleeps) {
  VirtualMac mac;
  const double begin = mac.machine().now;
  std::vector<double> fired;
  (void)addRepeatingTimer(12, [&] {
    fired.push_back(mac.machine().now - begin);
    if (fired.size() == 2) stopMain();
  });
  sleepForAnHour(mac);
  runMain();
  EXPECT_THAT(fired, ElementsAre(3612.0, 3624.0));
}

TEST(VirtualTime, uptimePausesAndTheWallClockDoesNotWhileTheMachineSleeps) {
  VirtualMac mac;
  const double uptimeBefore = uptime();
  const double wallBefore = platform::wallNow();
  sleepForAnHour(mac);
  platform::pause(30);
  EXPECT_EQ(uptime() - uptimeBefore, 30);
  EXPECT_EQ(platform::wallNow() - wallBefore, 3630);
}

TEST(VirtualTime, postedWorkWaitsForTheEndOfSleep) {
  VirtualMac mac;
  const double begin = mac.machine().now;
  double ran = 0;
  mac.store().update().machine().system.asleep = true;
  virtual_mac::setHorizon(begin + 600, [&] {
    mac.store().update().machine().system.asleep = false;
    return never;
  });
  postMain([&] {
    ran = mac.machine().now - begin;
    stopMain();
  });
  runMain();
  EXPECT_EQ(ran, 600);
}

TEST(VirtualTimeDeathTest, reportsAWaitThatWouldNeverEnd) {
  EXPECT_DEATH(runMain(), "virtual time: the process waits for ever, nothing is due within a year");
}

TEST(VirtualTime, needsNoMachine) {
  const double before = platform::wallNow();
  platform::pause(86'400);
  EXPECT_EQ(platform::wallNow(), before + 86'400);
}

TEST(VirtualTime, isIndependentOfTheRealComputer) {
  ::setenv("BRISKO_TEST_REAL", "1", 1);
  const VirtualMac mac;
  EXPECT_FALSE(platform::environment("BRISKO_TEST_REAL").has_value());
  EXPECT_NE(platform::processId(), ::getpid());
  EXPECT_EQ(platform::executablePath(), "/Applications/Brisko.app/Contents/MacOS/brisko-daemon");
  EXPECT_EQ(platform::volumeRoot(), mac.path(""));
}

TEST(VirtualTime, theExecutableCanLieElsewhereOrNowhere) {
  virtual_mac::setExecutablePath("/usr/local/libexec/brisko-daemon");
  EXPECT_EQ(platform::executablePath(), "/usr/local/libexec/brisko-daemon");
  virtual_mac::setExecutablePath(std::nullopt);
  EXPECT_FALSE(platform::executablePath().has_value());
}

TEST(VirtualTime, theUserCanBeAnotherThanRoot) {
  VirtualMac mac;
  mac.number(ChangeKind::userId, 501);
  EXPECT_EQ(platform::effectiveUserId(), 501U);
}

TEST(VirtualTime, theMachineInMemoryIsSharedWithChildren) {
  VirtualMac mac;
  const double before = mac.machine().now;
  const pid_t child = ::fork();
  if (child == 0) {
    platform::pause(60);
    mac.charge(42);
    ::_exit(0);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_EQ(status, 0);
  EXPECT_EQ(mac.machine().now, before + 60);
  EXPECT_EQ(mac.machine().powerSource.percent, 42);
}

}  // namespace
}  // namespace brisko::virtual_time_test
