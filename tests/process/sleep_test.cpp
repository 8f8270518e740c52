// Sleep of a live machine: its daemon is paused, is woken by a user or by the wake that it scheduled, and
// continues.

#include <csignal>
#include <ctime>

#include "process/live_mac.h"
#include "process/program.h"
#include "support/testing.h"

namespace brisko::sleep_test {
namespace {

using namespace test;

constexpr double speed = 60;  // a real second is a minute of machine time

std::string atSpeed() { return std::to_string(static_cast<int>(speed)); }

bool falls(const LiveMac& mac) {
  return eventually([&] { return mac.vmac("show").find(", asleep)") != std::string::npos; });
}

// Waits until so much machine time has passed.
void passFor(double machineSeconds) {
  const double real = machineSeconds / speed;
  const auto whole = static_cast<time_t>(real);
  const timespec wait{whole, static_cast<long>((real - static_cast<double>(whole)) * 1e9)};
  static_cast<void>(::nanosleep(&wait, nullptr));
}

TEST(LiveSleep, pausesTheDaemonUntilAWake) {
  const LiveMac mac({"--charge", "80", "--speed", atSpeed()});
  const auto daemon = mac.daemon();
  ASSERT_TRUE(mac.logs("batt 80%"));
  static_cast<void>(mac.vmac("sleep"));
  ASSERT_TRUE(mac.logs("veille à 80% — grille fermée pour la nuit (plage 75–80%)"));
  ASSERT_TRUE(falls(mac));
  // For five heartbeats, each of which would notice the new charge.
  const std::string before = mac.log();
  static_cast<void>(mac.vmac("set", {"charge=40"}));
  passFor(60);
  EXPECT_EQ(mac.log(), before);
  static_cast<void>(mac.vmac("wake"));
  EXPECT_TRUE(mac.logs("→ state: allow"));
  EXPECT_THAT(mac.vmac("show"), Not(HasSubstr("asleep")));
  static_cast<void>(mac.vmac("set", {"charge=90"}));
  EXPECT_TRUE(eventually([&] {
    return mac.log().rfind("→ state: hold") > mac.log().rfind("→ state: allow");
  })) << "the timers run on";
}

TEST(LiveSleep, isInterruptedByADarkWakeInWhichTimersRun) {
  const LiveMac mac({"--charge", "80", "--speed", atSpeed()});
  const auto daemon = mac.daemon();
  ASSERT_TRUE(mac.logs("batt 80%"));
  static_cast<void>(mac.vmac("sleep", {"--idle"}));
  ASSERT_TRUE(falls(mac));
  static_cast<void>(mac.vmac("set", {"charge=40"}));
  static_cast<void>(mac.vmac("wake", {"--dark", "600"}));
  EXPECT_THAT(mac.vmac("show"), HasSubstr(", dark wake)"));
  EXPECT_TRUE(mac.logs("→ state: allow"));
  static_cast<void>(mac.vmac("speed", {"6000"}));
  EXPECT_TRUE(falls(mac)) << "and it sleeps on";
  const std::string journal = mac.vmac("show", {"--journal", "8192"});
  EXPECT_THAT(journal, HasSubstr("allowed CanSystemSleep"));
  EXPECT_LT(journal.find("heard WillSleep"), journal.find("allowed WillSleep"));
  EXPECT_THAT(journal, Not(HasSubstr("heard HasPoweredOn")));
}

TEST(LiveSleep, endsByTheWakeThatTheDaemonScheduled) {
  const LiveMac mac({"--charge", "72", "--speed", atSpeed()});
  const auto daemon = mac.daemon();
  ASSERT_TRUE(mac.logs("batt 72%"));
  static_cast<void>(mac.vmac("sleep"));
  ASSERT_TRUE(mac.logs("réveil programmé dans "));
  ASSERT_TRUE(falls(mac));
  EXPECT_THAT(mac.vmac("show"), ContainsRegex("scheduled    wake at [-0-9: ]+ UTC by com.brisko.daemon"));
  // Nothing else advances the machine now, so the daemon's own loop must wake for the event.
  static_cast<void>(mac.vmac("speed", {"600"}));
  EXPECT_TRUE(mac.logs("→ state: hold"));
  EXPECT_THAT(mac.vmac("show"), Not(HasSubstr("scheduled    ")));
}

TEST(LiveSleep, doesNotWaitForADaemonThatWasKilled) {
  const LiveMac mac({"--charge", "72", "--speed", "1"});
  const auto daemon = mac.daemon();
  ASSERT_TRUE(mac.logs("batt 72%"));
  daemon->signal(SIGKILL);
  ASSERT_TRUE(daemon->ends());
  static_cast<void>(mac.vmac("sleep"));
  // At once, not after half a minute.
  EXPECT_TRUE(falls(mac));
}

TEST(LiveSleep, endsADaemonThatGetsASignal) {
  const LiveMac mac({"--charge", "72", "--speed", atSpeed()});
  const auto daemon = mac.daemon();
  ASSERT_TRUE(mac.logs("batt 72%"));
  static_cast<void>(mac.vmac("sleep"));
  ASSERT_TRUE(falls(mac));
  EXPECT_THAT(mac.vmac("show"), HasSubstr("scheduled    "));
  daemon->signal(SIGTERM);
  ASSERT_TRUE(daemon->ends());
  EXPECT_EQ(daemon->status(), 0);
  EXPECT_THAT(mac.vmac("show"), Not(HasSubstr("scheduled    ")));
}

TEST(LiveSleep, reportsInvalidArguments) {
  const LiveMac mac;
  for (const char* seconds : {"0", "soon", "-5", "4000"}) {
    const Finished finished = run("brisko-vmac", {"wake", mac.folder(), "--dark", seconds});
    EXPECT_EQ(finished.status, 2) << seconds;
    EXPECT_EQ(finished.output, "");
  }
}

}  // namespace
}  // namespace brisko::sleep_test
