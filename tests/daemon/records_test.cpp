// The files that whole processes of the daemon write for the app.

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>

#include "base/json_file.h"
#include "base/paths.h"
#include "support/daemon_process.h"
#include "support/files.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::records_test {
namespace {

using namespace test;

constexpr const char* folder = "/Library/Application Support/Brisko";

std::string historyFile(const std::string& day) { return std::string(historyDir) + "/" + day + ".jsonl"; }

std::vector<Json> linesOf(const std::string& text) {
  std::vector<Json> lines;
  std::istringstream stream(text);
  for (std::string line; std::getline(stream, line);) lines.push_back(Json::parse(line));
  return lines;
}

class Files : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(::setenv("TZ", "UTC", 1), 0); }
  static MachineOptions charged(double percent) { return {.percent = percent}; }
};

TEST_F(Files, existFromTheFirstTick) {
  VirtualMac mac(charged(80));
  DaemonProcess daemon(mac);
  daemon.run(0);
  Json status = Json::parse(mac.read(statusPath));
  EXPECT_THAT(status["daemonPath"], Not(""));
  status["daemonPath"] = "";
  EXPECT_EQ(status.dump(),
            R"({"cal":{"phase":"idle","runs":[]},"chargeMode":"CHTE","daemonPath":"",)"
            R"("daemonVersion":"0.9.9","discharge":false,"dischargeFailed":false,"dischargeSupported":true,)"
            R"("enabled":true,"hot":false,"ledSupported":true,"pct":80,"plugged":true,)"
            R"("protectedSeconds":0,"since":1772352000.0,"smcKeys":["CHIE","CHTE","ACLC","AC-W","TB0T"],)"
            R"("startedAt":1772352000.0,"state":"hold","temp":33.3,"topUp":false,"ts":1772352000.0,)"
            R"("upper":80})");
  EXPECT_EQ(mac.read(statsPath),
            R"({"atLimit":true,"protectedSeconds":0,"since":1772352000.0,"topUpSince":0.0})");
  EXPECT_THAT(linesOf(mac.read(historyFile("2026-03-01"))), SizeIs(1));
}

TEST_F(Files, countTheProtectedTimeEvery20Seconds) {
  VirtualMac mac(charged(80));
  DaemonProcess daemon(mac);
  daemon.run(19.9);
  EXPECT_THAT(mac.read(statsPath), HasSubstr("\"protectedSeconds\":0,"));
  daemon.run(0.2);
  EXPECT_THAT(mac.read(statsPath), HasSubstr("\"protectedSeconds\":20,"));
  daemon.run(3580);
  EXPECT_THAT(mac.read(statsPath), HasSubstr("\"protectedSeconds\":3600,"));
  mac.number(ChangeKind::clockStep, 3600);
  daemon.run(20);
  EXPECT_THAT(mac.read(statsPath), HasSubstr("\"protectedSeconds\":3660,"));
  mac.number(ChangeKind::clockStep, -30);
  daemon.run(20);
  EXPECT_THAT(mac.read(statsPath), HasSubstr("\"protectedSeconds\":3650,"));
}

TEST_F(Files, areNotWrittenByTheTimerWhileTheMacCharges) {
  VirtualMac mac(charged(50));
  DaemonProcess daemon(mac);
  daemon.run(1);
  std::filesystem::remove(mac.path(statsPath));
  daemon.run(600);
  EXPECT_FALSE(mac.exists(statsPath));
}

TEST_F(Files, keepATopUpThroughARestart) {
  VirtualMac mac(charged(85));
  mac.settings(R"({"topUp":true,"topUpHours":2})");
  {
    DaemonProcess daemon(mac);
    daemon.run(3600);
    EXPECT_THAT(mac.read(statsPath), HasSubstr("\"topUpSince\":1772352000.0"));
    daemon.kill();
  }
  DaemonProcess daemon(mac);
  daemon.run(3590);
  EXPECT_THAT(mac.logLines(), Not(Contains("Top Up dropped after 2h")));
  daemon.run(30);
  EXPECT_THAT(mac.logLines(), Contains("Top Up dropped after 2h"));
  EXPECT_THAT(mac.read(statsPath), HasSubstr("\"topUpSince\":0.0"));
}

TEST_F(Files, keepTheTotalAndItsStartThroughARestart) {
  VirtualMac mac(charged(80));
  {
    DaemonProcess daemon(mac);
    daemon.run(100).signal(SIGTERM).run(1);
  }
  mac.pass(5000);
  DaemonProcess daemon(mac);
  daemon.run(40);
  EXPECT_THAT(mac.read(statsPath), HasSubstr(R"("protectedSeconds":140,"since":1772352000.0,)"));
}

