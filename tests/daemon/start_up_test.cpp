// Whole processes of the daemon: start, run, end.

#include <algorithm>
#include <csignal>

#include <sys/stat.h>

#include "support/daemon_process.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::start_up_test {
namespace {

using namespace test;

constexpr const char* banner =
    "brisko-daemon started (event-driven) — config /Library/Application Support/Brisko/config.json. charging "
    "via ";
constexpr const char* historyText = ", history /Library/Application Support/Brisko/history, state=";

std::string lineBeginning(const std::vector<std::string>& lines, const std::string& beginning) {
  for (const auto& line : lines) {
    if (line.starts_with(beginning)) return line;
  }
  return "";
}

TEST(StartUp, logsItsBannerAndTheFirstTick) {
  VirtualMac mac;
  DaemonProcess daemon(mac);
  daemon.run(0);
  EXPECT_TRUE(daemon.alive());
  ASSERT_THAT(mac.logLines(), SizeIs(3));
  EXPECT_EQ(mac.logLines()[0], std::string(banner) + "CHTE, discharge CHIE, LED OK" + historyText + "allow");
  EXPECT_EQ(mac.logLines()[1], "XPC listening on com.brisko.daemon.xpc");
  EXPECT_THAT(mac.logLines()[2], StartsWith("cap 80%  batt 70%"));
}

TEST(StartUp, namesTheGateThatItFound) {
  VirtualMac mac({.gate = GateKind::firmwareBand, .cut = CutKind::none, .magSafeLight = false});
  DaemonProcess(mac).run(0);
  EXPECT_EQ(mac.logLines()[0],
            std::string(banner) + "bfD0/bfE0/bfF0, discharge off, LED off" + historyText + "allow");
}

TEST(StartUp, namesTheConfigurationFromTheCommandLine) {
  VirtualMac mac;
  mac.write("/etc/brisko.json", "{\"limit\":65}");
  DaemonProcess daemon(mac, {"--config", "/etc/brisko.json"});
  daemon.run(0);
  EXPECT_THAT(mac.logLines()[0], HasSubstr("config /etc/brisko.json. charging via"));
  EXPECT_THAT(mac.logLines().back(), StartsWith("cap 65%"));
}

TEST(StartUp, endsWithStatus1WithoutTheController) {
  VirtualMac mac;
  mac.number(ChangeKind::smcService, static_cast<double>(virtual_mac::SmcService::absent));
  DaemonProcess daemon(mac);
  daemon.run(1);
  EXPECT_EQ(daemon.status(), 1);
  EXPECT_EQ(daemon.errors(), "⛔️ Could not open AppleSMC.\n");
  EXPECT_EQ(daemon.output(), "");
}

TEST(StartUp, endsWithStatus1WithoutRoot) {
  VirtualMac mac;
  mac.number(ChangeKind::userId, 501);
  DaemonProcess daemon(mac);
  daemon.run(1);
  EXPECT_EQ(daemon.status(), 1);
  EXPECT_EQ(daemon.errors(), "⛔️ brisko-daemon has to run as root (sudo).\n");
  EXPECT_EQ(mac.machine().smc.exchanges, 0U);
  EXPECT_EQ(mac.machine().system.processes, 0U);
}

TEST(StartUp, endsWithStatus2WithoutAnyWayToControlCharging) {
  VirtualMac mac({.gate = GateKind::none});
  DaemonProcess daemon(mac);
  daemon.run(1);
  EXPECT_EQ(daemon.status(), 2);
  EXPECT_EQ(
      daemon.errors(),
      "⛔️ Brisko couldn’t find a way to control charging on this Mac. It needs an Apple Silicon Mac, "
      "an M1 "
      "or newer. [no known charge-control key (looked for CHTE, CH0B+CH0C, bfF0/bfD0/bfE0)]\n");
  EXPECT_THAT(mac.writes(), IsEmpty());
  EXPECT_EQ(daemon.output(), "");
  EXPECT_FALSE(mac.exists("/Library/Application Support/Brisko"));
}

TEST(StartUp, observesWhereMacOSClosedTheKeys) {
  VirtualMac mac({.macOS = 27, .percent = 90, .chargeLimit = false});
  DaemonProcess daemon(mac);
  daemon.run(600);
  EXPECT_TRUE(daemon.alive());
  EXPECT_THAT(
      mac.logLines(),
      ElementsAre(
          std::string(banner) +
              "nothing: macOS 27 closed the keys Brisko writes, observing only, discharge off, LED off" +
              historyText + "allow",
          "XPC listening on com.brisko.daemon.xpc"));
  EXPECT_THAT(mac.writes(), IsEmpty());
  daemon.signal(SIGTERM).run(1);
  EXPECT_EQ(daemon.status(), 0);
  EXPECT_THAT(mac.writes(), IsEmpty());
}

TEST(StartUp, makesTheHistoryFolderReadableForTheApp) {
  VirtualMac mac;
  const mode_t before = ::umask(077);
  DaemonProcess(mac).run(0);
  ::umask(before);
  struct stat found {};
  ASSERT_EQ(::stat(mac.path("/Library/Application Support/Brisko/history").c_str(), &found), 0);
  EXPECT_EQ(found.st_mode & 07777U, 0755U);
}

TEST(StartUp, continuesWithoutAHistoryFolder) {
  VirtualMac mac;
  mac.write("/Library/Application Support/Brisko/history", "a file in its place");
  DaemonProcess daemon(mac);
  daemon.run(60);
  EXPECT_TRUE(daemon.alive());
  EXPECT_EQ(mac.read("/Library/Application Support/Brisko/history"), "a file in its place");
}

TEST(StartUp, repairsTheLogPermissionsAndReportsIt) {
  VirtualMac mac;
  mac.write("/Library/Logs/Brisko/daemon.err.log", "");
  ASSERT_EQ(::chmod(mac.path("/Library/Logs/Brisko").c_str(), 0700), 0);
  ASSERT_EQ(::chmod(mac.path("/Library/Logs/Brisko/daemon.err.log").c_str(), 0600), 0);
  DaemonProcess(mac).run(0);
  ASSERT_THAT(mac.logLines(), SizeIs(5));
  EXPECT_THAT(mac.logLines()[0], StartsWith(banner));
  EXPECT_EQ(mac.logLines()[1], "log permissions repaired: /Library/Logs/Brisko 700 → 755");
  EXPECT_EQ(mac.logLines()[2], "log permissions repaired: daemon.err.log 600 → 644");
}

TEST(StartUp, takesItsStateFromTheHardware) {
  struct Case {
    const char* key;
    std::vector<std::uint8_t> bytes;
    const char* state;
  };
  for (const Case& found : {Case{"CHTE", {1, 0, 0, 0}, "hold"}, Case{"CHIE", {8}, "discharge"}}) {
    VirtualMac mac({.percent = 90});
    mac.settings("{\"discharge\":true}");
    mac.keyBytes("CHTE", {1, 0, 0, 0});
    mac.keyBytes(found.key, found.bytes);
    DaemonProcess(mac).run(0);
    EXPECT_THAT(mac.logLines()[0], EndsWith(std::string("state=") + found.state));
  }
}

TEST(StartUp, logsNoStateLineIfTheHardwareIsAlreadyInThatState) {
  VirtualMac mac({.percent = 80});
  mac.keyBytes("CHTE", {1, 0, 0, 0});
  DaemonProcess(mac).run(60);
  EXPECT_THAT(mac.logLines()[0], EndsWith("state=hold"));
  EXPECT_THAT(mac.logLines(), Each(Not(HasSubstr("→ state"))));
  EXPECT_THAT(mac.writes(), ElementsAre("ACLC=03"));  // no charge key
}

TEST(StartUp, abortsOnALimitBeyond64Bits) {
  for (const char* limit : {"1e300", "9223372036854775808", "18446744073709551615", "9.3e18"}) {
    VirtualMac mac;
    mac.settings(std::string("{\"limit\":") + limit + "}");
    mac.keyBytes("CHTE", {1, 0, 0, 0});
    DaemonProcess daemon(mac);
    daemon.run(60);
    EXPECT_EQ(daemon.endSignal(), SIGABRT) << limit;
    EXPECT_THAT(mac.writes(), IsEmpty()) << limit;  // nothing is given back: no hook runs
  }
}

TEST(Running, ticksEvery12Seconds) {
  VirtualMac mac;
  DaemonProcess daemon(mac);
  daemon.run(0);
  mac.settings("{\"limit\":60}");
  daemon.run(11.9);
  EXPECT_EQ(lineBeginning(mac.logLines(), "→ state"), "");
  daemon.run(0.2);
  EXPECT_EQ(lineBeginning(mac.logLines(), "→ state"), "→ state: hold");
}

TEST(Running, ticksAtOnceWhenTheAdapterIsUnpluggedOrPluggedIn) {
  VirtualMac mac({.percent = 90});
  DaemonProcess daemon(mac);
  daemon.run(1);
  mac.unplug();
  daemon.run(0.5);
  EXPECT_THAT(mac.logLines().back(), HasSubstr("  battery  state=allow  LED=system"));
  mac.plugIn();
  daemon.run(0.5);
  EXPECT_THAT(mac.logLines().back(), HasSubstr("  ac  state=hold  LED=green"));
}

TEST(Running, chargesToTheLimitAndHoldsThere) {
  VirtualMac mac;
  DaemonProcess daemon(mac);
  daemon.run(2 * 3600);
  EXPECT_NEAR(virtual_mac::level(mac.machine()), 80, 0.6);
  EXPECT_EQ(mac.key("CHTE"), (std::vector<std::uint8_t>{1, 0, 0, 0}));
  daemon.run(4 * 3600);
  EXPECT_NEAR(virtual_mac::level(mac.machine()), 80, 0.6);
}

TEST(Running, keepsTheBandThroughAWeekOfWork) {
  VirtualMac mac;
  mac.number(ChangeKind::load, 6);
  DaemonProcess daemon(mac);
  daemon.run(3 * 3600);
  for (int hour = 0; hour < 7 * 24; ++hour) {
    // A short time without the adapter.
    mac.unplug();
    daemon.run(300);
    EXPECT_GE(virtual_mac::level(mac.machine()), 73);
    mac.plugIn();
    daemon.run(3300);
    EXPECT_LE(virtual_mac::level(mac.machine()), 82);
  }
  // The charge falls to the lower edge and then rises to the limit once.
  const auto lines = mac.logLines();
  const auto charges = std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
    return line.find("ac  state=allow") != std::string::npos && line.find("batt 75%") != std::string::npos;
  });
  EXPECT_GT(charges, 10);
  // The gauge lags by up to a minute, so the charge may exceed the limit by one point.
  EXPECT_THAT(lines, Each(Not(HasSubstr("batt 82%"))));
}

