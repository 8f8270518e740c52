// Nights: the Mac sleeps, and in the morning the charge is where it should be.

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <memory>
#include <random>
#include <string>

#include "sim/process/shared_memory.h"
#include "sim/seam/simulated/driver.h"
#include "support/daemon_process.h"
#include "support/descriptors.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::night_test {
namespace {

using namespace test;
using Bytes = std::vector<std::uint8_t>;

constexpr double hour = 3600;

// A Mac on its adapter with the daemon on it, up for some minutes. At night only the daemon and the test wake
// it, unless they say otherwise.
class Night : public ::testing::Test {
 protected:
  void begin(double percent, const std::string& settings = "{}") {
    mac = std::make_unique<VirtualMac>(MachineOptions{.percent = percent});
    mac->settings(settings);
    mac->change({.kind = ChangeKind::nights, .number = static_cast<double>(virtual_mac::Nights::quiet)});
    daemon = std::make_unique<DaemonProcess>(*mac);
    daemon->run(90);
    static_cast<void>(newLines());
    mac->forgetJournal();
  }
  // Closes the lid and runs until the Mac sleeps.
  void sleep() {
    mac->sleep();
    daemon->run(5);
    ASSERT_TRUE(mac->machine().system.asleep);
  }
  // Opens the lid and runs until the daemon was notified.
  void wake() {
    mac->wake();
    daemon->run(5);
    ASSERT_FALSE(mac->machine().system.asleep);
  }
  void refuse(virtual_mac::SleepRefusal refusal) {
    mac->number(ChangeKind::sleepRefused, static_cast<double>(refusal));
  }
  [[nodiscard]] std::vector<std::string> newLines() { return mac->newLogLines(); }
  [[nodiscard]] double level() const { return virtual_mac::level(mac->machine()); }

