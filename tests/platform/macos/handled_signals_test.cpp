// Which thread gives the charge back after a signal: the main thread, or the standby thread if the main
// thread is stuck in a call; never both.

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <string>
#include <string_view>
#include <utility>

#include <unistd.h>

#include "fakes/system.h"
#include "fakes/threads.h"
#include "platform/run_loop.h"
#include "sim/machine/machine.h"
#include "sim/seam/simulated/driver.h"
#include "sim/seam/simulated/virtual_time.h"
#include "support/child.h"
#include "support/daemon_process.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::handled_signals_test {
namespace {

using namespace test;

constexpr const char* statisticsPath = "/Library/Application Support/Brisko/stats.json";
constexpr double never = std::numeric_limits<double>::infinity();

bool isWrite(const platform::SmcRecord& asked) { return asked[42] == 6; }

std::string keyOf(const platform::SmcRecord& asked) { return {asked.rend() - 4, asked.rend()}; }

// Each process prints on standard error which thread wrote which key.
void tellWhoWrites(const platform::SmcRecord& asked) {
  if (!isWrite(asked)) return;
  const char* who = fakes::onMainThread() ? "main thread" : "standby";
  std::fprintf(stderr, "%s: %s\n", who, keyOf(asked).c_str());
}

// In processes that start later, keeps the main thread in each call to the controller between these times.
void holdMainThread(double from, double until) {
  fakes::gBeforeAnswer = [from, until](const platform::SmcRecord& asked) {
    tellWhoWrites(asked);
    const double now = virtual_mac::virtualNow();
    if (!fakes::onMainThread() || now < from || now >= until) return;
    fakes::waitInCall([until] { return virtual_mac::virtualNow() >= until; }, until);
  };
}

// Discharging from 90 % to the limit: the adapter is cut and charging is stopped.
MachineOptions nearlyFull() { return {.percent = 90}; }

class HandledSignals : public ::testing::Test {
 protected:
  HandledSignals() { mac.settings("{\"discharge\":true}"); }

  // Runs until 40 s after the start, which is 4 s into a call for a process that is kept in calls from 30 s
  // on.
  void runUntilItHolds(DaemonProcess& daemon) {
    daemon.run(40);
    ASSERT_EQ(mac.key("CHIE"), (std::vector<std::uint8_t>{8}));
    mac.keyBytes("ACLC", {3});
    mac.forgetJournal();
    errorsBefore = daemon.errors().size();
  }
  [[nodiscard]] std::string errors(const DaemonProcess& daemon) const {
    return daemon.errors().substr(errorsBefore);
  }