TEST_F(Files, keepTheLimitFlagForTheNextProcess) {
  struct Case {
    const char* stats;
    const char* state;
  };
  for (const Case& last : {Case{"", "hold"},  // unknown counts as reached
                           Case{R"({"atLimit":true})", "hold"}, Case{R"({"atLimit":false})", "allow"},
                           Case{R"({"atLimit":0})", "hold"}}) {
    VirtualMac mac(charged(77));
    mac.write(statsPath, last.stats);
    DaemonProcess daemon(mac);
    daemon.run(0);
    EXPECT_THAT(mac.read(statusPath), HasSubstr(std::string("\"state\":\"") + last.state + "\""))
        << last.stats;
  }
}

TEST_F(Files, keepAnUnknownLimitFlagAsFalse) {
  // A process without any power reading stores "false", so the next one charges where a first one would hold.
  VirtualMac mac(charged(77));
  mac.number(ChangeKind::powerSources, static_cast<double>(virtual_mac::PowerSourceFault::noSnapshot));
  DaemonProcess(mac).run(30).signal(SIGTERM).run(1);
  EXPECT_THAT(mac.read(statsPath), HasSubstr("\"atLimit\":false"));
  mac.number(ChangeKind::powerSources, static_cast<double>(virtual_mac::PowerSourceFault::none));
  DaemonProcess daemon(mac);
  daemon.run(0);
  EXPECT_THAT(mac.read(statusPath), HasSubstr("\"state\":\"allow\""));
}

TEST_F(Files, getTheStatisticsLastInAnOrderlyExit) {
  // The statistics are written after the last exchange with the controller, whichever that is.
  int killed = 0;
  for (std::uint32_t exchange = 0; exchange < 40; ++exchange) {
    VirtualMac mac(charged(90));
    DaemonProcess daemon(mac);
    daemon.run(30);
    std::filesystem::remove(mac.path(statsPath));
    mac.change({.kind = ChangeKind::signalAtExchange, .number = SIGKILL, .status = exchange + 1});
    daemon.signal(SIGTERM).run(0);
    ASSERT_FALSE(daemon.alive());
    const bool wasKilled = daemon.endSignal() == SIGKILL;
    EXPECT_EQ(mac.exists(statsPath), !wasKilled) << exchange;
    killed += wasKilled ? 1 : 0;
    if (!wasKilled) break;
  }
  EXPECT_GE(killed, 3) << "three keys are written";
}

TEST_F(Files, areWrittenOnlyAfterTheGateIsSet) {
  VirtualMac mac({.gate = virtual_mac::GateKind::none});
  DaemonProcess(mac).run(1);
  EXPECT_FALSE(mac.exists(folder));
}

TEST_F(Files, areNotWrittenByExitOrTimerOnALockedSystem) {
  MachineOptions options = charged(80);
  options.macOS = 27;
  options.chargeLimit = false;
  VirtualMac mac(options);
  DaemonProcess(mac).run(600).signal(SIGTERM).run(1);
  EXPECT_FALSE(mac.exists(statsPath));
}

TEST_F(Files, areReplacedByDefaultsIfTheyAreInvalid) {
  for (const char* text : {"", "{", "[]", "\x01\x02", "{\"since\":"}) {
    VirtualMac mac(charged(80));
    mac.write(statsPath, text);
    DaemonProcess daemon(mac);
    daemon.run(20.1);
    EXPECT_TRUE(daemon.alive());
    EXPECT_THAT(mac.read(statsPath), HasSubstr(R"("protectedSeconds":20,"since":1772352000.0,)"));
  }
}

TEST_F(Files, areCreatedAgainIfTheyVanish) {
  VirtualMac mac(charged(80));
  DaemonProcess daemon(mac);
  daemon.run(30);
  std::filesystem::remove_all(mac.path(folder));
  daemon.run(600);
  EXPECT_TRUE(daemon.alive());
  // The history creates the folder again, and the others find it then.
  for (const char* path : {statusPath, statsPath}) EXPECT_TRUE(mac.exists(path)) << path;
  EXPECT_THAT(linesOf(mac.read(historyFile("2026-03-01"))), Not(IsEmpty()));
  EXPECT_EQ(test::modeOf(mac.path(folder)), 0755U);
}

TEST_F(Files, stopNothingIfTheyCannotBeWritten) {
  VirtualMac mac(charged(90));
  mac.write(folder, "a file in place of the folder");
  DaemonProcess daemon(mac);
  daemon.run(3600);
  EXPECT_TRUE(daemon.alive());
  EXPECT_EQ(mac.key("CHTE"), (std::vector<std::uint8_t>{1, 0, 0, 0}));
  daemon.signal(SIGTERM).run(1);
  EXPECT_EQ(daemon.status(), 0);
  EXPECT_EQ(mac.read(folder), "a file in place of the folder");
}

// --- history

TEST_F(Files, getAHistoryLineEvery5MinutesWhileNothingChanges) {
  VirtualMac mac(charged(80));
  DaemonProcess daemon(mac);
  daemon.run(6 * 3600);
  const auto lines = linesOf(mac.read(historyFile("2026-03-01")));
  EXPECT_GE(lines.size(), 72U);
  for (std::size_t index = 1; index < lines.size(); ++index) {
    const auto gap = lines[index]["t"].get<int>() - lines[index - 1]["t"].get<int>();
    EXPECT_LE(gap, 300);
    if (lines[index]["s"] != lines[index - 1]["s"]) continue;
    EXPECT_GE(gap, 55);
  }
}

