// The app is removed and returns while whole processes of the daemon run.

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <optional>

#include "sim/seam/simulated/driver.h"
#include "support/daemon_process.h"
#include "support/file_journal.h"
#include "support/files.h"
#include "support/testing.h"

namespace brisko::app_process_test {
namespace {

using namespace test;

const std::string installed = "/Applications/Brisko.app";
constexpr const char* dataFolder = "/Library/Application Support/Brisko";
constexpr const char* missingLine =
    "app missing at /Applications/Brisko.app — handing the charge back to macOS in 600s unless it comes back";
constexpr const char* dormantLine =
    "app gone — charge, adapter and LED handed back to macOS; service dormant (uninstall with "
    "uninstall-service.sh)";
constexpr const char* backLine = "app is back — Brisko takes the charge again";

// A Mac on which the app can be installed and removed.
class Bundle : public VirtualMac {
 public:
  using VirtualMac::VirtualMac;

  void remove(const std::string& app = installed) { std::filesystem::remove_all(path(app)); }
  void install(const std::string& app = installed) { write(app + "/Contents/Info.plist", "<plist/>"); }
  void move(const std::string& from, const std::string& to) {
    std::filesystem::create_directories(std::filesystem::path(path(to)).parent_path());
    std::filesystem::rename(path(from), path(to));
  }
};

class App : public ::testing::Test {
 protected:
  explicit App(const MachineOptions& options = {}) : mac(options) {}

  // Starts the process and runs it for a second.
  void begin(std::vector<std::string> arguments = {"--app", installed}) {
    process.emplace(mac, std::move(arguments));
    process->run(1);
    looked = mac.machine().now;
    mac.forgetJournal();
    static_cast<void>(newLines());
  }
  // Runs until so many seconds after begin() or after the last mark().
  void runTo(double seconds) { process->run(looked + seconds - mac.machine().now); }
  void mark() { looked = mac.machine().now; }
  // Removes the app; times are counted from now on.
  void removeApp() {
    mac.remove();
    process->run(0);
    mark();
    EXPECT_THAT(newLines(), ElementsAre(missingLine));
  }
  void removeAppAndRunTo(double seconds) {
    removeApp();
    runTo(seconds);
  }

  std::vector<std::string> newLines() { return mac.newLogLines(); }
  std::vector<std::string> linesAboutTheApp() {
    auto lines = newLines();
    std::erase_if(lines, [](const std::string& line) { return !line.starts_with("app "); });
    return lines;
  }
  bool isDormant() const {
    const auto lines = mac.logLines();
    const auto count = [&](const char* line) { return std::count(lines.begin(), lines.end(), line); };
    return count(dormantLine) > count(backLine);
  }
  // The writes to the controller alone.
  static test::Writes writesOf(const VirtualMac& machine) {
    test::Writes keys;
    for (const std::string& entry : machine.writes()) {
      if (entry.find('=') != std::string::npos) keys.push_back(entry);
    }
    return keys;
  }