  VirtualMac mac{nearlyFull()};
  const double start = mac.machine().now;
  std::size_t errorsBefore = 0;
};

TEST_F(HandledSignals, endADaemonOnItsMainThread) {
  holdMainThread(never, never);
  DaemonProcess daemon(mac);
  runUntilItHolds(daemon);
  daemon.signal(SIGTERM).run(60);
  EXPECT_EQ(daemon.status(), 0);
  EXPECT_EQ(mac.machine().now, start + 40);
  EXPECT_EQ(errors(daemon), "main thread: CHIE\nmain thread: CHTE\nmain thread: ACLC\n");
}

TEST_F(HandledSignals, giveTheChargeBackAlthoughTheMainThreadIsStuckInACall) {
  for (const int number : {SIGINT, SIGTERM}) {
    VirtualMac other{nearlyFull()};
    other.settings("{\"discharge\":true}");
    const double begun = other.machine().now;
    holdMainThread(begun + 30, never);
    DaemonProcess daemon(other);
    daemon.run(40);
    ASSERT_EQ(other.key("CHIE"), (std::vector<std::uint8_t>{8}));
    other.keyBytes("ACLC", {3});
    other.forgetJournal();
    std::filesystem::remove(other.path(statisticsPath));

    daemon.signal(number).run(4.99);
    EXPECT_TRUE(daemon.alive());
    EXPECT_THAT(other.writes(), IsEmpty());

    daemon.run(60);
    EXPECT_EQ(daemon.status(), 0);
    EXPECT_NEAR(other.machine().now, begun + 45, 0.001);
    EXPECT_EQ(other.writes(), (Writes{"CHIE=00", "CHTE=00000000", "ACLC=00"}));
    EXPECT_THAT(daemon.errors(), EndsWith("standby: CHIE\nstandby: CHTE\nstandby: ACLC\n"));
    EXPECT_TRUE(other.exists(statisticsPath));
    EXPECT_THAT(other.logLines(), Contains(StartsWith("Signal ")).Times(1));
    EXPECT_EQ(other.logLines().back(),
              "Signal " + std::to_string(number) + ": charging, adapter and LED restored, exiting.");
  }
}

TEST_F(HandledSignals, areHandledByTheMainThreadIfItsCallReturnsInTime) {
  holdMainThread(start + 30, start + 44.9);
  DaemonProcess daemon(mac);
  runUntilItHolds(daemon);
  daemon.signal(SIGTERM).run(60);
  EXPECT_EQ(daemon.status(), 0);
  // The tick is completed first.
  EXPECT_EQ(mac.writes(), (Writes{"ACLC=01", "CHIE=00", "CHTE=00000000", "ACLC=00"}));
  EXPECT_THAT(errors(daemon), Not(HasSubstr("standby")));
  EXPECT_THAT(mac.logLines(), Contains(StartsWith("Signal ")).Times(1));
}

TEST_F(HandledSignals, areNotHandledByTheMainThreadIfItsCallReturnsTooLate) {
  holdMainThread(start + 30, start + 45.1);
  DaemonProcess daemon(mac);
  runUntilItHolds(daemon);
  daemon.signal(SIGTERM).run(60);
  EXPECT_EQ(daemon.status(), 0);
  EXPECT_THAT(errors(daemon), Not(HasSubstr("main thread")));
  EXPECT_EQ(mac.writes(), (Writes{"CHIE=00", "CHTE=00000000", "ACLC=00"}));
}

// The Mac sleeps 35 s after its announcement, because the daemon does not answer for 30 s and the display is
// dark for 5 s, and thus within the 5 s after the signal.
TEST_F(HandledSignals, waitForTheMainThreadOnlyWhileTheMacIsAwake) {
  holdMainThread(start + 30, never);
  DaemonProcess daemon(mac);
  runUntilItHolds(daemon);
  mac.sleep();
  daemon.run(31);
  const double uptime = virtual_mac::uptimeOf(mac.machine());
  daemon.signal(SIGTERM).run(600);
  ASSERT_TRUE(mac.machine().system.asleep);
  EXPECT_TRUE(daemon.alive());
  mac.wake();
  daemon.run(60);
  EXPECT_EQ(daemon.status(), 0);
  EXPECT_NEAR(virtual_mac::uptimeOf(mac.machine()), uptime + 5, 0.001);
  EXPECT_THAT(mac.writes(), Contains("CHIE=00"));
}

// It was about to stop charging: the first of two keys is written, and the second would follow.
TEST_F(HandledSignals, stopTheMainThreadBeforeItsNextKeyIfItsCallReturnsMeanwhile) {
  VirtualMac other({.gate = GateKind::ch0b0c});
  fakes::gBeforeAnswer = [cameOut = false](const platform::SmcRecord& asked) mutable {
    if (!isWrite(asked)) return;
    tellWhoWrites(asked);
    if (!fakes::onMainThread()) {
      if (!std::exchange(cameOut, true)) fakes::letMainThreadRun();
    } else if (keyOf(asked) == "CH0B" && asked[48] == 2) {
      fakes::waitInCall([&cameOut] { return cameOut; });
      std::fputs("main thread: came out\n", stderr);
    }
  };
  DaemonProcess daemon(other);
  daemon.run(30);
  other.charge(90);
  daemon.run(60);
  ASSERT_THAT(other.writes(), Contains("CH0B=02"));
  other.forgetJournal();

  daemon.signal(SIGTERM).run(60);
  EXPECT_EQ(daemon.status(), 0);
  EXPECT_EQ(other.writes(), (Writes{"CHIE=00", "CH0B=00", "CH0C=00", "ACLC=00"}));
  EXPECT_THAT(daemon.errors(), EndsWith("standby: CHIE\nmain thread: came out\n"
                                        "standby: CH0B\nstandby: CH0C\nstandby: ACLC\n"));
  EXPECT_THAT(other.logLines().back(), StartsWith("Signal 15: "));
  EXPECT_THAT(other.logLines(), Not(Contains(StartsWith("→ state: hold"))));
}

// It was about to turn the light green and is stuck in the log line before that. The other thread can still
// log.
TEST_F(HandledSignals, stopTheMainThreadBeforeItsNextKeyIfItWasStuckInItsLog) {
  fakes::gBeforeAnswer = tellWhoWrites;
  fakes::gBeforeWrite = [cameOut = false](std::string_view text) mutable {
    const bool isLastLine = text.find("Signal 15: ") != std::string_view::npos;
    if (fakes::onMainThread() && text.find("→ state: hold") != std::string_view::npos) {
      fakes::waitInCall([&cameOut] { return cameOut; });
      std::fputs("main thread: came out\n", stderr);
    } else if (!fakes::onMainThread() && isLastLine && !std::exchange(cameOut, true)) {
      fakes::letMainThreadRun();
    }
  };
  VirtualMac other;
  DaemonProcess daemon(other);
  daemon.run(30);
  other.charge(90);
  daemon.run(60);
  ASSERT_THAT(other.writes(), Contains("CHTE=01000000"));
  other.forgetJournal();

  daemon.signal(SIGTERM).run(60);
  EXPECT_EQ(daemon.status(), 0);
  EXPECT_EQ(other.writes(), (Writes{"CHIE=00", "CHTE=00000000", "ACLC=00"}));
  // Its line goes to standard output first and then to the file.
  EXPECT_THAT(daemon.errors(), EndsWith("standby: ACLC\nmain thread: came out\nmain thread: came out\n"));
  EXPECT_EQ(other.logLines().back(), "Signal 15: charging, adapter and LED restored, exiting.");
}

TEST_F(HandledSignals, areLeftToTheMainThreadOnceItHandlesThem) {
  fakes::gBeforeAnswer = [this](const platform::SmcRecord& asked) {
    tellWhoWrites(asked);
    const bool givesBack = virtual_mac::virtualNow() >= start + 40 && isWrite(asked);
    if (fakes::onMainThread() && givesBack) fakes::waitInCall([] { return false; });
  };
  DaemonProcess daemon(mac);
  runUntilItHolds(daemon);
  daemon.signal(SIGTERM).run(30);
  daemon.signal(SIGINT).run(30);
  EXPECT_TRUE(daemon.alive());
  EXPECT_EQ(mac.writes(), (Writes{"CHIE=00"}));
  EXPECT_EQ(errors(daemon), "main thread: CHIE\n");
}

// The parent of the process may have blocked the signal, and the signal may be pending.
TEST(HandledSignal, isHandledAlsoIfItWasBlockedBefore) {
  const VirtualMac mac;
  sigset_t terminate;
  sigemptyset(&terminate);
  sigaddset(&terminate, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &terminate, nullptr);
  ::raise(SIGTERM);
  static int taken = 0;
  platform::installSignalHandler(SIGTERM, [](int) { taken += 1; });
  platform::postMainAfter(1, [] { ::raise(SIGTERM); });
  platform::postMainAfter(2, [] { platform::stopMain(); });
  platform::runMain();
  EXPECT_EQ(taken, 2);
}

TEST(HandledSignal, mayBeGivenAnotherHandler) {
  const VirtualMac mac;
  static std::string taken;
  platform::installSignalHandler(SIGTERM, [](int) { taken += "one "; });
  platform::installSignalHandler(SIGTERM, [](int) { taken += "other "; });
  platform::postMainAfter(1, [] { ::raise(SIGTERM); });
  platform::postMainAfter(2, [] { platform::stopMain(); });
  platform::runMain();
  EXPECT_EQ(taken, "other ");
}

// Then nobody stands by for the main thread.
TEST(HandledSignal, isHandledWithoutASecondThread) {
  for (const char* function : {"semaphore_create", "pthread_create"}) {
    const auto ended = inChild([function] {
      const VirtualMac mac;
      fakes::gFailing = function;
      platform::installSignalHandler(SIGTERM, [](int) { tell("taken"); });
      platform::postMainAfter(1, [] { ::raise(SIGTERM); });
      platform::postMainAfter(2, [] { platform::stopMain(); });
      platform::runMain();
    });
    EXPECT_EQ(ended.output, "taken") << function;
  }
}

TEST(HandledSignal, isPassedOnAlthoughAnotherSignalEndsTheWaitForThat) {
  const VirtualMac mac;
  static int taken = 0;
  fakes::gNextWaitIsAborted = true;
  platform::installSignalHandler(SIGTERM, [](int) { taken += fakes::onMainThread() ? 1 : 10; });
  platform::postMainAfter(1, [] { ::raise(SIGTERM); });
  platform::postMainAfter(2, [] { platform::stopMain(); });
  platform::runMain();
  EXPECT_EQ(taken, 1);
}

// The standby thread has handled the signal, and its handler has returned.
TEST(HandledSignal, stopsAMainThreadThatContinuesTooLate) {
  const auto ended = inChild([] {
    VirtualMac mac;
    const double end = mac.machine().now + 60;
    virtual_mac::setHorizon(end, []() -> double { ::_exit(7); });
    platform::installSignalHandler(SIGTERM, [](int) { tell(fakes::onMainThread() ? "main" : "standby"); });
    platform::postMainAfter(1, [] {
      ::raise(SIGTERM);
      const double back = virtual_mac::virtualNow() + 10;
      fakes::waitInCall([back] { return virtual_mac::virtualNow() >= back; }, back);
    });
    platform::postMainAfter(20, [] { tell(" continues"); });
    platform::runMain();
  });
  EXPECT_EQ(ended.output, "standby");
  EXPECT_EQ(ended.status, 7);
}

}  // namespace
}  // namespace brisko::handled_signals_test
