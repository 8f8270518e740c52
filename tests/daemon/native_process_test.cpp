// The daemon on Macs whose keys are closed and that have a limit of their own. Every Mac here starts at
// 08:00:00. Its gauge publishes at each full minute, which causes a tick, as the heartbeat does every 12 s;
// macOS applies a new limit 5 s after it was set.

#include <algorithm>
#include <csignal>
#include <nlohmann/json.hpp>
#include <optional>

#include "sim/machine/charge_limit.h"
#include "sim/seam/simulated/driver.h"
#include "support/daemon_process.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::native_process_test {
namespace {

using namespace test;
using virtual_mac::OddLimit;

using Bytes = std::vector<std::uint8_t>;
using Lines = std::vector<std::string>;

constexpr double hour = 3600;
constexpr const char* statusFile = "/Library/Application Support/Brisko/status.json";
constexpr const char* statsFile = "/Library/Application Support/Brisko/stats.json";

constexpr const char* banner =
    "brisko-daemon started (event-driven) — config /Library/Application Support/Brisko/config.json. charging "
    "via macOS, discharge macOS, LED OK, history /Library/Application Support/Brisko/history, state=";
constexpr const char* before = "native limit before Brisko: off — given back if Brisko leaves";
constexpr const char* set80 = "macOS limit → 80%";
constexpr const char* verified80 = "limit verified: macOS holds 80% (bfG0)";
constexpr const char* hold80 = "→ state: hold (macOS limit 80%)";
constexpr const char* backToUser = "macOS limit handed back: 85%";
constexpr const char* terminated = "Signal 15: handing the macOS limit back, exiting.";
constexpr const char* restored = "macOS 27: adapter cut found set, restored";

class NativeDaemon : public ::testing::Test {
 protected:
  explicit NativeDaemon(const MachineOptions& options = {.macOS = 27}) : mac(options) { mac.settings("{}"); }

  [[nodiscard]] nlohmann::json status() const { return nlohmann::json::parse(mac.read(statusFile)); }
  [[nodiscard]] nlohmann::json stats() const { return nlohmann::json::parse(mac.read(statsFile)); }

  // All lines since the last call, except the summaries.
  Lines newEvents() {
    Lines lines = mac.newLogLines();
    // Neither the summaries nor the control service's line concern the limit.
    std::erase_if(
        lines, [](const std::string& line) { return line.starts_with("cap ") || line.starts_with("XPC "); });
    return lines;
  }
  // Which keys of the controller were written since the journal was forgotten.
  [[nodiscard]] std::vector<std::uint32_t> keysWritten() const {
    constexpr std::uint8_t writeCommand = 6;
    std::vector<std::uint32_t> keys;
    for (const auto& entry : mac.journal()) {
      if (entry.command == writeCommand) keys.push_back(entry.key);
    }
    return keys;
  }
  // Of the limit alone.
  [[nodiscard]] Writes limitWrites() const {
    Writes all = mac.writes();
    std::erase_if(all, [](const std::string& entry) { return !entry.starts_with("limit set"); });
    return all;
  }
  void slider(double percent) { mac.number(ChangeKind::limit, percent); }
  void odd(ChangeKind kind, OddLimit what) { mac.number(kind, static_cast<double>(what)); }
  void show(std::uint8_t mirror) { mac.keyBytes("bfG0", {mirror}); }
  // The limit that the slider shows; 0 for none.
  [[nodiscard]] std::int64_t sliderShows() const { return virtual_mac::orderOnDisk(mac.machine()).percent; }