  std::unique_ptr<VirtualMac> mac;
  std::unique_ptr<DaemonProcess> daemon;
};

TEST_F(Night, keepsTheGateClosedInsideTheBand) {
  begin(78);
  sleep();
  EXPECT_THAT(newLines(), Contains("veille à 78% — grille fermée pour la nuit (plage 75–80%)"));
  daemon->run(9 * hour);
  EXPECT_NEAR(level(), 78, 0.5);
  EXPECT_EQ(mac->key("CHTE"), (Bytes{1, 0, 0, 0}));
  EXPECT_THAT(newLines(), IsEmpty());
  wake();
  EXPECT_NEAR(level(), 78, 0.5);
}

TEST_F(Night, isAnnouncedThenPlannedThenAllowed) {
  begin(70);
  mac->charge(78);
  daemon->run(1);
  mac->forgetJournal();
  sleep();
  // The rest is the light, which blinks on until the Mac is really asleep.
  const Writes writes = mac->writes();
  ASSERT_GE(writes.size(), 5U);
  EXPECT_EQ(Writes(writes.begin(), writes.begin() + 4),
            (Writes{"heard WillSleep", "CHIE=00", "CHTE=01000000", "allowed WillSleep"}));
  EXPECT_THAT(Writes(writes.begin() + 4, writes.end()), Each(StartsWith("ACLC=")));
  daemon->run(hour);
  mac->forgetJournal();
  mac->wake();
  daemon->run(1.9);
  EXPECT_THAT(mac->writes(), Not(Contains("heard HasPoweredOn")));
  daemon->run(0.2);
  EXPECT_THAT(mac->writes(), Contains("heard HasPoweredOn").Times(1));
}

TEST_F(Night, isAllowedAtOnceForAnIdleMac) {
  begin(78);
  mac->change({.kind = ChangeKind::idleSleep});
  daemon->run(5);
  EXPECT_TRUE(mac->machine().system.asleep);
  EXPECT_THAT(mac->writes(), IsSupersetOf({"heard CanSystemSleep", "allowed CanSystemSleep",
                                           "heard WillSleep", "allowed WillSleep"}));
  EXPECT_EQ(mac->machine().sleep.strayAnswers, 0U);
}

TEST_F(Night, neverDischargesAboveTheLimit) {
  begin(95, "{\"discharge\":true}");
  ASSERT_EQ(mac->key("CHIE"), (Bytes{8}));
  sleep();
  EXPECT_EQ(mac->key("CHIE"), (Bytes{0}));
  for (int nap = 0; nap < 8; ++nap) {
    mac->wakeDark(60);
    daemon->run(hour);
    EXPECT_EQ(mac->key("CHIE"), (Bytes{0})) << nap;
  }
  EXPECT_NEAR(level(), 95, 1);
  EXPECT_THAT(mac->logLines(), Contains(StartsWith("réveil de maintenance à 95%")).Times(1));
  wake();
  EXPECT_EQ(mac->key("CHIE"), (Bytes{8})) << "in the full wake it resumes";
}

TEST_F(Night, chargesBelowTheBandUntilTheScheduledWakeClosesTheGateAtTheLimit) {
  begin(70);
  sleep();
  const auto lines = newLines();
  EXPECT_THAT(lines, Contains(StartsWith("réveil programmé dans ")));
  EXPECT_THAT(mac->pendingWakes(), SizeIs(1));
  EXPECT_EQ(mac->key("CHTE"), (Bytes{0, 0, 0, 0}));
  daemon->run(9 * hour);
  EXPECT_TRUE(mac->machine().system.asleep);
  EXPECT_EQ(mac->key("CHTE"), (Bytes{1, 0, 0, 0}));
  // The estimate uses the design capacity of the battery, the gauge its present capacity.
  EXPECT_GE(level(), 79);
  EXPECT_LE(level(), 83);
  const auto darkLines = newLines();
  ASSERT_THAT(darkLines, SizeIs(::testing::Ge(2U)));
  EXPECT_EQ(darkLines[0], "→ state: hold");
  EXPECT_THAT(darkLines, Not(Contains(HasSubstr("allow"))));
  wake();
  EXPECT_THAT(mac->pendingWakes(), IsEmpty());
}

// An estimate is at most 45 min. In the dark wake the tick finds that the limit is not reached and lets the
// Mac charge. The Mac then sleeps again without an announcement, so no other wake is scheduled.
TEST_F(Night, schedulesOneWakeOnlyFarBelowTheBand) {
  begin(20);
  sleep();
  EXPECT_THAT(newLines(), Contains("réveil programmé dans 45 min pour reprendre la charge en main"));
  daemon->run(46 * 60);
  EXPECT_TRUE(mac->machine().system.asleep);
  EXPECT_LT(level(), 70);
  EXPECT_EQ(mac->key("CHTE"), (Bytes{0, 0, 0, 0}));
  EXPECT_THAT(mac->pendingWakes(), IsEmpty());
  daemon->run(2 * hour);
  wake();
  EXPECT_EQ(mac->key("CHTE"), (Bytes{1, 0, 0, 0}));
}

// With the lid closed a scheduled wake may be full for some seconds; then the sleep is announced again.
TEST_F(Night, farBelowTheBandPlansAnewWhenTheScheduledWakeIsPromoted) {
  begin(20);
  mac->number(ChangeKind::scheduledWakes, 1);
  sleep();
  daemon->run(9 * hour);
  const Writes writes = mac->writes();
  EXPECT_GE(std::count(writes.begin(), writes.end(), "wake scheduled"), 2);
  EXPECT_GE(std::count(writes.begin(), writes.end(), "heard HasPoweredOn"), 2);
  EXPECT_LE(mac->pendingWakes().size(), 1U);
  EXPECT_TRUE(mac->machine().system.asleep);
  EXPECT_EQ(mac->key("CHTE"), (Bytes{1, 0, 0, 0}));
  EXPECT_LE(level(), 84);
  EXPECT_GE(level(), 79);
}

TEST_F(Night, farBelowTheBandIsSeenToInADarkWakeOfTheUpkeepToo) {
  begin(20);
  mac->change({.kind = ChangeKind::nights, .number = static_cast<double>(virtual_mac::Nights::upkeep)});
  sleep();
  daemon->run(9 * hour);
  EXPECT_EQ(mac->key("CHTE"), (Bytes{1, 0, 0, 0}));
  EXPECT_GT(level(), 80) << "two hours is a long time";
  EXPECT_THAT(mac->writes(), Not(Contains("heard HasPoweredOn")));
}

TEST_F(Night, withoutAWakeToScheduleIsWarnedOfAndSleptThrough) {
  begin(60);
  mac->change({.kind = ChangeKind::scheduleStatus, .status = platform::kernelNotPrivileged});
  sleep();
  EXPECT_THAT(
      newLines(),
      Contains(
          "⚠️ impossible de programmer un réveil — la limite sera réappliquée au prochain réveil"));
  daemon->run(9 * hour);
  EXPECT_GT(level(), 95) << "no wake closed the gate";
  wake();
  EXPECT_EQ(mac->key("CHTE"), (Bytes{1, 0, 0, 0}));
}

TEST_F(Night, thatIsCancelledIsForgottenWithTheMessageOfTheWake) {
  begin(70);
  refuse(virtual_mac::SleepRefusal::cancelled);
  mac->sleep();
  daemon->run(1);
  EXPECT_THAT(mac->pendingWakes(), SizeIs(1));
  daemon->run(2);
  EXPECT_THAT(mac->pendingWakes(), IsEmpty());
  EXPECT_THAT(mac->writes(), IsSupersetOf({"heard WillPowerOn", "heard HasPoweredOn", "wake cancelled"}));
  mac->charge(85);
  daemon->run(14);
  EXPECT_THAT(newLines(), Contains("→ state: hold")) << "no longer suppressed";
}

TEST_F(Night, ofAnIdleMacThatIsVetoedChangesNothing) {
  begin(70);
  refuse(virtual_mac::SleepRefusal::vetoed);
  mac->change({.kind = ChangeKind::idleSleep});
  daemon->run(5);
  EXPECT_THAT(mac->writes(), IsSupersetOf({"allowed CanSystemSleep", "heard WillNotSleep"}));
  EXPECT_THAT(mac->writes(), Not(Contains("wake scheduled")));
  EXPECT_EQ(mac->machine().sleep.strayAnswers, 0U);
}

TEST_F(Night, thatIsRefusedLetsTheTicksGoOnAfter30Seconds) {
  begin(70);
  refuse(virtual_mac::SleepRefusal::inDarkness);
  mac->sleep();
  daemon->run(1);
  mac->charge(85);
  daemon->run(28);
  EXPECT_THAT(newLines(), Not(Contains("→ state: hold")));
  daemon->run(14);
  EXPECT_THAT(newLines(), Contains("→ state: hold"));
  EXPECT_FALSE(mac->machine().system.asleep);
}

TEST_F(Night, restoresTheStateIfTheSleepIsRefusedInsideTheBand) {
  begin(76);
  daemon->run(60);
  refuse(virtual_mac::SleepRefusal::inDarkness);
  mac->charge(75).sleep();
  daemon->run(1);
  EXPECT_EQ(mac->key("CHTE"), (Bytes{1, 0, 0, 0}));
  daemon->run(45);
  EXPECT_EQ(mac->key("CHTE"), (Bytes{0, 0, 0, 0})) << "at the floor it charges";
}

TEST_F(Night, mayLastForWeeks) {
  begin(78);
  sleep();
  daemon->run(40 * 24 * hour);
  EXPECT_THAT(newLines(), Contains(StartsWith("veille à 78%")));
  EXPECT_NEAR(level(), 78, 1);
  wake();
  EXPECT_TRUE(daemon->alive());
  daemon->run(600);
  EXPECT_NEAR(level(), 78, 1);
}

TEST_F(Night, countsOneHeartbeatAndOneMinuteOfStatisticsForASleepOfAnHour) {
  begin(80);
  sleep();
  mac->keepReads();
  daemon->run(hour);
  mac->forgetJournal();
  // At most until the first heartbeat after the wake: the tick of the message, and the heartbeat's.
  mac->wake();
  daemon->run(12);
  const Writes reads = mac->writes();
  EXPECT_LE(std::count(reads.begin(), reads.end(), "read TB0T"), 2);
  EXPECT_GE(std::count(reads.begin(), reads.end(), "read TB0T"), 1);
}

// The Mac charges and is advanced in several steps, so its gauge has published many times by the wake.
TEST_F(Night, isReportedAsOneChangeInTheMorning) {
  begin(40, "{\"enabled\":false}");
  sleep();
  for (int look = 0; look < 12; ++look) daemon->run(300);
  mac->keepReads();
  mac->forgetJournal();
  mac->wake();
  daemon->run(1);
  const Writes reads = mac->writes();
  EXPECT_GE(std::count(reads.begin(), reads.end(), "read TB0T"), 1);
  EXPECT_LE(std::count(reads.begin(), reads.end(), "read TB0T"), 2) << "that change, and maybe a heartbeat";
}

TEST_F(Night, changesNothingOnBattery) {
  begin(78);
  mac->unplug();
  daemon->run(30);
  mac->forgetJournal();
  sleep();
  EXPECT_EQ(mac->writes(), (Writes{"heard WillSleep", "allowed WillSleep"}));
}

TEST_F(Night, hasNoTicksUntilAWake) {
  begin(78);
  sleep();
  mac->keepReads();
  mac->forgetJournal();
  daemon->run(9 * hour);
  EXPECT_THAT(mac->writes(), IsEmpty());
  mac->wakeDark(45);
  daemon->run(60);
  EXPECT_THAT(mac->writes(), Contains("read TB0T")) << "a dark wake lets the heartbeat through";
  EXPECT_THAT(mac->writes(), Not(Contains(StartsWith("heard "))));
}

TEST_F(Night, endsWithACancelledWakeWhenTheDaemonExits) {
  begin(60);
  sleep();
  daemon->run(60);
  wake();
  ASSERT_THAT(mac->pendingWakes(), IsEmpty());
  mac->sleep();
  daemon->run(1);  // the message is answered, but the Mac does not sleep yet
  ASSERT_THAT(mac->pendingWakes(), SizeIs(1));
  daemon->signal(SIGTERM).run(0.5);
  EXPECT_EQ(daemon->status(), 0);
  EXPECT_THAT(mac->pendingWakes(), IsEmpty());
  EXPECT_EQ(mac->writes().back(), "wake cancelled") << "last of all";
}

TEST_F(Night, keepsTheScheduledWakeIfTheDaemonIsKilled) {
  begin(60);
  sleep();
  daemon->kill();
  daemon.reset();
  EXPECT_THAT(mac->pendingWakes(), SizeIs(1));
  mac->pass(9 * hour);
  EXPECT_THAT(mac->pendingWakes(), IsEmpty());
}

TEST_F(Night, isHandledByTheHeartbeatWithoutPowerNotifications) {
  mac = std::make_unique<VirtualMac>(MachineOptions{.percent = 70});
  mac->number(ChangeKind::powerClients, 0);
  daemon = std::make_unique<DaemonProcess>(*mac);
  daemon->run(90);
  sleep();
  daemon->run(2 * hour);
  EXPECT_GT(level(), 90) << "no change was planned";
  wake();
  daemon->run(12);
  EXPECT_EQ(mac->key("CHTE"), (Bytes{1, 0, 0, 0}));
}

// --- Many nights

// What the daemon's process records after each event, in memory that it shares with the test.
struct Watched {
  std::uint64_t events;
  std::uint64_t mostOfOurWakes;
  std::uint64_t mostDescriptors;
};

class Watch {
 public:
  Watch() {
    virtual_mac::setAfterEvent([seen = &*seen_] {
      const virtual_mac::Machine& machine = virtual_mac::attachedMachine()->view().machine();
      std::uint64_t ours = 0;
      for (std::uint32_t place = 0; place < machine.sleep.eventPlaces; ++place) {
        const auto& event = machine.sleep.events[place];
        ours += event.pending && virtual_mac::textOf(event.identifier) == "com.brisko.daemon" ? 1 : 0;
      }
      seen->mostOfOurWakes = std::max(seen->mostOfOurWakes, ours);
      if (seen->events++ % 97 == 0)
        seen->mostDescriptors = std::max<std::uint64_t>(seen->mostDescriptors, test::openDescriptors());
    });
  }
  ~Watch() { virtual_mac::setAfterEvent({}); }
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;
  [[nodiscard]] Watched seen() const { return *seen_; }