TEST(Ending, bySignalGivesEverythingBackBeforeTheLine) {
  for (const int number : {SIGINT, SIGTERM}) {
    VirtualMac mac({.percent = 90});
    mac.settings("{\"discharge\":true}");
    DaemonProcess daemon(mac);
    daemon.run(30);
    ASSERT_EQ(mac.key("CHIE"), (std::vector<std::uint8_t>{8}));
    mac.keyBytes("ACLC", {3});
    mac.forgetJournal();
    daemon.signal(number).run(1);
    EXPECT_EQ(daemon.status(), 0);
    EXPECT_EQ(mac.writes(), (Writes{"CHIE=00", "CHTE=00000000", "ACLC=00"}));
    EXPECT_EQ(mac.logLines().back(),
              "Signal " + std::to_string(number) + ": charging, adapter and LED restored, exiting.");
    EXPECT_THAT(mac.logLines(), Contains(StartsWith("Signal ")).Times(1));
  }
}

TEST(Ending, continuesPastARefusedWrite) {
  VirtualMac mac({.percent = 90});
  DaemonProcess daemon(mac);
  daemon.run(30);
  mac.keyOnWrite("CHIE", OnWrite::refuse).keyOnWrite("CHTE", OnWrite::kernelError, 0xE00002D8);
  mac.forgetJournal();
  daemon.signal(SIGTERM).run(1);
  EXPECT_EQ(daemon.status(), 0);
  EXPECT_EQ(mac.writes(), (Writes{"CHIE=00!", "CHTE=00000000!", "ACLC=00"}));
}

