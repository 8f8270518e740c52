// A simulated process is a whole process and is paused when the test says so. Other tests rely on this.

#include "support/daemon_process.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include "support/testing.h"

namespace brisko::test::daemon_process_test {
namespace {

using virtual_mac::SmcService;

TEST(DaemonProcess, doesNothingUntilTheTestRunsIt) {
  VirtualMac mac;
  const double begin = mac.machine().now;
  {
    const DaemonProcess daemon(mac);
    EXPECT_TRUE(daemon.alive());
    EXPECT_FALSE(daemon.status().has_value());
    EXPECT_FALSE(daemon.endSignal().has_value());
  }
  EXPECT_EQ(mac.machine().now, begin);
  EXPECT_EQ(mac.machine().system.processes, 0U);
  EXPECT_THAT(mac.journal(), IsEmpty());
}

TEST(DaemonProcess, runsUpToItsFirstWaitWithoutTimePassing) {
  VirtualMac mac;
  const double begin = mac.machine().now;
  DaemonProcess daemon(mac);
  daemon.run(0);
  EXPECT_TRUE(daemon.alive());
  EXPECT_EQ(mac.machine().now, begin);
  EXPECT_EQ(mac.machine().system.processes, 1U);
  EXPECT_THAT(mac.logLines(), Not(IsEmpty()));
}

TEST(DaemonProcess, isPausedExactlyAtItsHorizon) {
  VirtualMac mac;
  const double begin = mac.machine().now;
  DaemonProcess daemon(mac);
  for (const double seconds : {0.25, 12.0, 3600.0, 7200.0}) {
    const double before = mac.machine().now;
    daemon.run(seconds);
    EXPECT_EQ(mac.machine().now, before + seconds);
  }
  EXPECT_EQ(mac.machine().now, begin + 0.25 + 12 + 3600 + 7200);
}

TEST(DaemonProcess, seesWhatTheTestChangedWhileItWasPaused) {
  VirtualMac mac;
  DaemonProcess daemon(mac);
  daemon.run(30);
  mac.charge(95);
  mac.settings("{\"limit\":60}");
  daemon.run(12);
  EXPECT_THAT(mac.logLines().back(), StartsWith("cap 60%  batt 95%"));
}

TEST(DaemonProcess, endsByTheSignalThatTheTestSends) {
  VirtualMac mac;
  DaemonProcess daemon(mac);
  daemon.signal(SIGTERM).run(60);
  EXPECT_FALSE(daemon.alive());
  EXPECT_EQ(daemon.endSignal(), SIGTERM) << "it has no handler before the start";
  EXPECT_FALSE(daemon.status().has_value());
}

TEST(DaemonProcess, handlesASignalWhenItResumes) {
  VirtualMac mac;
  DaemonProcess daemon(mac);
  daemon.run(30);
  const std::size_t linesBefore = mac.logLines().size();
  daemon.signal(SIGTERM);
  EXPECT_THAT(mac.logLines(), SizeIs(linesBefore));
  const double now = mac.machine().now;
  daemon.run(60);
  EXPECT_EQ(daemon.status(), 0);
  EXPECT_EQ(mac.machine().now, now);
  EXPECT_THAT(mac.logLines().back(), StartsWith("Signal 15: "));
}

TEST(DaemonProcess, endsByAPlannedSignalAtItsMoment) {
  VirtualMac mac;
  const double begin = mac.machine().now;
  DaemonProcess daemon(mac);
  daemon.run(0);
  mac.later(100, {.kind = ChangeKind::signal, .number = SIGINT});
  daemon.run(600);
  EXPECT_EQ(daemon.status(), 0);
  EXPECT_EQ(mac.machine().now, begin + 100);
}

TEST(DaemonProcess, endsByKillWithoutAnyHook) {
  VirtualMac mac;
  DaemonProcess daemon(mac);
  daemon.run(30);
  mac.forgetJournal();
  daemon.kill();
  EXPECT_FALSE(daemon.alive());
  EXPECT_EQ(daemon.endSignal(), SIGKILL);
  EXPECT_THAT(mac.journal(), IsEmpty());
}

TEST(DaemonProcess, endsWithTheStatusAndTheOutputOfTheProgram) {
  VirtualMac mac;
  mac.number(ChangeKind::smcService, static_cast<double>(SmcService::absent));
  DaemonProcess daemon(mac);
  daemon.run(60);
  EXPECT_EQ(daemon.status(), 1);
  EXPECT_FALSE(daemon.endSignal().has_value());
  EXPECT_EQ(daemon.output(), "");
  EXPECT_THAT(daemon.errors(), ::testing::EndsWith("Could not open AppleSMC.\n"));
}

TEST(DaemonProcess, endsByItselfInAModeThatOnlyPrints) {
  VirtualMac mac;
  DaemonProcess daemon(mac, {"--version"});
  daemon.run(0);
  EXPECT_EQ(daemon.status(), 0);
  EXPECT_EQ(daemon.output(), "0.9.9\n");
  EXPECT_EQ(daemon.errors(), "");
}

VirtualMac* gMacOfTheHook = nullptr;

TEST(DaemonProcess, runsTheExitHooksAsAfterMain) {
  VirtualMac mac;
  gMacOfTheHook = &mac;
  std::atexit([] {
    // Not at the end of the test's process, when the machine no longer exists.
    if (gMacOfTheHook != nullptr) gMacOfTheHook->store().update().machine().battery.cycles += 1000;
  });
  const std::int64_t before = mac.machine().battery.cycles;
  DaemonProcess daemon(mac, {"--version"});
  daemon.run(0);
  ASSERT_EQ(daemon.status(), 0);
  EXPECT_EQ(mac.machine().battery.cycles, before + 1000);
  gMacOfTheHook = nullptr;
}

TEST(DaemonProcess, doesNotRunAfterItsEnd) {
  VirtualMac mac;
  DaemonProcess daemon(mac, {"--version"});
  daemon.run(0);
  const double now = mac.machine().now;
  daemon.run(60).signal(SIGTERM).kill();
  EXPECT_EQ(daemon.status(), 0);
  EXPECT_EQ(mac.machine().now, now);
}

TEST(DaemonProcess, keepsItsOutputApartFromThatOfTheTest) {
  VirtualMac mac;
  std::fputs("of the test", stdout);  // still in the buffer when the child is forked
  DaemonProcess daemon(mac, {"--version"});
  daemon.run(0);
  EXPECT_EQ(daemon.output(), "0.9.9\n");
}

TEST(DaemonProcess, canFollowAnotherOnTheSameMachine) {
  VirtualMac mac;
  for (std::uint64_t number = 1; number <= 3; ++number) {
    DaemonProcess daemon(mac);
    daemon.run(60);
    EXPECT_TRUE(daemon.alive());
    EXPECT_EQ(mac.machine().system.processes, number);
  }
}

TEST(DaemonProcess, writesTheSameBytesInEveryRun) {
  std::string first;
  for (int time = 0; time < 2; ++time) {
    VirtualMac mac;
    DaemonProcess daemon(mac);
    daemon.run(3600);
    mac.unplug();
    daemon.run(3600);
    mac.plugIn();
    daemon.run(3600).signal(SIGTERM).run(1);
    const std::string log = mac.read("/Library/Logs/Brisko/daemon.log");
    EXPECT_GT(log.size(), 1000U);
    if (time == 0) first = log;
    EXPECT_EQ(log, first);
  }
}

}  // namespace
}  // namespace brisko::test::daemon_process_test