  Bundle mac;
  std::optional<DaemonProcess> process;
  double looked = 0;
};

// --- the grace period

TEST_F(App, causesNoLogLineWhileItIsInstalled) {
  begin();
  runTo(3600);
  EXPECT_THAT(mac.logLines(), Not(Contains(HasSubstr("app "))));
}

TEST_F(App, isReportedMissingAtOnceAndGoneAfterTenMinutes) {
  begin();
  runTo(100);
  static_cast<void>(newLines());
  removeAppAndRunTo(599.75);
  EXPECT_THAT(newLines(), Not(Contains(dormantLine)));
  runTo(600);
  EXPECT_THAT(newLines(), ElementsAre(dormantLine)) << "by the check of each minute";
  runTo(86'400);
  EXPECT_THAT(newLines(), IsEmpty()) << "said once";
}

TEST_F(App, isReportedMissingBeforeTheFirstTickIfMissingAtTheStart) {
  mac.remove();
  begin();
  const auto lines = mac.logLines();
  const auto missing = std::find(lines.begin(), lines.end(), missingLine);
  ASSERT_NE(missing, lines.end());
  EXPECT_THAT(*(missing - 1), Eq("XPC listening on com.brisko.daemon.xpc"));
  EXPECT_THAT(*(missing + 1), StartsWith("cap 80%"));
  runTo(598);
  EXPECT_FALSE(isDormant());
  runTo(599);  // 600 s after the start
  EXPECT_TRUE(isDormant());
}

TEST_F(App, causesNoLogLineWhenItReturnsWithinTheGracePeriod) {
  begin();
  runTo(100);
  static_cast<void>(newLines());
  removeAppAndRunTo(550);
  mac.install();
  runTo(3600);
  const auto lines = newLines();
  EXPECT_THAT(lines, Not(Contains(dormantLine)));
  EXPECT_THAT(lines, Not(Contains(backLine)));
  EXPECT_THAT(lines, Not(Contains(missingLine)));
  removeApp();  // a new absence
  runTo(599);
  EXPECT_FALSE(isDormant());
  runTo(601);
  EXPECT_TRUE(isDormant());
}

TEST_F(App, keepsTheDaemonWhenItReturnsAtTheEndOfTheGracePeriod) {
  begin();
  removeAppAndRunTo(599.9);
  mac.install();
  runTo(3600);
  EXPECT_FALSE(isDormant());
}

TEST_F(App, countsAsGoneSinceItsFirstAbsenceIfItReturnsUnnoticed) {
  begin();
  removeAppAndRunTo(10);
  mac.install();
  runTo(500);
  mac.remove();
  runTo(600.9);
  EXPECT_FALSE(isDormant()) << "the checks of this absence are at 560 and 620 s";
  runTo(601);
  EXPECT_TRUE(isDormant());
  EXPECT_THAT(linesAboutTheApp(), ElementsAre(dormantLine));
}

TEST_F(App, isGoneAtOnceIfItLeavesAgainAtTheEndOfTheGracePeriod) {
  begin();
  removeAppAndRunTo(10);
  mac.install();
  runTo(599.9);
  mac.remove();
  process->run(0);
  EXPECT_FALSE(isDormant()) << "599.9 s";
  mac.install();
  runTo(600);
  mac.remove();
  process->run(0);
  EXPECT_FALSE(isDormant()) << "the app is not watched between two checks";
  runTo(601);
  EXPECT_TRUE(isDormant());
}

TEST_F(App, isGoneAtOnceIfItIsSeenToLeaveWhenTheGracePeriodIsOver) {
  begin();
  removeAppAndRunTo(10);
  mac.install();
  runTo(600);
  EXPECT_FALSE(isDormant());
  mac.remove();
  process->run(0);
  EXPECT_TRUE(isDormant());
}

TEST_F(App, isNoticedWhenItIsReplacedAfterAnUnnoticedReturn) {
  begin();
  removeAppAndRunTo(10);
  mac.install();
  runTo(70);  // watched again, but not checked
  mac.move(installed, "/Users/me/.Trash/Brisko.app");
  mac.install();
  runTo(500);
  mac.remove();
  process->run(0);
  EXPECT_THAT(linesAboutTheApp(), ElementsAre(missingLine)) << "an absence of its own";
  runTo(1099);
  EXPECT_FALSE(isDormant());
  runTo(1101);
  EXPECT_TRUE(isDormant());
}

TEST_F(App, isNotNoticedByAChangeAfterAnUnnoticedReturn) {
  begin();
  removeAppAndRunTo(10);
  mac.install();
  runTo(70);  // watched again, but not checked
  mac.write(installed + "/Contents/Info.plist", "new");
  mac.write(installed + "/new", "new");
  test::setMode(mac.path(installed), 0700);
  runTo(500);
  mac.remove();
  runTo(600.9);
  EXPECT_THAT(linesAboutTheApp(), IsEmpty()) << "the first absence continues";
  runTo(601);
  EXPECT_THAT(linesAboutTheApp(), ElementsAre(dormantLine));
}

TEST_F(App, isNotNoticedByAWriteAfterItReturnedAsAFile) {
  begin();
  removeAppAndRunTo(10);
  mac.write(installed, "a file");
  runTo(70);
  mac.write(installed, "a longer file");
  runTo(500);
  mac.remove();
  runTo(601);
  EXPECT_THAT(linesAboutTheApp(), ElementsAre(dormantLine));
}

TEST_F(App, isGoneSoonAfterAWakeIfItWasMissingDuringSleep) {
  mac.charge(90);  // so that no wake is scheduled
  begin();
  removeAppAndRunTo(30);
  mac.sleep();
  runTo(7200);
  EXPECT_FALSE(isDormant());
  mac.wake();
  process->run(60);
  EXPECT_TRUE(isDormant());
}

TEST_F(App, isGoneByTheWallClock) {
  begin();
  removeAppAndRunTo(10);
  mac.number(ChangeKind::clockStep, -3600);
  runTo(4199.5);
  EXPECT_FALSE(isDormant());
  runTo(4200);
  EXPECT_TRUE(isDormant());
}

// --- places

TEST_F(App, isNotWatchedWithoutAPath) {
  begin({});
  mac.remove();
  runTo(3600);
  EXPECT_THAT(newLines(), Not(Contains(HasSubstr("app "))));
  EXPECT_FALSE(isDormant());
}

TEST_F(App, isReportedMissingAtOnceWhenItIsRenamed) {
  begin();
  mac.move(installed, "/Applications/Brisko old.app");
  process->run(0);
  EXPECT_THAT(newLines(), ElementsAre(missingLine));
  mac.move("/Applications/Brisko old.app", installed);
  process->run(700);
  EXPECT_FALSE(isDormant());
  mac.move(installed, "/Users/me/.Trash/Brisko.app");
  process->run(0);
  EXPECT_THAT(newLines(), Contains(missingLine).Times(1)) << "and watched again";
}

TEST_F(App, isStillWatchedAfterItIsReplaced) {
  begin();
  mac.move(installed, "/Users/me/.Trash/Brisko.app");
  mac.install();
  process->run(700);
  EXPECT_THAT(newLines(), Not(Contains(missingLine)));
  removeAppAndRunTo(600);
  EXPECT_TRUE(isDormant());
}

TEST_F(App, staysTheSameWhenItsContentChanges) {
  begin();
  mac.write(installed + "/Contents/Info.plist", "new");
  mac.write(installed + "/Contents/Resources/a", "new");
  test::setMode(mac.path(installed), 0700);
  process->run(700);
  EXPECT_THAT(newLines(), Not(Contains(missingLine)));
}

TEST_F(App, isFoundInTheApplicationsFolder) {
  const std::string downloaded = "/Users/me/Downloads/Brisko.app";
  mac.move(installed, downloaded);
  begin({"--app", downloaded});
  mac.move(downloaded, installed);
  runTo(3600);
  EXPECT_THAT(newLines(), Not(Contains(HasSubstr("app "))));
  // It is not watched there, but checked once a minute.
  mac.remove();
  runTo(3659);
  EXPECT_THAT(newLines(), IsEmpty());
  runTo(3660);
  EXPECT_THAT(newLines(), ElementsAre("app missing at " + downloaded +
                                      " — handing the charge back to macOS in 600s unless it comes back"));
  runTo(3660 + 599);
  EXPECT_FALSE(isDormant());
  runTo(3660 + 600);
  EXPECT_TRUE(isDormant());
}

TEST_F(App, isLookedForInTheApplicationsFolderOnlyWithAnEmptyPath) {
  begin({"--app", ""});
  runTo(700);
  EXPECT_THAT(newLines(), Not(Contains(HasSubstr("app "))));
  mac.remove();
  runTo(760);
  EXPECT_THAT(linesAboutTheApp(),
              ElementsAre("app missing at  — handing the charge back to macOS in 600s unless it comes back"));
}

// --- dormant

TEST_F(App, releasesTheMacInOrderWhenItIsGone) {
  if (!FileJournal::canBeKept()) GTEST_SKIP() << "this kernel does not report which files are written";
  mac.charge(90);
  mac.settings("{\"limit\":80,\"discharge\":true}");
  begin();
  ASSERT_EQ(mac.key("CHIE").front(), 8);
  removeAppAndRunTo(599);
  mac.forgetJournal();
  FileJournal data(mac.path(dataFolder));
  runTo(600);
  EXPECT_TRUE(isDormant());
  const auto keys = writesOf(mac);
  ASSERT_GE(keys.size(), 3U);
  EXPECT_THAT(test::Writes(keys.end() - 3, keys.end()), ElementsAre("CHIE=00", "CHTE=00000000", "ACLC=00"));
  EXPECT_THAT(data.written(), Contains("stats.json"));
}

TEST_F(App, cancelsTheScheduledWakeWhenItIsGone) {
  mac.charge(40);
  begin();
  removeAppAndRunTo(20);
  mac.sleep();
  runTo(40);
  ASSERT_THAT(mac.pendingWakes(), Not(IsEmpty()));
  // The lid is opened; the scheduled wake stays until the daemon cancels it.
  runTo(45);
  mac.number(ChangeKind::capabilities, 9);
  runTo(7200);
  mac.wake();
  process->run(120);
  ASSERT_TRUE(isDormant());
  EXPECT_THAT(mac.pendingWakes(), IsEmpty());
}

// Whatever keys the Mac has, everything is given back, and nothing is written any more.
TEST_F(App, releasesEveryKindOfGateWhenItIsGone) {
  for (const GateKind gate : {GateKind::chte, GateKind::ch0b0c, GateKind::firmwareBand}) {
    for (const CutKind cut : {CutKind::chie, CutKind::ch0i, CutKind::ch0j, CutKind::none}) {
      for (const double charge : {70.0, 90.0}) {
        Bundle another({.gate = gate, .cut = cut, .magSafeLight = true, .percent = charge});
        another.settings("{\"limit\":80,\"discharge\":true}");
        DaemonProcess daemon(another, {"--app", installed});
        daemon.run(30);
        another.remove();
        daemon.run(600);
        ASSERT_EQ(another.logLines().back(), dormantLine);
        EXPECT_TRUE(virtual_mac::chargingIsOpen(another.machine()));
        EXPECT_TRUE(virtual_mac::adapterReachesBattery(another.machine()));
        EXPECT_EQ(another.key("ACLC").front(), 0);
        another.forgetJournal();
        daemon.run(600);
        EXPECT_THAT(writesOf(another), IsEmpty());
        EXPECT_TRUE(daemon.alive());
      }
    }
  }
}

TEST_F(App, leavesKeysAndFilesUnchangedOnceItIsGone) {
  if (!FileJournal::canBeKept()) GTEST_SKIP() << "this kernel does not report which files are written";
  mac.settings("{\"limit\":80,\"blinkSeconds\":0.5}");
  begin();
  runTo(10);
  ASSERT_THAT(writesOf(mac), Contains("ACLC=01")) << "the light blinks";
  removeAppAndRunTo(600);
  ASSERT_TRUE(isDormant());
  EXPECT_EQ(mac.key("ACLC").front(), 0);
  mac.forgetJournal();
  static_cast<void>(newLines());
  FileJournal data(mac.path(dataFolder));
  FileJournal history(mac.path(std::string(dataFolder) + "/history"));
  FileJournal logs(mac.path("/Library/Logs/Brisko"));

  process->run(3600);
  mac.unplug();
  process->run(600);
  mac.plugIn();
  process->run(600);
  mac.charge(100);
  process->run(600);
  mac.sleep();
  process->run(3600);
  mac.wakeDark(30);
  process->run(600);
  mac.wake();
  process->run(600);
  mac.keyBytes("ACLC", {4});
  process->run(86'400);
  EXPECT_THAT(writesOf(mac), IsEmpty());
  EXPECT_THAT(mac.pendingWakes(), IsEmpty());
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_THAT(data.written(), IsEmpty());
  EXPECT_THAT(history.written(), IsEmpty());
  EXPECT_THAT(logs.written(), IsEmpty());
  EXPECT_EQ(mac.key("ACLC").front(), 4) << "the light is the system's";
}

TEST_F(App, letsTheServiceAcceptSettingsOnceItIsGone) {
  begin();
  removeAppAndRunTo(600);
  mac.forgetJournal();
  const auto asked = mac.apply("{\"limit\":60}");
  process->run(60);
  EXPECT_EQ(mac.reply(asked), "done");
  EXPECT_THAT(mac.read(std::string(dataFolder) + "/config.json"), HasSubstr("\"limit\":60"));
  EXPECT_THAT(writesOf(mac), IsEmpty()) << "nothing is driven by them";
}

TEST_F(App, causesAnotherReleaseAtTheExitOnceItIsGone) {
  mac.charge(90);
  begin();
  removeAppAndRunTo(700);
  mac.forgetJournal();
  static_cast<void>(newLines());
  process->signal(SIGTERM).run(1);
  EXPECT_EQ(process->status(), 0);
  EXPECT_THAT(writesOf(mac), ElementsAre("CHIE=00", "CHTE=00000000", "ACLC=00"));
  EXPECT_THAT(newLines(), ElementsAre("Signal 15: charging, adapter and LED restored, exiting."));
}

TEST_F(App, doesNotAffectTheExitWhileItIsMissing) {
  mac.charge(90);
  begin();
  removeAppAndRunTo(300);
  process->signal(SIGTERM).run(1);
  EXPECT_EQ(process->status(), 0);
  EXPECT_EQ(mac.key("CHTE").front(), 0);
  EXPECT_THAT(mac.logLines(), Not(Contains(dormantLine)));
}

// --- back again

TEST_F(App, isFoundByTheLastCheckRightAfterTheGracePeriod) {
  mac.charge(90);
  begin();
  removeAppAndRunTo(600.5);
  ASSERT_TRUE(isDormant());
  mac.install();
  mac.forgetJournal();
  static_cast<void>(newLines());
  runTo(600.75);
  EXPECT_THAT(newLines(), IsEmpty());
  runTo(601);
  const auto lines = newLines();
  ASSERT_GE(lines.size(), 3U);
  EXPECT_EQ(lines[0], backLine);
  EXPECT_EQ(lines[1], "→ state: hold");
  // The light was handed back, but the daemon's memory of it was not reset, so the tick takes it for a change
  // by the system.
  EXPECT_EQ(lines[2], "⚠️ LED reprise par le système — Brisko la remet à 3");
  EXPECT_EQ(mac.key("CHTE").front(), 1);
  EXPECT_EQ(mac.key("ACLC").front(), 3);
  // The check of each minute was still pending, so the app is watched again.
  mac.remove();
  runTo(659);
  EXPECT_THAT(linesAboutTheApp(), IsEmpty());
  runTo(660);
  EXPECT_THAT(linesAboutTheApp(), ElementsAre(missingLine));
  runTo(1259);
  EXPECT_FALSE(isDormant());
  runTo(1260);
  EXPECT_TRUE(isDormant());
}

TEST_F(App, causesNoFileToBeWrittenWhenItReturnsAfterAPurge) {
  mac.charge(90);
  begin();
  mac.ask(virtual_mac::RequestKind::purgeAllData);
  process->run(1);
  mac.remove();
  process->run(0);
  mark();
  runTo(600.5);
  ASSERT_EQ(mac.key("CHTE").front(), 0) << "given up";
  mac.install();
  runTo(700);
  EXPECT_EQ(mac.key("CHTE").front(), 1) << "taken again";
  EXPECT_FALSE(mac.exists(dataFolder));
  EXPECT_FALSE(mac.exists("/Library/Logs/Brisko"));
}

TEST_F(App, isFoundByTheNextProcessIfItReturnsLater) {
  mac.charge(90);
  begin();
  removeAppAndRunTo(601);
  mac.install();
  runTo(86'400);
  EXPECT_TRUE(isDormant());
  EXPECT_EQ(mac.key("CHTE").front(), 0);
  const auto asked = mac.ask(virtual_mac::RequestKind::restart);
  process->run(1);
  EXPECT_EQ(mac.reply(asked), "done");
  EXPECT_EQ(process->status(), 0);
  begin();
  EXPECT_EQ(mac.key("CHTE").front(), 1);
  EXPECT_THAT(newLines(), Not(Contains(backLine)));
}

TEST_F(App, getsTenMinutesAgainFromTheNextProcess) {
  mac.charge(90);
  begin();
  removeAppAndRunTo(700);
  process->kill();
  begin();
  EXPECT_EQ(mac.key("CHTE").front(), 1) << "driven again";
  runTo(598);
  EXPECT_EQ(mac.key("CHTE").front(), 1);
  runTo(599);
  EXPECT_EQ(mac.key("CHTE").front(), 0);
}

// --- where macOS's own limit holds the charge

class NativeApp : public App {
 protected:
  NativeApp() : App(closedKeys()) {}
  static MachineOptions closedKeys() { return {.macOS = 27, .percent = 75}; }
  static constexpr const char* handedBackLine = "macOS limit handed back: off";
};

TEST_F(NativeApp, isWatchedWithoutAnOptionIfItContainsTheDaemon) {
  begin({});
  runTo(60);
  ASSERT_EQ(mac.key("bfG0").front(), 80);
  static_cast<void>(newLines());
  removeAppAndRunTo(599);
  EXPECT_EQ(mac.key("bfG0").front(), 80);
  mac.forgetJournal();
  static_cast<void>(newLines());
  runTo(600);
  EXPECT_THAT(newLines(), ElementsAre(handedBackLine, dormantLine));
  EXPECT_THAT(mac.writes(), Contains("limit set 100"));
  mac.forgetJournal();
  process->run(86'400);
  EXPECT_THAT(mac.writes(), IsEmpty()) << "neither keys nor the limit";
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_EQ(mac.key("bfG0").front(), 0);
}

TEST_F(NativeApp, causesTheLimitToBeWrittenAgainWhenItReturns) {
  begin({});
  runTo(60);
  static_cast<void>(newLines());
  removeAppAndRunTo(600.5);
  ASSERT_TRUE(isDormant());
  mac.install();
  static_cast<void>(newLines());
  runTo(601);
  const auto lines = newLines();
  ASSERT_THAT(lines, Not(IsEmpty()));
  EXPECT_EQ(lines.front(), backLine);
  EXPECT_THAT(lines, Contains("macOS limit → 80%"));
}

TEST_F(NativeApp, causesAnotherHandBackAtTheExitOnceItIsGone) {
  begin({});
  removeAppAndRunTo(700);
  static_cast<void>(newLines());
  process->signal(SIGTERM).run(1);
  EXPECT_EQ(process->status(), 0);
  EXPECT_THAT(newLines(), ElementsAre("Signal 15: handing the macOS limit back, exiting.", handedBackLine));
}

TEST_F(NativeApp, isWatchedAtTheGivenPath) {
  mac.install("/Users/me/Brisko.app");
  begin({"--app", "/Users/me/Brisko.app"});
  mac.remove("/Users/me/Brisko.app");
  runTo(3600);
  EXPECT_THAT(linesAboutTheApp(), IsEmpty()) << "the installed one is there";
  mac.remove();
  runTo(3660);
  EXPECT_THAT(linesAboutTheApp(),
              ElementsAre("app missing at /Users/me/Brisko.app — handing the charge back to "
                          "macOS in 600s unless it comes back"));
}

TEST_F(NativeApp, isNotWatchedByADaemonOutsideABundle) {
  for (const char* path :
       {"/usr/local/libexec/brisko-daemon", "/Applications/Brisko.app/Contents/MacOS/other",
        "/Applications/Brisko.app/Contents/MacOS/brisko-daemon.new"}) {
    virtual_mac::setExecutablePath(path);
    mac.install();
    begin({});
    mac.remove();
    runTo(3600);
    EXPECT_THAT(linesAboutTheApp(), IsEmpty()) << path;
    process->kill();
  }
}

}  // namespace
}  // namespace brisko::app_process_test