 private:
  sim::SharedMemory<Watched> seen_;
};

// One of many nights, with random events.
class Nights {
 public:
  explicit Nights(std::uint32_t seed) : random_(seed) {
    mac_.settings("{\"discharge\":true}");
    daemon_.run(60);
  }

  void spendOne() {
    evening();
    goToBed();
    for (int part = 0; part < 6; ++part) interlude();
    mac_.wake();
    mac_.number(ChangeKind::sleepRefused, 0);
    mac_.change({.kind = ChangeKind::scheduleStatus});
    daemon_.run(60);
  }

  // Events of the daemon in an hour of full wake in which nothing happens.
  [[nodiscard]] std::uint64_t eventsOfAQuietHour() {
    mac_.settings("{\"limit\":80}");
    mac_.plugIn().charge(80);
    daemon_.run(600);
    const std::uint64_t before = watch_.seen().events;
    daemon_.run(hour);
    return watch_.seen().events - before;
  }

  [[nodiscard]] VirtualMac& mac() { return mac_; }
  [[nodiscard]] DaemonProcess& daemon() { return daemon_; }
  [[nodiscard]] Watched seen() const { return watch_.seen(); }

  // Everything that must be the same for the same seed.
  [[nodiscard]] std::string bytes() const {
    std::string all = mac_.read("/Library/Logs/Brisko/daemon.log");
    for (const auto& entry : mac_.journal())
      all += std::to_string(entry.time) + " " + std::to_string(entry.key) + " " +
             std::to_string(entry.command) + "\n";
    for (const std::string& write : mac_.writes()) all += write + "\n";
    return all;
  }

