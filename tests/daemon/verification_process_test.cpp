// The daemon on hardware that does not obey, and what the light then shows. Every Mac here starts at
// 08:00:00. Its gauge publishes at each full minute, which causes a tick, as the heartbeat does every 12 s.

#include <algorithm>
#include <csignal>

#include "support/daemon_process.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::verification_process_test {
namespace {

using namespace test;

constexpr const char* verified = "limit verified: charging really does stop";
constexpr const char* noEffect =
    "⚠️ the limit has no effect: charging continues despite the stop we asked for (CHTE)";
constexpr const char* foundOpen = "gate found open during a hold — closing it again (CHTE)";
constexpr const char* lightTaken = "⚠️ LED reprise par le système — Brisko la remet à 3";

MachineOptions at(double percent, GateKind gate = GateKind::chte, CutKind cut = CutKind::chie) {
  return {.gate = gate, .cut = cut, .percent = percent};
}

// The line as it is in the log; `time` is e.g. "08:01:00".
std::string stamped(const std::string& time, const std::string& line) {
  return "2026-03-01T" + time + "Z  " + line;
}

// The lines of the log that contain the text, with their times.
std::vector<std::string> linesWith(const VirtualMac& mac, const std::string& text) {
  std::vector<std::string> lines = mac.stampedLogLines();
  std::erase_if(lines, [&](const std::string& line) { return line.find(text) == std::string::npos; });
  return lines;
}

// All lines except the summaries.
std::vector<std::string> linesOfEvents(const VirtualMac& mac) {
  std::vector<std::string> lines = mac.logLines();
  std::erase_if(lines, [](const std::string& line) { return line.starts_with("cap "); });
  return lines;
}

// When the key was written, in seconds since the machine time `begin`.
std::vector<double> timesOf(const VirtualMac& mac, std::string_view key, double begin) {
  std::vector<double> times;
  for (const auto& entry : mac.journal()) {
    if (entry.key == keyCode(key)) times.push_back(entry.time - begin);
  }
  return times;
}

virtual_mac::Change of(ChangeKind kind, std::string_view key, double number = 0) {
  return {.kind = kind, .key = keyCode(key), .number = number};
}

// --- the hold

TEST(HoldDaemon, isVerifiedByTheFirstReadingAfterTheStopAndNeverAgain) {
  VirtualMac mac(at(80));
  DaemonProcess daemon(mac);
  daemon.run(59.9);
  EXPECT_THAT(mac.logLines(), Not(Contains(verified)));
  daemon.run(2 * 3600);
  EXPECT_THAT(linesWith(mac, verified), ElementsAre(stamped("08:01:00", verified)));
  EXPECT_THAT(mac.writes(), ElementsAre("CHIE=00", "CHTE=01000000", "ACLC=03"));
}

TEST(HoldDaemon, isVerifiedOnceInEachProcess) {
  VirtualMac mac(at(80));
  for (std::size_t lives = 1; lives <= 2; ++lives) {
    DaemonProcess daemon(mac);
    daemon.run(300);
    EXPECT_EQ(linesWith(mac, verified).size(), lives);
  }
}

TEST(HoldDaemon, isVerifiedAtTheFirstTickAfter15SecondsWithoutCurrent) {
  VirtualMac mac(at(80));
  mac.keyBytes("CHTE", {1, 0, 0, 0}).pass(60);  // an earlier run stopped it
  DaemonProcess daemon(mac);
  daemon.run(600);
  EXPECT_THAT(linesWith(mac, verified), ElementsAre(stamped("08:01:24", verified)));  // 12 s are not enough
}

TEST(HoldDaemon, failsAfterTwoMinutesAndIsVerifiedWhenTheHardwareObeys) {
  VirtualMac mac(at(80));
  mac.keyOnWrite("CHTE", OnWrite::storeWithoutEffect);
  DaemonProcess daemon(mac);
  daemon.run(119.9);
  EXPECT_THAT(mac.logLines(), Not(Contains(noEffect)));
  daemon.run(0.1);
  EXPECT_THAT(linesWith(mac, "no effect"), ElementsAre(stamped("08:02:00", noEffect)));
  daemon.run(170);  // 08:04:50
  EXPECT_EQ(linesWith(mac, "no effect").size(), 1U);
  EXPECT_THAT(mac.logLines().back(), HasSubstr("state=hold"));
  EXPECT_THAT(mac.writes(), ElementsAre("CHIE=00", "CHTE=01000000", "ACLC=03"));

  mac.keyOnWrite("CHTE", OnWrite::obey).change(of(ChangeKind::keyRelease, "CHTE"));
  daemon.run(600);
  EXPECT_THAT(linesWith(mac, "gate found open"), ElementsAre(stamped("08:05:00", foundOpen)));
  // The reading of 08:05 is from before the daemon closed the gate.
  EXPECT_THAT(linesWith(mac, verified), ElementsAre(stamped("08:06:00", verified)));
}

TEST(HoldDaemon, namesThePairAndTheBandThatHaveNoEffect) {
  struct Case {
    GateKind gate;
    std::vector<const char*> keys;
    const char* label;
  };
  for (const Case& with : {Case{GateKind::ch0b0c, {"CH0B", "CH0C"}, "(CH0B+CH0C)"},
                           Case{GateKind::firmwareBand, {"bfF0"}, "(bfD0/bfE0/bfF0)"}}) {
    VirtualMac mac(at(80, with.gate));
    for (const char* key : with.keys) mac.keyOnWrite(key, OnWrite::storeWithoutEffect);
    DaemonProcess daemon(mac);
    daemon.run(130);
    const auto lines = linesWith(mac, "⚠️ the limit has no effect");
    ASSERT_EQ(lines.size(), 1U) << with.label;
    EXPECT_THAT(lines[0], EndsWith(with.label));
    EXPECT_THAT(lines[0], HasSubstr("T08:02:00Z"));
  }
}

TEST(HoldDaemon, doesNotMistakeASlowCurrentForAFailure) {
  VirtualMac mac(at(80));
  mac.number(ChangeKind::decay, 90);
  DaemonProcess daemon(mac);
  daemon.run(60);
  EXPECT_GT(mac.machine().gauge.currentMA, 100);
  daemon.run(3600);
  EXPECT_THAT(linesWith(mac, verified), ElementsAre(stamped("08:02:00", verified)));
  EXPECT_THAT(linesWith(mac, "no effect"), IsEmpty());
}

TEST(HoldDaemon, ignoresATrickle) {
  VirtualMac mac(at(80));
  mac.number(ChangeKind::trickle, 100);
  DaemonProcess daemon(mac);
  daemon.run(300);
  EXPECT_THAT(linesWith(mac, verified), ElementsAre(stamped("08:01:00", verified)));
  mac.number(ChangeKind::trickle, 101);
  daemon.run(60);
  EXPECT_THAT(linesWith(mac, "no effect"), ElementsAre(stamped("08:06:00", noEffect)));
  mac.number(ChangeKind::trickle, 0);
  daemon.run(60);
  EXPECT_THAT(linesWith(mac, verified),
              ElementsAre(stamped("08:01:00", verified), stamped("08:07:00", verified)));
}

TEST(HoldDaemon, closesAnIneffectiveGateOnEveryTickAndReportsItOnce) {
  VirtualMac mac(at(80));
  mac.keyOnWrite("CHTE", OnWrite::ignore);
  DaemonProcess daemon(mac);
  const double begin = mac.machine().now;
  daemon.run(48);
  EXPECT_THAT(mac.writes(), ElementsAre("CHIE=00", "CHTE=01000000",  // the decision
                                        "CHTE=01000000",             // its verification
                                        "ACLC=03",                   // the light
                                        "CHTE=01000000", "CHTE=01000000", "CHTE=01000000", "CHTE=01000000"));
  EXPECT_THAT(timesOf(mac, "CHTE", begin), ElementsAre(0.0, 0.0, 12.0, 24.0, 36.0, 48.0));
  daemon.run(120);
  EXPECT_THAT(linesWith(mac, "gate found open"), ElementsAre(stamped("08:00:00", foundOpen)));
  EXPECT_THAT(linesWith(mac, "no effect"), ElementsAre(stamped("08:02:00", noEffect)));
}

TEST(HoldDaemon, closesAGateThatTheSystemKeepsOpening) {
  VirtualMac mac(at(80));
  mac.change(of(ChangeKind::keyReleaseAfter, "CHTE", 30));
  DaemonProcess daemon(mac);
  const double begin = mac.machine().now;
  daemon.run(120);
  // Opened 30 s after each write, found at the next tick. At 60 s and 120 s the gauge causes one too.
  EXPECT_THAT(timesOf(mac, "CHTE", begin), ElementsAre(0.0, 36.0, 72.0, 108.0));
  EXPECT_THAT(linesWith(mac, "gate found open"), ElementsAre(stamped("08:00:36", foundOpen)));
}

TEST(HoldDaemon, reportsInEachHoldThatTheGateWasFoundOpen) {
  VirtualMac mac(at(80));
  DaemonProcess daemon(mac);
  daemon.run(30);
  mac.change(of(ChangeKind::keyRelease, "CHTE"));
  daemon.run(30);
  mac.unplug();
  daemon.run(1);
  mac.plugIn();
  daemon.run(29);
  mac.change(of(ChangeKind::keyRelease, "CHTE"));
  daemon.run(30);
  EXPECT_THAT(linesWith(mac, "gate found open"),
              ElementsAre(stamped("08:00:36", foundOpen), stamped("08:01:36", foundOpen)));
}

TEST(HoldDaemon, countsTwoMinutesByTheWallClock) {
  VirtualMac mac(at(80));
  mac.keyOnWrite("CHTE", OnWrite::storeWithoutEffect);
  DaemonProcess daemon(mac);
  daemon.run(60);
  mac.number(ChangeKind::clockStep, -600);
  daemon.run(600);
  EXPECT_THAT(linesWith(mac, "no effect"), IsEmpty());
  daemon.run(60);
  EXPECT_THAT(linesWith(mac, "no effect"), ElementsAre(stamped("08:02:00", noEffect)));
}

TEST(HoldDaemon, failsEarlyWhenTheClockIsSetForward) {
  VirtualMac mac(at(80));
  mac.keyOnWrite("CHTE", OnWrite::storeWithoutEffect);
  DaemonProcess daemon(mac);
  daemon.run(30);
  mac.number(ChangeKind::clockStep, 3600);
  daemon.run(6);
  EXPECT_THAT(linesWith(mac, "no effect"), ElementsAre(stamped("09:00:36", noEffect)));
}

// --- the discharge

// A Mac above its limit that should discharge to it.
class DischargeDaemon : public ::testing::Test {
 protected:
  explicit DischargeDaemon(const MachineOptions& options = at(90)) : mac(options) {
    mac.settings("{\"discharge\":true}");
  }
  VirtualMac mac;
};

TEST_F(DischargeDaemon, continuesWithoutInterruptionToTheLimit) {
  DaemonProcess daemon(mac);
  daemon.run(4 * 3600);
  EXPECT_THAT(linesWith(mac, "⚠️"), IsEmpty());
  EXPECT_THAT(linesWith(mac, "adapter cut released"), IsEmpty());
  EXPECT_THAT(mac.logLines(), Contains("→ state: discharge").Times(1));
  EXPECT_THAT(mac.logLines(), Contains("→ state: hold").Times(1));
  EXPECT_NEAR(virtual_mac::level(mac.machine()), 80, 0.6);
}

TEST_F(DischargeDaemon, writesTheCutBackFiveTimesAndHoldsAtTheSixthLoss) {
  const std::vector<std::pair<CutKind, const char*>> cuts{
      {CutKind::chie, "CHIE"}, {CutKind::ch0i, "CH0I"}, {CutKind::ch0j, "CH0J"}};
  for (const auto& [cut, key] : cuts) {
    VirtualMac each(at(90, GateKind::chte, cut));
    each.settings("{\"discharge\":true}");
    each.change(of(ChangeKind::keyReleaseAfter, key, 5));
    DaemonProcess daemon(each);
    daemon.run(600);
    const std::string beginning =
        std::string("adapter cut released — writing it back (") + key + ", attempt ";
    const auto back = [&beginning](const char* attempt) { return beginning + attempt + ")"; };
    // Each loss changes the power source, which causes a tick at once.
    EXPECT_THAT(
        linesWith(each, "adapter cut"),
        ElementsAre(
            stamped("08:00:05", back("1")), stamped("08:00:10", back("2")), stamped("08:00:15", back("3")),
            stamped("08:00:20", back("4")), stamped("08:00:25", back("5")),
            stamped("08:00:30",
                    "⚠️ forced discharge has no effect: the adapter cut will not stay written — "
                    "holding the charge instead")));
    EXPECT_THAT(linesWith(each, "→ state"),
                ElementsAre(stamped("08:00:00", "→ state: discharge"), stamped("08:00:30", "→ state: hold")));
    EXPECT_EQ(each.key(key), std::vector<std::uint8_t>{0});
    EXPECT_EQ(each.key("ACLC"), std::vector<std::uint8_t>{3});
  }
}

TEST_F(DischargeDaemon, losesAnIneffectiveCutOncePerHeartbeat) {
  mac.keyOnWrite("CHIE", OnWrite::ignore);
  DaemonProcess daemon(mac);
  const double begin = mac.machine().now;
  daemon.run(59.9);
  EXPECT_THAT(mac.logLines().back(), HasSubstr("attempt 5"));
  daemon.run(0.1);
  // The decision, five attempts to write it back, and the connection of the hold.
  EXPECT_THAT(timesOf(mac, "CHIE", begin), ElementsAre(0.0, 0.0, 12.0, 24.0, 36.0, 48.0, 60.0));
  EXPECT_THAT(mac.logLines(), Contains("→ state: hold"));
}

TEST_F(DischargeDaemon, isGivenUpAfterAMinuteWithoutEffectAndRearmedByAnUnplug) {
  mac.number(ChangeKind::load, 1.0);
  DaemonProcess daemon(mac);
  daemon.run(59.9);
  EXPECT_THAT(linesWith(mac, "⚠️"), IsEmpty());
  mac.forgetJournal();
  daemon.run(0.1);
  EXPECT_THAT(linesWith(mac, "⚠️"),
              ElementsAre(stamped(
                  "08:01:00",
                  "⚠️ forced discharge has no effect: the battery is not running down (-80 mA) — "
                  "holding the charge instead")));
  EXPECT_THAT(mac.writes(), IsSupersetOf({"CHIE=00", "CHTE=01000000", "ACLC=03"}));
  daemon.run(3600);
  EXPECT_EQ(linesWith(mac, "→ state").size(), 2U) << "it is not tried again by itself";

  mac.number(ChangeKind::load, 4).unplug();
  daemon.run(12);
  EXPECT_THAT(mac.logLines(), Contains("forced discharge re-armed (adapter unplugged)"));
  mac.plugIn();
  daemon.run(600);
  EXPECT_EQ(linesWith(mac, "→ state").back().substr(22), "→ state: discharge");
  EXPECT_EQ(linesWith(mac, "⚠️").size(), 1U);
}

TEST_F(DischargeDaemon, continuesWithASmallButSufficientCurrent) {
  mac.number(ChangeKind::load, 1.86);
  DaemonProcess daemon(mac);
  daemon.run(600);
  EXPECT_NEAR(static_cast<double>(mac.machine().gauge.currentMA), -150, 3);
  EXPECT_THAT(linesWith(mac, "→ state"), ElementsAre(stamped("08:00:00", "→ state: discharge")));
}

TEST_F(DischargeDaemon, isEvaluatedAgainLater) {
  DaemonProcess daemon(mac);
  daemon.run(610);
  mac.number(ChangeKind::load, 0.6);
  daemon.run(60);
  EXPECT_THAT(linesWith(mac, "not running down").front(), HasSubstr("T08:11:00Z"));
  EXPECT_THAT(linesWith(mac, "→ state: hold"), ElementsAre(stamped("08:11:00", "→ state: hold")));
}

TEST_F(DischargeDaemon, getsAnotherMinuteAfterAMaintenanceWake) {
  mac.number(ChangeKind::load, 0.6);
  mac.later(40, {.kind = ChangeKind::capabilities, .number = 9});
  mac.later(70, {.kind = ChangeKind::capabilities, .number = 15});
  DaemonProcess daemon(mac);
  daemon.run(600);
  // Dark from the tick at 48 s to that at 72 s, which starts a new discharge.
  EXPECT_THAT(linesWith(mac, "→ state"),
              ElementsAre(stamped("08:00:00", "→ state: discharge"), stamped("08:00:48", "→ state: hold"),
                          stamped("08:01:12", "→ state: discharge"), stamped("08:02:12", "→ state: hold")));
  EXPECT_THAT(linesWith(mac, "⚠️").front(), HasSubstr("T08:02:12Z"));
}

TEST_F(DischargeDaemon, getsAnotherMinuteAfterAnUnplug) {
  mac.number(ChangeKind::load, 0.6);
  mac.later(50, {.kind = ChangeKind::unplug});
  mac.later(65, {.kind = ChangeKind::plug, .number = 67});
  DaemonProcess daemon(mac);
  daemon.run(600);
  const auto lines = linesWith(mac, "⚠️");
  ASSERT_EQ(lines.size(), 1U);
  const auto discharges = linesWith(mac, "→ state: discharge");
  ASSERT_EQ(discharges.size(), 2U);
  EXPECT_THAT(discharges[1], HasSubstr("T08:01:05Z"));
  EXPECT_THAT(lines[0], HasSubstr("T08:02:12Z"));  // at 08:02:00 the 60 s were not yet over
}

TEST_F(DischargeDaemon, stopsReopenedChargingSilently) {
  DaemonProcess daemon(mac);
  daemon.run(30);
  mac.forgetJournal();
  mac.change(of(ChangeKind::keyRelease, "CHTE"));
  const auto lines = linesOfEvents(mac);
  daemon.run(6);
  Writes writes = mac.writes();
  std::erase_if(writes, [](const std::string& write) { return write.starts_with("ACLC"); });
  EXPECT_THAT(writes, ElementsAre("CHTE=01000000"));
  EXPECT_EQ(linesOfEvents(mac), lines);
}

// --- the firmware's band

class BandDaemon : public ::testing::Test {
 protected:
  VirtualMac mac{at(80, GateKind::firmwareBand, CutKind::ch0j)};
  const Writes arming{"bfF0=00", "bfD0=50000000", "bfE0=4b000000", "bfF0=02"};
};

TEST_F(BandDaemon, armsTwiceInTheFirstTickOfAHoldAndNotAgain) {
  DaemonProcess daemon(mac);
  daemon.run(3600);
  Writes all{"CH0J=00"};
  all.insert(all.end(), arming.begin(), arming.end());  // the decision
  all.insert(all.end(), arming.begin(), arming.end());  // the verification, for which no band was armed yet
  all.emplace_back("ACLC=03");
  EXPECT_EQ(mac.writes(), all);
  EXPECT_THAT(linesWith(mac, "re-armed"), IsEmpty());
  EXPECT_THAT(linesWith(mac, verified), ElementsAre(stamped("08:01:00", verified)));
}

TEST_F(BandDaemon, isArmedSilentlyWhenItWasSwitchedOff) {
  DaemonProcess daemon(mac);
  daemon.run(120);
  mac.forgetJournal();
  mac.change(of(ChangeKind::keyRelease, "bfF0"));
  const auto lines = linesOfEvents(mac);
  daemon.run(36);
  EXPECT_EQ(mac.writes(), arming);
  EXPECT_EQ(linesOfEvents(mac), lines);
}

TEST_F(BandDaemon, isRearmedWithALogLineWhenTheSettingsMoveItsEdge) {
  DaemonProcess daemon(mac);
  daemon.run(120);
  mac.forgetJournal();
  mac.settings("{\"hysteresis\":10}");
  daemon.run(36);
  EXPECT_THAT(linesWith(mac, "re-armed"),
              ElementsAre(stamped("08:02:12", "firmware band re-armed at 70–80%")));
  EXPECT_THAT(mac.writes(), ElementsAre("bfF0=00", "bfD0=50000000", "bfE0=46000000", "bfF0=02"));
}

TEST_F(BandDaemon, isForgottenWhileChargingIsAllowed) {
  DaemonProcess daemon(mac);
  daemon.run(120);
  mac.unplug();
  daemon.run(12);
  mac.settings("{\"hysteresis\":10}");
  mac.plugIn();
  daemon.run(60);
  EXPECT_THAT(linesWith(mac, "re-armed"), IsEmpty());
  EXPECT_EQ(mac.key("bfE0"), (std::vector<std::uint8_t>{70, 0, 0, 0}));
  EXPECT_EQ(mac.key("bfF0"), std::vector<std::uint8_t>{2});
}

TEST_F(BandDaemon, isArmedOnceByTheNextProcess) {
  {
    DaemonProcess daemon(mac);
    daemon.run(120);
  }
  mac.forgetJournal();
  DaemonProcess daemon(mac);
  daemon.run(120);
  EXPECT_EQ(mac.writes(), arming);
}

// --- the light

TEST(LightDaemon, blinksWhileItChargesAndIsGreenFromTheTickOfTheHold) {
  VirtualMac mac(at(70));
  DaemonProcess daemon(mac);
  const double begin = mac.machine().now;
  daemon.run(9);
  EXPECT_THAT(mac.writes(), ElementsAre("ACLC=03", "ACLC=01", "ACLC=03", "ACLC=01", "ACLC=03"));
  EXPECT_THAT(timesOf(mac, "ACLC", begin), ElementsAre(0.5, 2.5, 4.5, 6.5, 8.5));
  mac.charge(85);  // published at once
  mac.forgetJournal();
  daemon.run(300);
  EXPECT_EQ(mac.key("ACLC"), std::vector<std::uint8_t>{3});
  EXPECT_THAT(mac.writes(), ElementsAre("CHIE=00", "CHTE=01000000"));  // it was in the green phase
}

TEST(LightDaemon, blinksAtEveryTickWhenAskedForFaster) {
  VirtualMac mac(at(70));
  mac.settings("{\"blinkSeconds\":0.1}");
  DaemonProcess daemon(mac);
  const double begin = mac.machine().now;
  daemon.run(2);
  EXPECT_THAT(timesOf(mac, "ACLC", begin), ElementsAre(0.5, 1.0, 1.5, 2.0));
}

TEST(LightDaemon, takesANewPeriodAtTheNextTick) {
  VirtualMac mac(at(70));
  DaemonProcess daemon(mac);
  const double begin = mac.machine().now;
  daemon.run(11);
  mac.settings("{\"blinkSeconds\":3.25}");
  mac.forgetJournal();
  daemon.run(12);
  EXPECT_THAT(timesOf(mac, "ACLC", begin), ElementsAre(14.0, 17.5, 21.0));
}

TEST(LightDaemon, isSetAgainAndLoggedOnceForEachLoss) {
  VirtualMac mac(at(80));
  DaemonProcess daemon(mac);
  daemon.run(10);
  mac.change(of(ChangeKind::keyRelease, "ACLC"));
  daemon.run(2);
  EXPECT_THAT(linesWith(mac, "LED reprise"), ElementsAre(stamped("08:00:12", lightTaken)));
  EXPECT_EQ(mac.key("ACLC"), std::vector<std::uint8_t>{3});
  mac.change(of(ChangeKind::keyReleaseAfter, "ACLC", 1));
  mac.change(of(ChangeKind::keyRelease, "ACLC"));
  daemon.run(40);  // lost again before each tick
  EXPECT_EQ(linesWith(mac, "LED reprise").size(), 1U);
  mac.change(of(ChangeKind::keyReleaseAfter, "ACLC", -1));
  daemon.run(36);  // found right
  mac.change(of(ChangeKind::keyRelease, "ACLC"));
  daemon.run(12);
  EXPECT_EQ(linesWith(mac, "LED reprise").size(), 2U);
}

TEST(LightDaemon, isChangedBySystemsThatFollowTheCharging) {
  VirtualMac mac(at(80));
  mac.number(ChangeKind::lightTaken, 1);
  DaemonProcess daemon(mac);
  daemon.run(60);  // macOS publishes that charging ended, which causes a tick at once
  EXPECT_THAT(linesWith(mac, "LED reprise"), ElementsAre(stamped("08:01:00", lightTaken)));
  EXPECT_EQ(mac.key("ACLC"), std::vector<std::uint8_t>{3});
}

TEST(LightDaemon, isLeftToTheSystemWithoutAnAdapterAndOrangeWithTheLimitOff) {
  VirtualMac mac(at(80));
  DaemonProcess daemon(mac);
  daemon.run(30);
  mac.unplug();
  daemon.run(1);
  EXPECT_EQ(mac.key("ACLC"), std::vector<std::uint8_t>{0});
  mac.settings("{\"enabled\":false}");
  mac.plugIn();
  daemon.run(1);
  EXPECT_EQ(mac.key("ACLC"), std::vector<std::uint8_t>{4});
  mac.settings("{\"led\":false}");
  daemon.run(12);
  EXPECT_EQ(mac.key("ACLC"), std::vector<std::uint8_t>{0});
  EXPECT_THAT(linesWith(mac, "LED reprise"), IsEmpty());
}

TEST(LightDaemon, staysHandedBackWhenTheDaemonExitsWhileItBlinks) {
  VirtualMac mac(at(70));
  DaemonProcess daemon(mac);
  daemon.run(10);
  daemon.signal(SIGTERM).run(60);
  EXPECT_EQ(daemon.status(), 0);
  EXPECT_EQ(mac.writes().back(), "ACLC=00");
  EXPECT_EQ(mac.key("ACLC"), std::vector<std::uint8_t>{0});
}

TEST(LightDaemon, isNeitherReadNorWrittenWhereThereIsNone) {
  MachineOptions options = at(70);
  options.magSafeLight = false;
  VirtualMac mac(options);
  DaemonProcess daemon(mac);
  daemon.run(0);  // start-up looks for the key
  mac.forgetJournal();
  mac.keepReads();
  daemon.run(60);
  daemon.signal(SIGTERM).run(60);
  EXPECT_EQ(daemon.status(), 0);
  EXPECT_THAT(mac.writes(), Not(IsEmpty()));
  EXPECT_THAT(mac.writes(), Each(Not(HasSubstr("ACLC"))));
}

TEST(LightDaemon, continuesBlinkingThroughTicksThatEndEarly) {
  VirtualMac mac(at(70));
  DaemonProcess daemon(mac);
  daemon.run(5);
  mac.number(ChangeKind::powerSources, static_cast<double>(virtual_mac::PowerSourceFault::noSnapshot));
  mac.forgetJournal();
  daemon.run(60);
  EXPECT_EQ(mac.writes().size(), 30U);
}

}  // namespace
}  // namespace brisko::verification_process_test