TEST(Ending, leavesTheLightAloneIfTheDaemonDoesNotDriveIt) {
  VirtualMac mac({.magSafeLight = false});
  DaemonProcess daemon(mac);
  daemon.run(30);
  mac.keepReads();
  daemon.signal(SIGTERM).run(1);
  EXPECT_EQ(mac.writes(), (Writes{"info CHIE", "CHIE=00", "info CHTE", "CHTE=00000000"}));
}

TEST(Ending, isTheDefaultOfASignalBeforeTheHandlerIsSet) {
  VirtualMac mac;
  // While start-up looks for the keys, the signal still has its default effect.
  mac.change({.kind = ChangeKind::signalAtExchange, .number = SIGTERM, .status = 2});
  DaemonProcess daemon(mac);
  daemon.run(60);
  EXPECT_EQ(daemon.endSignal(), SIGTERM);
  EXPECT_THAT(mac.logLines(), IsEmpty());
  EXPECT_THAT(mac.writes(), IsEmpty());
}

// A signal may come at any exchange: between the two writes of a state change, in the middle of a read, in
// the first tick. The current work is finished; then everything is given back.
TEST(Ending, atAnyExchangeGivesEverythingBack) {
  for (std::uint32_t exchange = 21; exchange < 140; ++exchange) {
    VirtualMac mac({.percent = 90});
    mac.settings("{\"discharge\":true}");
    mac.change({.kind = ChangeKind::signalAtExchange, .number = SIGTERM, .status = exchange});
    DaemonProcess daemon(mac);
    daemon.run(600);
    ASSERT_FALSE(daemon.alive()) << exchange;
    if (daemon.endSignal()) {
      // The handler was not yet set.
      EXPECT_EQ(daemon.endSignal(), SIGTERM);
      EXPECT_THAT(mac.writes(), IsEmpty()) << exchange;
      continue;
    }
    EXPECT_EQ(daemon.status(), 0) << exchange;
    EXPECT_EQ(mac.key("CHIE"), (std::vector<std::uint8_t>{0})) << exchange;
    EXPECT_EQ(mac.key("CHTE"), (std::vector<std::uint8_t>{0, 0, 0, 0})) << exchange;
    EXPECT_EQ(mac.logLines().back(), "Signal 15: charging, adapter and LED restored, exiting.") << exchange;
  }
}

TEST(Ending, byKillLeavesTheKeysToTheNextProcess) {
  VirtualMac mac({.percent = 80});
  {
    DaemonProcess daemon(mac);
    daemon.run(30);
    daemon.kill();
    EXPECT_EQ(daemon.endSignal(), SIGKILL);
  }
  EXPECT_EQ(mac.key("CHTE"), (std::vector<std::uint8_t>{1, 0, 0, 0}));
  mac.pass(3600);
  const std::size_t lines = mac.logLines().size();
  DaemonProcess daemon(mac);
  daemon.run(30);
  const auto all = mac.logLines();
  const std::vector<std::string> second(all.begin() + static_cast<std::ptrdiff_t>(lines), all.end());
  EXPECT_THAT(second[0], EndsWith("state=hold"));
  EXPECT_THAT(second, Each(Not(HasSubstr("→ state"))));
}

}  // namespace
}  // namespace brisko::start_up_test