 private:
  [[nodiscard]] std::uint32_t upTo(std::uint32_t most) {
    return static_cast<std::uint32_t>(random_() % (most + 1));
  }

  void evening() {
    if (upTo(3) == 0) {
      mac_.unplug();
      daemon_.run(1800);
    }
    mac_.plugIn(30 + upTo(40));
    if (upTo(2) != 0) mac_.charge(30 + upTo(70));
    if (upTo(5) == 0) mac_.settings("{\"limit\":" + std::to_string(60 + upTo(40)) + ",\"discharge\":true}");
    if (upTo(6) == 0) mac_.change({.kind = ChangeKind::scheduleStatus, .status = platform::kernelError});
    if (upTo(6) == 0) mac_.number(ChangeKind::clockStep, upTo(1) == 0 ? 90 : -90);
    daemon_.run(60 + upTo(3600));
  }

  void goToBed() {
    if (upTo(4) == 0) {
      mac_.number(ChangeKind::sleepRefused, 1 + upTo(2)).sleep();
      daemon_.run(20 + upTo(60));
      mac_.number(ChangeKind::sleepRefused, 0);
    }
    mac_.change({.kind = upTo(1) == 0 ? ChangeKind::closeLid : ChangeKind::idleSleep});
    daemon_.run(5);
  }

