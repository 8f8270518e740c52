// That a simulated life is a whole one, and stands still where the test wants it to. Other tests trust in
// this.

#include "support/life.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace brisko::test {
namespace {

using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::SizeIs;
using ::testing::StartsWith;
using virtual_mac::ChangeKind;
using virtual_mac::SmcService;

TEST(Life, doesNothingUntilItIsLetRun) {
  VirtualMac mac;
  const double begin = mac.machine().now;
  {
    const Life life(mac);
    EXPECT_TRUE(life.alive());
    EXPECT_FALSE(life.status().has_value());
    EXPECT_FALSE(life.endSignal().has_value());
  }
  EXPECT_EQ(mac.machine().now, begin);
  EXPECT_EQ(mac.machine().system.lives, 0U);
  EXPECT_THAT(mac.journal(), IsEmpty());
}

TEST(Life, runsUpToItsFirstWaitWithoutTimePassing) {
  VirtualMac mac;
  const double begin = mac.machine().now;
  Life life(mac);
  life.run(0);
  EXPECT_TRUE(life.alive());
  EXPECT_EQ(mac.machine().now, begin);
  EXPECT_EQ(mac.machine().system.lives, 1U);
  EXPECT_THAT(mac.logLines(), Not(IsEmpty()));
}

TEST(Life, standsStillExactlyAtItsHorizon) {
  VirtualMac mac;
  const double begin = mac.machine().now;
  Life life(mac);
  for (const double seconds : {0.25, 12.0, 3600.0, 86'400.0}) {
    const double before = mac.machine().now;
    life.run(seconds);
    EXPECT_EQ(mac.machine().now, before + seconds);
  }
  EXPECT_EQ(mac.machine().now, begin + 0.25 + 12 + 3600 + 86'400);
}

TEST(Life, seesWhatTheTestChangedWhileItStoodStill) {
  VirtualMac mac;
  Life life(mac);
  life.run(30);
  mac.charge(95);
  mac.settings("{\"limit\":60}");
  life.run(12);
  EXPECT_THAT(mac.logLines().back(), StartsWith("cap 60%  batt 95%"));
}

TEST(Life, endsByTheSignalThatTheTestSends) {
  VirtualMac mac;
  Life life(mac);
  life.signal(SIGTERM).run(60);
  EXPECT_FALSE(life.alive());
  EXPECT_EQ(life.endSignal(), SIGTERM) << "nobody handles it before the start";
  EXPECT_FALSE(life.status().has_value());
}

TEST(Life, takesASignalOnceItRunsOn) {
  VirtualMac mac;
  Life life(mac);
  life.run(30);
  const std::size_t linesBefore = mac.logLines().size();
  life.signal(SIGTERM);
  EXPECT_THAT(mac.logLines(), SizeIs(linesBefore));
  const double now = mac.machine().now;
  life.run(60);
  EXPECT_EQ(life.status(), 0);
  EXPECT_EQ(mac.machine().now, now);
  EXPECT_THAT(mac.logLines().back(), StartsWith("Signal 15: "));
}

TEST(Life, endsByAPlannedSignalAtItsMoment) {
  VirtualMac mac;
  const double begin = mac.machine().now;
  Life life(mac);
  life.run(0);
  mac.later(100, {.kind = ChangeKind::signal, .number = SIGINT});
  life.run(600);
  EXPECT_EQ(life.status(), 0);
  EXPECT_EQ(mac.machine().now, begin + 100);
}

TEST(Life, endsByKillWithoutAnyHook) {
  VirtualMac mac;
  Life life(mac);
  life.run(30);
  mac.forgetJournal();
  life.kill();
  EXPECT_FALSE(life.alive());
  EXPECT_EQ(life.endSignal(), SIGKILL);
  EXPECT_THAT(mac.journal(), IsEmpty());
}

TEST(Life, endsWithTheStatusAndTheWordsOfTheProgram) {
  VirtualMac mac;
  mac.number(ChangeKind::smcService, static_cast<double>(SmcService::absent));
  Life life(mac);
  life.run(60);
  EXPECT_EQ(life.status(), 1);
  EXPECT_FALSE(life.endSignal().has_value());
  EXPECT_EQ(life.output(), "");
  EXPECT_THAT(life.errors(), ::testing::EndsWith("Could not open AppleSMC.\n"));
}

TEST(Life, ofAModeThatOnlyAnswersEndsByItself) {
  VirtualMac mac;
  Life life(mac, {"--version"});
  life.run(0);
  EXPECT_EQ(life.status(), 0);
  EXPECT_EQ(life.output(), "0.9.9\n");
  EXPECT_EQ(life.errors(), "");
}

VirtualMac* gMacOfTheHook = nullptr;

TEST(Life, runsTheExitHooksAsAfterMain) {
  VirtualMac mac;
  gMacOfTheHook = &mac;
  std::atexit([] {
    // Not at the end of this process, when the machine is gone.
    if (gMacOfTheHook != nullptr) gMacOfTheHook->store().update().machine().battery.cycles += 1000;
  });
  const std::int64_t before = mac.machine().battery.cycles;
  Life life(mac, {"--version"});
  life.run(0);
  ASSERT_EQ(life.status(), 0);
  EXPECT_EQ(mac.machine().battery.cycles, before + 1000);
  gMacOfTheHook = nullptr;
}

TEST(Life, afterItsEndRunsNoMore) {
  VirtualMac mac;
  Life life(mac, {"--version"});
  life.run(0);
  const double now = mac.machine().now;
  life.run(60).signal(SIGTERM).kill();
  EXPECT_EQ(life.status(), 0);
  EXPECT_EQ(mac.machine().now, now);
}

TEST(Life, keepsWhatItWroteApartFromTheTestsOwnOutput) {
  VirtualMac mac;
  std::fputs("of the test", stdout);  // still in the buffer when the child is made
  Life life(mac, {"--version"});
  life.run(0);
  EXPECT_EQ(life.output(), "0.9.9\n");
}

TEST(Life, followsAnotherOnTheSameMachine) {
  VirtualMac mac;
  for (std::uint64_t number = 1; number <= 3; ++number) {
    Life life(mac);
    life.run(60);
    EXPECT_TRUE(life.alive());
    EXPECT_EQ(mac.machine().system.lives, number);
  }
}

TEST(Life, givesTheSameBytesEachTime) {
  std::string first;
  for (int time = 0; time < 2; ++time) {
    VirtualMac mac;
    Life life(mac);
    life.run(3600);
    mac.unplug();
    life.run(3600);
    mac.plugIn();
    life.run(6 * 3600).signal(SIGTERM).run(1);
    const std::string log = mac.read("/Library/Logs/Brisko/daemon.log");
    EXPECT_GT(log.size(), 1000U);
    if (time == 0) first = log;
    EXPECT_EQ(log, first);
  }
}

}  // namespace
}  // namespace brisko::test