TEST_F(Files, recordTheAdapterAtOnce) {
  VirtualMac mac(charged(80));
  DaemonProcess daemon(mac);
  daemon.run(1);
  mac.unplug();
  daemon.run(0.5);
  const auto lines = linesOf(mac.read(historyFile("2026-03-01")));
  ASSERT_THAT(lines, SizeIs(2));
  EXPECT_EQ(lines[1]["g"], false);
  EXPECT_EQ(lines[1]["s"], "allow");
  EXPECT_THAT(mac.read(statusPath), HasSubstr("\"plugged\":false"));
}

TEST_F(Files, startANewHistoryFileAtLocalMidnight) {
  ASSERT_EQ(::setenv("TZ", "Pacific/Kiritimati", 1), 0);
  VirtualMac mac(charged(80));
  mac.write(historyFile("2026-02-23"), "x");  // began a week before the next local day begins
  mac.settings(R"({"historyDays":7})");
  DaemonProcess daemon(mac);
  daemon.run(2 * 3600 - 1);
  EXPECT_TRUE(mac.exists(historyFile("2026-02-23")));
  EXPECT_TRUE(mac.exists(historyFile("2026-03-01")));
  EXPECT_FALSE(mac.exists(historyFile("2026-03-02")));
  daemon.run(301);
  const auto lines = linesOf(mac.read(historyFile("2026-03-02")));
  ASSERT_FALSE(lines.empty());
  EXPECT_GE(lines[0]["t"], 1772359200);
  EXPECT_FALSE(mac.exists(historyFile("2026-02-23")));
}

TEST_F(Files, areRemovedAtTheStartWhenTooOldEvenWithTheHistorySwitchedOff) {
  VirtualMac mac;
  mac.settings(R"({"history":false,"historyDays":10})");
  mac.write(historyFile("2026-02-18"), "x");
  mac.write(historyFile("2026-02-19"), "x");
  mac.write(historyFile("2026-02-20"), "x");
  DaemonProcess daemon(mac);
  daemon.run(0);
  EXPECT_FALSE(mac.exists(historyFile("2026-02-18")));
  EXPECT_FALSE(mac.exists(historyFile("2026-02-19")));  // began 10 days and 8 hours ago
  EXPECT_TRUE(mac.exists(historyFile("2026-02-20")));
  EXPECT_FALSE(mac.exists(historyFile("2026-03-01")));
  // Before the banner.
  EXPECT_THAT(mac.logLines()[0], "history pruned: 2026-02-18.jsonl");
  EXPECT_THAT(mac.logLines()[1], "history pruned: 2026-02-19.jsonl");
  EXPECT_THAT(mac.logLines()[2], StartsWith("brisko-daemon started"));
}

TEST_F(Files, areKeptForAYearWithoutReadableSettings) {
  for (const char* settings : {"", "{\"historyDays\":"}) {
    VirtualMac mac;
    mac.settings(settings);
    mac.write(historyFile("2025-02-28"), "x");
    mac.write(historyFile("2025-03-01"), "x");
    mac.write(historyFile("2025-03-02"), "x");
    DaemonProcess daemon(mac);
    daemon.run(0);
    EXPECT_FALSE(mac.exists(historyFile("2025-03-01"))) << settings;
    EXPECT_TRUE(mac.exists(historyFile("2025-03-02"))) << settings;
  }
}

TEST_F(Files, arePrunedAgainByTheFirstSampleOfAProcess) {
  VirtualMac mac;
  mac.write(historyFile("2020-01-01") + "/inside", "x");  // cannot be removed, so it is logged each time
  DaemonProcess daemon(mac);
  daemon.run(0);
  EXPECT_THAT(mac.logLines(), Contains("history pruned: 2020-01-01.jsonl").Times(2));
}

TEST_F(Files, haveTheSameBytesInEveryRun) {
  std::string first;
  for (int time = 0; time < 2; ++time) {
    VirtualMac mac(MachineOptions{.startTime = 1772395200});  // 2026-03-01T20:00:00Z
    mac.settings(R"({"discharge":true})");
    DaemonProcess daemon(mac);
    daemon.run(3600);
    mac.unplug();
    daemon.run(3600);
    mac.plugIn();
    daemon.run(3 * 3600).signal(SIGTERM).run(1);
    const std::string all = mac.read(statusPath) + mac.read(statsPath) + mac.read(historyFile("2026-03-01")) +
                            mac.read(historyFile("2026-03-02"));
    EXPECT_GT(all.size(), 5000U);
    if (time == 0) first = all;
    EXPECT_EQ(all, first);
  }
}

}  // namespace
}  // namespace brisko::records_test