  void interlude() {
    daemon_.run(600 + upTo(7200));
    switch (upTo(7)) {
      case 0:
      case 1:
      case 2:
        mac_.wakeDark(5 + upTo(175));
        break;
      case 3:
        mac_.unplug();
        break;
      case 4:
        mac_.plugIn();
        break;
      case 5:
        mac_.wake();
        daemon_.run(1 + upTo(200));
        mac_.sleep();
        break;
      default:
        break;
    }
  }

  std::mt19937 random_;
  VirtualMac mac_{MachineOptions{.percent = 60}};
  Watch watch_;  // created before the process, which inherits it
  DaemonProcess daemon_{mac_};
};

TEST(Nights, haveAtMostOnePendingWakeAndLeakNothingInAMonth) {
  for (const std::uint32_t seed : {1U, 2U, 3U}) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    Nights nights(seed);
    nights.spendOne();
    const std::uint64_t quietHour = nights.eventsOfAQuietHour();
    const std::uint64_t descriptors = nights.seen().mostDescriptors;
    for (int night = 1; night < 30; ++night) {
      nights.spendOne();
      EXPECT_LE(nights.seen().mostOfOurWakes, 1U) << night;
      EXPECT_EQ(nights.mac().machine().sleep.strayAnswers, 0U) << night;
      EXPECT_EQ(nights.mac().machine().sleep.lateAnswers, 0U) << night;
      ASSERT_TRUE(nights.daemon().alive()) << night;
    }
    EXPECT_EQ(nights.seen().mostOfOurWakes, 1U) << "at least one night should begin below the band";
    EXPECT_EQ(nights.eventsOfAQuietHour(), quietHour);
    EXPECT_EQ(nights.seen().mostDescriptors, descriptors);
    EXPECT_EQ(nights.daemon().errors(), "");
    const auto lines = nights.mac().logLines();
    EXPECT_THAT(lines, Contains(HasSubstr("grille fermée pour la nuit")));
    EXPECT_THAT(lines, Contains(HasSubstr("réveil programmé dans")));
  }
}

TEST(Nights, leaveTheSameBytesForTheSameSeed) {
  const auto live = [](std::uint32_t seed) {
    Nights nights(seed);
    for (int night = 0; night < 30; ++night) nights.spendOne();
    return nights.bytes();
  };
  const std::string first = live(7);
  EXPECT_GT(first.size(), 10'000U);
  EXPECT_EQ(live(7), first);
  EXPECT_NE(live(8), first);
}

}  // namespace
}  // namespace brisko::night_test