  VirtualMac mac;
};

// -- An ordinary day

TEST_F(NativeDaemon, bringsTheChargeToTheLimitAndHoldsItThere) {
  DaemonProcess daemon(mac);
  daemon.run(3 * hour);
  EXPECT_THAT(newEvents(), ElementsAre(std::string(banner) + "allow", before, set80, verified80, hold80));
  EXPECT_EQ(mac.key("bfG0"), Bytes{80});
  const auto seen = status();
  EXPECT_EQ(seen.at("state"), "hold");
  EXPECT_EQ(seen.at("pct"), 80);
  EXPECT_EQ(seen.at("upper"), 80);
  EXPECT_EQ(seen.at("chargeMode"), "macOS");
  EXPECT_EQ(seen.at("gateVerified"), true);
  EXPECT_EQ(seen.at("dischargeSupported"), true);
  EXPECT_EQ(seen.at("ledSupported"), true);
  EXPECT_EQ(seen.at("smcKeys"), nlohmann::json::array({"ACLC", "AC-W", "TB0T", "bfG0"}));
  EXPECT_FALSE(seen.contains("nativeFloor"));
  EXPECT_EQ(mac.key("ACLC"), Bytes{3}) << "green";
  EXPECT_EQ(limitWrites(), Writes{"limit set 80"});
}

TEST_F(NativeDaemon, logsNothingMoreInAWeekOfHolding) {
  DaemonProcess daemon(mac);
  daemon.run(3 * hour);
  static_cast<void>(newEvents());
  mac.forgetJournal();
  daemon.run(7 * 24 * hour);
  EXPECT_THAT(newEvents(), IsEmpty());
  EXPECT_THAT(limitWrites(), IsEmpty());
  EXPECT_EQ(status().at("state"), "hold");
}

TEST_F(NativeDaemon, reportsAHoldIfMacOSAlreadyHoldsTheLimit) {
  slider(80);
  mac.pass(10);
  DaemonProcess daemon(mac);
  daemon.run(30);
  EXPECT_THAT(newEvents(), ElementsAre(std::string(banner) + "hold",
                                       "native limit before Brisko: 80% — given back if Brisko leaves", set80,
                                       "→ state: allow (macOS limit 80%)", verified80));
}

TEST_F(NativeDaemon, followsChangesOfTheLimit) {
  mac.charge(40);
  DaemonProcess daemon(mac);
  daemon.run(60);
  mac.settings(R"({"limit":90})");
  daemon.run(30);
  mac.settings(R"({"limit":72})");
  daemon.run(30);
  mac.settings(R"({"limit":100})");
  daemon.run(30);
  EXPECT_THAT(newEvents(), ElementsAre(std::string(banner) + "allow", before, set80, verified80,
                                       "macOS limit → 90%", "limit verified: macOS holds 90% (bfG0)",
                                       "macOS limit → 72%", "limit verified: macOS holds 72% (bfG0)",
                                       "macOS limit → off", "limit verified: macOS holds no limit (bfG0)"));
}

TEST_F(NativeDaemon, dischargesWhereMacOSDischarges) {
  mac.number(ChangeKind::limitDrains, 1);
  mac.settings(R"({"discharge":true})");
  mac.charge(85);
  DaemonProcess daemon(mac);
  daemon.run(300);
  EXPECT_EQ(status().at("state"), "discharge");
  EXPECT_EQ(status().at("discharge"), true);
  daemon.run(4 * hour);
  EXPECT_EQ(status().at("state"), "hold");
  EXPECT_EQ(status().at("pct"), 80);
  const Lines events = newEvents();
  EXPECT_THAT(events, Contains("→ state: discharge (macOS limit 80%)"));
  EXPECT_EQ(events.back(), hold80);
}

TEST_F(NativeDaemon, holdsWhereMacOSDoesNotDischarge) {
  mac.settings(R"({"discharge":true})");
  mac.charge(90);
  DaemonProcess daemon(mac);
  daemon.run(hour);
  EXPECT_EQ(status().at("state"), "hold");
  EXPECT_EQ(status().at("dischargeFailed"), false);
  EXPECT_THAT(newEvents(), Each(Not(HasSubstr("⚠️"))));
}

TEST_F(NativeDaemon, holdsAboveTheLimitWhereItFoundTheCharge) {
  mac.charge(90);
  DaemonProcess daemon(mac);
  daemon.run(hour);
  EXPECT_THAT(newEvents(),
              ElementsAre(std::string(banner) + "allow", before, "macOS limit → 90%",
                          "limit verified: macOS holds 90% (bfG0)", "→ state: hold (macOS limit 90%)"));
  mac.unplug();
  daemon.run(30);
  EXPECT_THAT(newEvents(), ElementsAre(set80, "→ state: allow (macOS limit 80%)"));
}

TEST_F(NativeDaemon, topsUpAndReturnsToTheLimit) {
  DaemonProcess daemon(mac);
  daemon.run(60);
  static_cast<void>(newEvents());
  mac.settings(R"({"topUp":true})");
  daemon.run(3 * hour);
  EXPECT_EQ(status().at("pct"), 100);
  EXPECT_THAT(newEvents(), ElementsAre("macOS limit → off", "limit verified: macOS holds no limit (bfG0)"));
  mac.unplug();
  daemon.run(15);
  EXPECT_THAT(newEvents(), ElementsAre("Top Up finished (unplugged)", set80));
}

// -- Loading the client

TEST(OpenKeys, neverLoadTheClientOfTheLimit) {
  VirtualMac mac({.macOS = 26});
  {
    DaemonProcess daemon(mac);
    daemon.run(hour);
    mac.settings(R"({"limit":60,"discharge":true,"thermal":true})");
    daemon.run(hour);
    mac.settings(R"({"topUp":true})");
    daemon.run(hour);
    mac.unplug();
    daemon.run(hour);
    mac.sleep();
    daemon.run(hour);
    mac.wake();
    mac.plugIn();
    mac.settings(R"({"enabled":false})");
    daemon.run(hour);
    mac.settings("");
    daemon.run(hour);
    daemon.signal(SIGTERM).run(5);
    EXPECT_EQ(daemon.status(), 0);
  }
  DaemonProcess(mac).run(60);
  const auto calls = mac.machine().limit.calls;
  EXPECT_EQ(calls.loads, 0U);
  EXPECT_EQ(calls.clients + calls.supported + calls.enabled + calls.limit + calls.sets, 0U);
  EXPECT_EQ(calls.preferenceWrites + calls.synchronisations + calls.notifications, 0U);
}

TEST_F(NativeDaemon, loadsTheClientOnce) {
  DaemonProcess daemon(mac);
  daemon.run(hour);
  EXPECT_EQ(mac.machine().limit.calls.clients, 1U);
}

// -- Right after boot

class AfterBoot : public NativeDaemon {
 protected:
  AfterBoot() : NativeDaemon({.macOS = 27, .uptime = 20}) {}
};

TEST_F(AfterBoot, waitsForAServiceThatIsNotUpYet) {
  mac.number(ChangeKind::limitSupportedAfter, 50);
  DaemonProcess daemon(mac);
  daemon.run(29);
  EXPECT_THAT(newEvents(), IsEmpty());
  daemon.run(2);
  EXPECT_THAT(newEvents(), ElementsAre(std::string(banner) + "allow", before, set80));
}

TEST_F(AfterBoot, onlyObservesWhereTheServiceNeverStarts) {
  mac.number(ChangeKind::limitSupportedAfter, 81);
  DaemonProcess daemon(mac);
  daemon.run(hour);
  EXPECT_THAT(newEvents(), ElementsAre(HasSubstr("charging via nothing: macOS 27 closed the keys")));
  EXPECT_THAT(mac.writes(), IsEmpty());
}

TEST_F(AfterBoot, waitsAMinuteForThePreviousLimitAndPublishesItsStatus) {
  mac.number(ChangeKind::limitReadableAfter, 1e6);
  DaemonProcess daemon(mac);
  daemon.run(59);
  EXPECT_THAT(newEvents(), ElementsAre(std::string(banner) + "allow"));
  EXPECT_THAT(limitWrites(), IsEmpty());
  EXPECT_EQ(status().at("state"), "allow");
  daemon.run(2);
  EXPECT_THAT(newEvents(),
              ElementsAre("native limit before Brisko unreadable — will give back \"off\"", set80));
  EXPECT_EQ(stats().at("nativeBefore"), 100);
}

TEST_F(AfterBoot, readsThePreviousLimitAsSoonAsPossible) {
  slider(85);
  mac.number(ChangeKind::limitReadableAfter, 50);
  DaemonProcess daemon(mac);
  daemon.run(60);
  EXPECT_THAT(newEvents(), Contains("native limit before Brisko: 85% — given back if Brisko leaves"));
  daemon.signal(SIGTERM).run(5);
  EXPECT_EQ(mac.logLines().back(), backToUser);
}

// -- An adapter cut left by an earlier run

TEST_F(NativeDaemon, connectsAnAdapterThatWasLeftCut) {
  mac.keyBytes("CHIE", {0x08});
  mac.forgetJournal();
  DaemonProcess daemon(mac);
  daemon.run(hour);
  Lines events = newEvents();
  ASSERT_GE(events.size(), 2U);
  EXPECT_THAT(events[0], StartsWith(banner));
  EXPECT_EQ(events[1], restored);
  EXPECT_EQ(std::count(events.begin(), events.end(), restored), 1);
  const auto keys = keysWritten();
  EXPECT_EQ(keys.front(), keyCode("CHIE"));
  EXPECT_EQ(std::count(keys.begin(), keys.end(), keyCode("CHIE")), 1);
  EXPECT_EQ(mac.key("CHIE"), Bytes{0});
}

TEST_F(NativeDaemon, reportsWhenTheCutStays) {
  mac.keyBytes("CHIE", {0x08}).keyOnWrite("CHIE", OnWrite::refuse);
  DaemonProcess daemon(mac);
  daemon.run(0);
  EXPECT_EQ(newEvents().at(1), "macOS 27: ⚠️ adapter cut found set, and could not be restored");
}

TEST_F(NativeDaemon, writesNoKeyButTheLight) {
  mac.settings(R"({"limit":75,"discharge":true,"thermal":true,"thermalLimit":36})");
  mac.number(ChangeKind::limitDrains, 1);
  mac.charge(85);
  mac.forgetJournal();
  DaemonProcess daemon(mac);
  daemon.run(2 * hour);
  mac.unplug();
  daemon.run(hour);
  mac.plugIn();
  mac.temperature(45);
  daemon.run(hour);
  mac.sleep();
  daemon.run(hour);
  mac.wake();
  mac.settings(R"({"enabled":false})");
  daemon.run(60);
  mac.settings(R"({"topUp":true})");
  daemon.run(60);
  daemon.signal(SIGTERM).run(5);
  ASSERT_FALSE(keysWritten().empty());
  EXPECT_THAT(keysWritten(), Each(keyCode("ACLC")));
  EXPECT_THAT(mac.pendingWakes(), IsEmpty());
}

// -- Exit

class NativeEnd : public NativeDaemon, public ::testing::WithParamInterface<int> {};

TEST_P(NativeEnd, handsTheLimitBackAndThenTheLight) {
  slider(85);
  DaemonProcess daemon(mac);
  daemon.run(3 * hour);
  static_cast<void>(newEvents());
  mac.forgetJournal();
  daemon.signal(GetParam()).run(5);
  EXPECT_EQ(daemon.status(), 0);
  EXPECT_THAT(newEvents(),
              ElementsAre("Signal " + std::to_string(GetParam()) + ": handing the macOS limit back, exiting.",
                          backToUser));
  EXPECT_THAT(mac.writes(), ElementsAre("limit set 85", "ACLC=00"));
  EXPECT_EQ(sliderShows(), 85);
  EXPECT_EQ(stats().at("nativeBefore"), 85);
}

INSTANTIATE_TEST_SUITE_P(Signals, NativeEnd, ::testing::Values(SIGINT, SIGTERM),
                         [](const auto& signal) { return signal.param == SIGINT ? "sigint" : "sigterm"; });

TEST(NativeEnds, restoreEveryRecordedLimitThatTheSliderOffers) {
  struct Case {
    int remembered;
    std::int64_t shown;  // 0 none
    const char* text;
  };
  for (const Case& example :
       {Case{75, 0, "off"}, Case{79, 0, "off"}, Case{80, 80, "80%"}, Case{83, 0, "off"}, Case{85, 85, "85%"},
        Case{90, 90, "90%"}, Case{95, 95, "95%"}, Case{99, 0, "off"}, Case{100, 0, "off"}}) {
    VirtualMac mac({.macOS = 27});
    mac.settings("{}");
    mac.write(statsFile, "{\"nativeBefore\":" + std::to_string(example.remembered) + "}");
    DaemonProcess daemon(mac);
    daemon.run(30);
    EXPECT_THAT(mac.logLines(), Not(Contains(HasSubstr("native limit before Brisko"))));
    daemon.signal(SIGTERM).run(5);
    EXPECT_EQ(mac.logLines().back(), std::string("macOS limit handed back: ") + example.text);
    EXPECT_EQ(virtual_mac::orderOnDisk(mac.machine()).percent, example.shown) << example.remembered;
  }
}

TEST_F(NativeDaemon, keepsThePreviousLimitAfterAKill) {
  slider(85);
  DaemonProcess(mac).run(60).kill();
  EXPECT_EQ(sliderShows(), 80) << "it was not given back";
  static_cast<void>(newEvents());
  DaemonProcess daemon(mac);
  daemon.run(60);
  EXPECT_THAT(newEvents(), ElementsAre(std::string(banner) + "hold", set80,
                                       "→ state: allow (macOS limit 80%)", verified80));
  daemon.signal(SIGTERM).run(5);
  EXPECT_THAT(newEvents(), ElementsAre(terminated, backToUser));
  EXPECT_EQ(sliderShows(), 85);
}

TEST_F(NativeDaemon, restoresTheRecordedLimitOverOneThatWasSetWhileItDidNotRun) {
  slider(85);
  DaemonProcess(mac).run(60).kill();
  slider(95);
  DaemonProcess daemon(mac);
  daemon.run(60);
  daemon.signal(SIGTERM).run(5);
  EXPECT_EQ(sliderShows(), 85);
}

TEST_F(NativeDaemon, usesTheRecordedLimitOfAProcessThatExitedToo) {
  slider(85);
  for (int round = 0; round < 3; ++round) {
    DaemonProcess daemon(mac);
    daemon.run(60);
    EXPECT_EQ(sliderShows(), 80);
    daemon.signal(SIGTERM).run(5);
    EXPECT_EQ(sliderShows(), 85);
  }
  const Lines events = newEvents();
  EXPECT_EQ(std::count_if(events.begin(), events.end(),
                          [](const std::string& line) { return line.starts_with("native limit before"); }),
            1);
}

TEST_F(NativeDaemon, reportsWhenTheLimitCannotBeHandedBack) {
  DaemonProcess daemon(mac);
  daemon.run(60);
  mac.number(ChangeKind::limitSetAnswer, static_cast<double>(virtual_mac::LimitAnswer::no));
  daemon.signal(SIGTERM).run(5);
  EXPECT_EQ(mac.logLines().back(), "macOS limit handed back: off ⚠️ refused");
  EXPECT_EQ(daemon.status(), 0);
}

// -- Switched off

TEST_F(NativeDaemon, leavesTheLimitToTheUserWhileItIsSwitchedOff) {
  slider(85);
  DaemonProcess daemon(mac);
  daemon.run(60);
  static_cast<void>(newEvents());
  mac.settings(R"({"enabled":false})");
  daemon.run(60);
  EXPECT_THAT(newEvents(), ElementsAre(backToUser));
  EXPECT_FALSE(status().contains("gateVerified"));
  slider(90);
  daemon.run(2 * hour);
  EXPECT_THAT(newEvents(),
              ElementsAre("macOS limit changed in System Settings while Brisko's is off: 90% — kept"));
  EXPECT_EQ(sliderShows(), 90);
  daemon.signal(SIGTERM).run(5);
  EXPECT_THAT(newEvents(), ElementsAre(terminated)) << "nothing to give back";
  EXPECT_EQ(sliderShows(), 90);
  EXPECT_EQ(stats().at("nativeBefore"), 90);
}

TEST_F(NativeDaemon, recordsTheUsersOwnChoiceWhenItIsSwitchedOnAgain) {
  DaemonProcess daemon(mac);
  daemon.run(60);
  mac.settings(R"({"enabled":false})");
  daemon.run(60);
  slider(85);
  daemon.run(60);
  static_cast<void>(newEvents());
  mac.settings("{}");
  daemon.run(60);
  EXPECT_THAT(newEvents(), ElementsAre(set80, verified80));
  daemon.signal(SIGTERM).run(5);
  EXPECT_EQ(sliderShows(), 85);
}

// -- Limits that macOS does not hold

TEST_F(NativeDaemon, fallsBackToEightyAfterTenMinutesWhereLessIsIgnored) {
  odd(ChangeKind::limitBelowFloor, OddLimit::ignored);
  mac.settings(R"({"limit":75,"discharge":true})");
  mac.charge(50);
  DaemonProcess daemon(mac);
  daemon.run(595);
  EXPECT_THAT(newEvents(), ElementsAre(std::string(banner) + "allow", before, "macOS limit → 75%"));
  daemon.run(3 * hour);
  EXPECT_THAT(newEvents(),
              ElementsAre("⚠️ macOS won't hold 75% on this Mac (bfG0 reads 0) — holding 80% instead",
                          set80, verified80, hold80));
  EXPECT_EQ(status().at("nativeFloor"), 80);
  EXPECT_EQ(status().at("upper"), 75);
  daemon.run(2 * hour);
  EXPECT_THAT(newEvents(), IsEmpty());
}

TEST_F(NativeDaemon, triesToHoldOnceMoreWhenTheChargeIsAboveTheRefusedLimit) {
  odd(ChangeKind::limitBelowFloor, OddLimit::ignored);
  mac.settings(R"({"limit":75})");
  mac.charge(50);
  DaemonProcess daemon(mac);
  daemon.run(660);
  static_cast<void>(newEvents());
  daemon.run(3 * hour);
  EXPECT_THAT(newEvents(),
              ElementsAre("macOS limit → 76%", "→ state: hold (macOS limit 76%)",
                          "⚠️ macOS won't hold 76% on this Mac (bfG0 reads 80) — holding 80% instead",
                          set80, verified80));
}

TEST_F(NativeDaemon, fallsBackToEightyWhereLessIsRaised) {
  odd(ChangeKind::limitBelowFloor, OddLimit::adjusted);
  mac.settings(R"({"limit":60})");
  mac.charge(50);
  DaemonProcess daemon(mac);
  daemon.run(620);
  EXPECT_THAT(newEvents(),
              ElementsAre(std::string(banner) + "allow", before, "macOS limit → 60%",
                          "⚠️ macOS won't hold 60% on this Mac (bfG0 reads 80) — holding 80% instead",
                          set80, verified80));
}

TEST_F(NativeDaemon, fallsBackToAStepWhereOthersAreIgnored) {
  odd(ChangeKind::limitOffStep, OddLimit::ignored);
  mac.settings(R"({"limit":83})");
  DaemonProcess daemon(mac);
  daemon.run(660);
  EXPECT_THAT(newEvents(),
              ElementsAre(std::string(banner) + "allow", before, "macOS limit → 83%",
                          "⚠️ macOS won't hold 83% on this Mac (bfG0 reads 0) — holding 80% instead",
                          set80, verified80));
}

// The charge is held above a limit that macOS enforces, so only the wake causes a tick; the next tick is due
// 5 s after it.
class NativeNight : public NativeDaemon {
 protected:
  NativeNight() {
    mac.settings(R"({"discharge":true})");
    slider(80);
    mac.charge(90).pass(300);
    show(0);
    mac.forgetJournal();
  }
};

TEST_F(NativeNight, startsTheWaitAgain) {
  DaemonProcess daemon(mac);
  daemon.run(495);
  mac.sleep();
  daemon.run(hour);
  mac.wake();
  daemon.run(600);
  EXPECT_THAT(newEvents(), Each(Not(HasSubstr("⚠️"))));
  daemon.run(20);
  EXPECT_THAT(newEvents(),
              ElementsAre("⚠️ the limit has no effect: macOS doesn't hold 80% (bfG0 reads 0)"));
  EXPECT_EQ(status().at("gateVerified"), false);
}

TEST_F(NativeNight, isNotFollowedByARewriteAtOnce) {
  DaemonProcess daemon(mac);
  daemon.run(75);
  mac.sleep();
  daemon.run(300);
  ASSERT_EQ(limitWrites(), Writes{"limit set 80"});
  mac.wake();
  daemon.run(90);
  EXPECT_EQ(limitWrites(), Writes{"limit set 80"});
  daemon.run(15);
  EXPECT_EQ(limitWrites(), (Writes{"limit set 80", "limit set 80"}));
}

TEST_F(NativeDaemon, worksWithoutReadBack) {
  mac.removeKey("bfG0");
  DaemonProcess daemon(mac);
  daemon.run(3 * hour);
  EXPECT_THAT(newEvents(),
              ElementsAre(std::string(banner) + "allow", before, set80,
                          "no bfG0 on this Mac — the macOS limit is set but can't be read back", hold80));
  EXPECT_FALSE(status().contains("gateVerified"));
  EXPECT_EQ(status().at("smcKeys"), nlohmann::json::array({"ACLC", "AC-W", "TB0T"}));
}

// -- Changes by others

TEST_F(NativeDaemon, waitsForAFullChargeThatTheUserWants) {
  mac.settings(R"({"discharge":true})");
  DaemonProcess daemon(mac);
  daemon.run(2 * hour);
  static_cast<void>(newEvents());
  mac.forgetJournal();
  mac.number(ChangeKind::chargeToFull, 4 * hour);
  daemon.run(3 * hour);
  EXPECT_EQ(status().at("pct"), 100);
  EXPECT_FALSE(status().contains("gateVerified"));
  EXPECT_THAT(newEvents(), ElementsAre("macOS charges to full until 2026-03-01 14:00:00 +0000 (asked in the "
                                       "Battery menu) — Brisko waits",
                                       "→ state: allow (macOS limit 80%)", hold80));
  EXPECT_THAT(limitWrites(), IsEmpty());
  daemon.run(2 * hour);
  EXPECT_THAT(newEvents(), ElementsAre(verified80));
}

TEST_F(NativeDaemon, holdsAFullChargeAboveTheLimitUnlessTheBatteryMayRunDown) {
  DaemonProcess daemon(mac);
  daemon.run(2 * hour);
  static_cast<void>(newEvents());
  mac.number(ChangeKind::chargeToFull, 4 * hour);
  daemon.run(3 * hour);
  EXPECT_EQ(status().at("pct"), 81) << "it holds at the first charge above the limit";
  EXPECT_THAT(newEvents(), Contains("macOS limit → 81%"));
}

TEST_F(NativeDaemon, setsItsLimitAgainForAsLongAsAnotherProgramInsistsOnItsOwn) {
  mac.settings(R"({"discharge":true})");
  slider(90);
  mac.number(ChangeKind::limitReverted, 600);
  DaemonProcess daemon(mac);
  daemon.run(6 * hour);
  Lines events = newEvents();
  const auto again = std::count(events.begin(), events.end(),
                                "macOS limit changed outside Brisko (bfG0 reads 90) — setting 80% again");
  EXPECT_GE(again, 33);
  EXPECT_LE(again, 36);
  EXPECT_THAT(events, Each(Not(HasSubstr("⚠️"))));
  EXPECT_EQ(status().at("gateVerified"), true);
}

TEST_F(NativeDaemon, givesUpIfAnotherProgramIsFasterThanMacOS) {
  mac.settings(R"({"discharge":true})");
  slider(90);
  mac.pass(10);
  mac.number(ChangeKind::limitReverted, 1);
  DaemonProcess daemon(mac);
  daemon.run(660);
  EXPECT_THAT(newEvents(),
              Contains("⚠️ the limit has no effect: macOS doesn't hold 80% (bfG0 reads 90)"));
  mac.forgetJournal();
  daemon.run(7 * 24 * hour);
  EXPECT_THAT(limitWrites(), IsEmpty());
  EXPECT_THAT(newEvents(), Each(StartsWith("→ state: ")));
}

}  // namespace
}  // namespace brisko::native_process_test
