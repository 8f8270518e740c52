// What requests of clients of the control service do in whole processes of the daemon.

#include <algorithm>
#include <cmath>
#include <csignal>

#include <unistd.h>

#include "base/options.h"
#include "sim/machine/client_requirement.h"
#include "sim/process/log_lines.h"
#include "support/daemon_process.h"
#include "support/files.h"
#include "support/testing.h"

namespace brisko::control_process_test {
namespace {

using namespace test;
using virtual_mac::RequestStage;

constexpr const char* uncheckedLine =
    "⚠️ XPC with no signature check (binary not signed by a team) — development build";
constexpr const char* restartLine =
    "restart requested by the app — exiting so launchd loads the current binary";

// A daemon that has just made a tick, a second into its heartbeat.
class Clients : public ::testing::Test {
 protected:
  void begin() {
    process.run(1);
    mac.forgetJournal();
    static_cast<void>(newLines());
  }

  std::vector<std::string> newLines() { return mac.newLogLines(); }
  std::string config() const { return mac.read(defaultConfigPath); }
  static Change asks(RequestKind kind, const std::string& client = "app", const std::string& settings = "") {
    return {.kind = ChangeKind::request,
            .number = static_cast<double>(kind),
            .status = virtual_mac::clientNumber(client),
            .text = virtual_mac::shortText(settings)};
  }

  VirtualMac mac;
  double started = mac.machine().now;
  DaemonProcess process{mac};
};

// --- availability

TEST_F(Clients, findTheServiceOnceTheLogReportsIt) {
  process.run(0);
  const auto lines = newLines();
  const auto listening = std::find(lines.begin(), lines.end(), "XPC listening on com.brisko.daemon.xpc");
  ASSERT_NE(listening, lines.end());
  EXPECT_THAT(lines.front(), StartsWith("brisko-daemon started"));
  EXPECT_THAT(std::vector<std::string>(listening + 1, lines.end()), Contains(StartsWith("cap 80%")))
      << "before the first tick";
}

TEST_F(Clients, areServedOnceADaemonRuns) {
  const auto early = mac.apply("{\"limit\":60}");
  mac.pass(3600);
  EXPECT_EQ(mac.request(early).stage, RequestStage::waiting);
  process.run(0);
  EXPECT_EQ(mac.reply(early), "done");
  EXPECT_THAT(config(), HasSubstr("\"limit\":60"));
}

TEST_F(Clients, areServedAtWakeWhenTheMacSlept) {
  mac.charge(90);  // so that no wake is scheduled
  begin();
  mac.sleep();
  process.run(60);
  ASSERT_TRUE(mac.machine().system.asleep);
  const auto asked = mac.apply("{\"limit\":60}");
  process.run(3600);
  EXPECT_EQ(mac.reply(asked), "");
  mac.wake();
  process.run(0);
  EXPECT_EQ(mac.reply(asked), "done");
}

// --- new settings

TEST_F(Clients, changeTheLimitAtOnce) {
  mac.settings("{\"limit\":80,\"hysteresis\":3,\"led\":false}");
  begin();
  const auto asked = mac.apply("{\"limit\":60}");
  process.run(0);
  EXPECT_EQ(mac.reply(asked), "done");
  EXPECT_THAT(newLines(), ElementsAre("→ state: hold", StartsWith("cap 60%  batt 70%")));
  EXPECT_THAT(mac.writes(), ElementsAre("asked apply", "CHIE=00", "CHTE=01000000", "replied apply"))
      << "the reply comes once the change is in force";
  EXPECT_THAT(config(), HasSubstr("\"hysteresis\":3"));
  EXPECT_EQ(mac.request(asked).answers, 1U);
}

TEST_F(Clients, areToldWhenTheirSettingsCannotBeRead) {
  mac.settings("{\"limit\":80}");
  begin();
  for (const std::string& text : {std::string("{\"limit\":"), std::string("[70]"), std::string(),
                                  std::string(1'000'000, '['), std::string("{\"limit\":70} x")}) {
    const auto asked = mac.apply(text);
    process.run(0);
    EXPECT_EQ(mac.reply(asked), "Unreadable settings.");
    EXPECT_FALSE(mac.request(asked).done);
    EXPECT_EQ(mac.request(asked).answers, 1U);
  }
  EXPECT_TRUE(process.alive());
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_EQ(config(), "{\"limit\":80}");
}

TEST_F(Clients, areServedInOrderWhenTwoAskAtOnce) {
  begin();
  const auto first = mac.apply("{\"limit\":60,\"led\":false}");
  const auto second = mac.apply("{\"limit\":75}");
  EXPECT_EQ(mac.reply(first), "");
  process.run(0);
  EXPECT_EQ(mac.reply(first), "done");
  EXPECT_EQ(mac.reply(second), "done");
  EXPECT_THAT(config(), HasSubstr("\"limit\":75"));
  EXPECT_THAT(config(), HasSubstr("\"led\":false"));
  EXPECT_THAT(newLines(), Contains(StartsWith("cap 60%")).Times(1));
}

TEST_F(Clients, mayDisconnectBeforeTheReply) {
  begin();
  Change change = asks(RequestKind::applySettings, "app", "{\"limit\":60}");
  change.kind = ChangeKind::requestUnawaited;
  mac.change(change);
  process.run(12);
  EXPECT_TRUE(process.alive());
  EXPECT_EQ(mac.request(1).answers, 1U);
  EXPECT_FALSE(mac.request(1).done) << "no client receives it";
  EXPECT_THAT(config(), HasSubstr("\"limit\":60"));
}

TEST_F(Clients, mayDisconnectAfterAnyRequest) {
  for (const RequestKind kind : {RequestKind::applySettings, RequestKind::purgeAllData,
                                 RequestKind::releaseCharge, RequestKind::restart}) {
    VirtualMac another;
    DaemonProcess daemon(another);
    daemon.run(1);
    Change change = asks(kind);
    change.kind = ChangeKind::requestUnawaited;
    another.change(change);
    daemon.run(60);
    EXPECT_EQ(another.request(1).answers, 1U);
    EXPECT_EQ(daemon.alive(), kind != RequestKind::restart);
  }
}

TEST_F(Clients, mayAskAtAPlannedTime) {
  mac.later(100.5, asks(RequestKind::applySettings, "app", "{\"limit\":60}"));
  process.run(100);
  EXPECT_EQ(mac.machine().control.sent, 0U);
  process.run(1);
  EXPECT_EQ(mac.reply(1), "done");
  EXPECT_EQ(mac.request(1).answeredAt, mac.request(1).sentAt);
}

TEST_F(Clients, areAnsweredOnceEachHoweverManyThereAre) {
  mac.charge(95);  // a steady hold, so that only the heartbeat causes ticks
  mac.settings("{\"limit\":80}");
  process.run(1);
  constexpr int storm = 2'000;
  int sent = 0;
  while (sent < storm) {
    std::vector<std::uint64_t> numbers;
    for (std::size_t burst = 0; burst < virtual_mac::requestPlaces; ++burst, ++sent) {
      numbers.push_back(
          mac.apply(sent % 7 == 0 ? "{\"limit\":" : "{\"limit\":" + std::to_string(60 + sent % 30) + "}"));
    }
    process.run(0.01);
    for (std::size_t burst = 0; burst < numbers.size(); ++burst) {
      const auto request = mac.request(numbers[burst]);
      ASSERT_EQ(request.answers, 1U);
      ASSERT_EQ(request.done, (sent - static_cast<int>(numbers.size()) + static_cast<int>(burst)) % 7 != 0);
    }
  }
  // The heartbeat stays on its grid.
  process.run(180);
  mac.keepReads();
  mac.forgetJournal();
  process.run(120);
  std::vector<double> ticks;
  for (const auto& entry : mac.journal()) {
    const bool isRead = entry.command == 5 && entry.key == virtual_mac::keyCode("TB0T");
    if (isRead) ticks.push_back(std::fmod(entry.time - started, 12));
  }
  EXPECT_THAT(ticks, ElementsAreArray(std::vector<double>(10, 0)));
}

TEST_F(Clients, areNotAnsweredByADaemonThatIsKilled) {
  begin();
  const auto asked = mac.apply("{\"limit\":60}");
  mac.change({.kind = ChangeKind::signalAtExchange, .number = SIGKILL, .status = 2});
  process.run(0);
  ASSERT_FALSE(process.alive());
  EXPECT_EQ(mac.request(asked).stage, RequestStage::delivered);
  EXPECT_EQ(mac.request(asked).answers, 0U);
  DaemonProcess next(mac);
  next.run(60);
  EXPECT_EQ(mac.request(asked).answers, 0U)
      << "a request that one daemon accepted is not delivered to the next";
  EXPECT_THAT(newLines(), Contains(StartsWith("cap 60%"))) << "though it was written";
}

TEST_F(Clients, endTheDaemonWithAnImpossibleNumberButLeaveItsFile) {
  mac.settings("{\"limit\":60}");
  begin();
  const auto asked = mac.apply("{\"limit\":1e300}");
  process.run(0);
  EXPECT_EQ(process.endSignal(), SIGABRT);
  EXPECT_EQ(mac.request(asked).answers, 0U);
  EXPECT_EQ(config(), "{\"limit\":60}");
}

// --- admission

TEST_F(Clients, changeNothingWithAnotherSignature) {
  mac.charge(90);
  mac.settings("{\"limit\":80}");
  begin();
  for (const char* client : {"wrong-team", "wrong-app", "unsigned"}) {
    const std::vector<std::uint64_t> asked = {
        mac.apply("{\"limit\":60}", client), mac.ask(RequestKind::purgeAllData, client),
        mac.ask(RequestKind::releaseCharge, client), mac.ask(RequestKind::restart, client)};
    process.run(2);
    for (const std::uint64_t number : asked) {
      EXPECT_EQ(mac.reply(number), "refused");
      EXPECT_EQ(mac.request(number).answers, 0U);
    }
  }
  EXPECT_TRUE(process.alive());
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_THAT(mac.writes(), IsEmpty());
  EXPECT_EQ(config(), "{\"limit\":80}");
  const auto asked = mac.apply("{\"limit\":60}");
  process.run(0);
  EXPECT_EQ(mac.reply(asked), "done") << "they do not affect the app either";
}

TEST_F(Clients, areAdmittedUncheckedWithAWarningByAnUnsignedDaemon) {
  mac.change({.kind = ChangeKind::daemonTeam});
  begin();
  EXPECT_THAT(mac.logLines(), Not(Contains(uncheckedLine)));
  const auto first = mac.apply("{\"limit\":60}", "unsigned");
  const auto second = mac.apply("{\"limit\":65}", "wrong-team");
  process.run(0);
  EXPECT_EQ(mac.reply(first), "done");
  EXPECT_EQ(mac.reply(second), "done");
  EXPECT_THAT(newLines(), Contains(uncheckedLine).Times(2));
}

TEST_F(Clients, areCheckedAtEachConnection) {
  begin();
  const auto refused = mac.apply("{\"limit\":60}", "unsigned");
  process.run(0);
  EXPECT_EQ(mac.reply(refused), "refused");
  mac.number(ChangeKind::daemonSignature, 0);
  const auto unchecked = mac.apply("{\"limit\":60}", "unsigned");
  process.run(0);
  EXPECT_EQ(mac.reply(unchecked), "done");
  mac.number(ChangeKind::daemonSignature, 1);
  const auto refusedAgain = mac.apply("{\"limit\":65}", "unsigned");
  const auto app = mac.apply("{\"limit\":70}");
  process.run(0);
  EXPECT_EQ(mac.reply(refusedAgain), "refused");
  EXPECT_EQ(mac.reply(app), "done");
  EXPECT_THAT(newLines(), Contains(uncheckedLine).Times(1));
}

TEST_F(Clients, areAdmittedIfSignedByTheTeamOfTheDaemon) {
  const auto& other = virtual_mac::findClient("wrong-team")->signature;
  mac.change({.kind = ChangeKind::daemonTeam, .text = virtual_mac::shortText(other.team)});
  begin();
  const auto app = mac.apply("{\"limit\":60}");
  const auto others = mac.apply("{\"limit\":65}", "wrong-team");
  process.run(0);
  EXPECT_EQ(mac.reply(app), "refused");
  EXPECT_EQ(mac.reply(others), "done");
}

// --- erasing

TEST_F(Clients, mayEraseAllDataAndNothingIsWrittenUntilTheNextProcess) {
  mac.settings("{\"limit\":60}");
  process.run(3600);
  const auto asked = mac.ask(RequestKind::purgeAllData);
  process.run(0);
  EXPECT_EQ(mac.reply(asked), "done");
  EXPECT_EQ(mac.request(asked).answers, 1U);
  EXPECT_THAT(process.output(), HasSubstr("  data purge requested: OK\n"));
  const auto nothingThere = [this] {
    return !mac.exists("/Library/Application Support/Brisko") && !mac.exists("/Library/Logs/Brisko");
  };
  EXPECT_TRUE(nothingThere());
  mac.unplug();
  process.run(3600);
  mac.plugIn();
  const auto again = mac.apply("{\"limit\":70}");
  process.run(3600);
  EXPECT_EQ(mac.reply(again), "done");
  mac.sleep();
  process.run(3600);
  mac.wake();
  process.run(3600);
  EXPECT_TRUE(nothingThere());
  process.signal(SIGTERM).run(1);
  EXPECT_EQ(process.status(), 0);
  EXPECT_TRUE(nothingThere()) << "also at its end";
  EXPECT_EQ(mac.key("CHTE"), (std::vector<std::uint8_t>{0, 0, 0, 0}));
  DaemonProcess next(mac);
  next.run(0);
  EXPECT_TRUE(mac.exists("/Library/Logs/Brisko/daemon.log"));
  EXPECT_TRUE(mac.exists("/Library/Application Support/Brisko/status.json"));
}

TEST_F(Clients, mayEraseAllDataAndTheLimitStaysInForce) {
  mac.charge(90);
  begin();
  mac.ask(RequestKind::purgeAllData);
  process.run(3600);
  EXPECT_EQ(mac.key("CHTE").front(), 1) << "the daemon still controls its keys, with the default settings";
}

TEST_F(Clients, getASuccessReplyToAReleaseWhereTheDaemonUsesKeys) {
  mac.charge(90);
  begin();
  const auto first = mac.ask(RequestKind::releaseCharge);
  const auto second = mac.ask(RequestKind::releaseCharge);
  process.run(60);
  EXPECT_EQ(mac.reply(first), "done");
  EXPECT_EQ(mac.reply(second), "done");
  EXPECT_EQ(mac.key("CHTE").front(), 1);
  EXPECT_THAT(newLines(), Not(Contains(HasSubstr("release"))));
  process.signal(SIGTERM).run(1);
  EXPECT_EQ(process.status(), 0);
  EXPECT_EQ(mac.key("CHTE").front(), 0) << "the exit gives them back";
}

// --- restarting

TEST_F(Clients, mayRestartTheDaemonWhichGivesEverythingBackFirst) {
  mac.charge(90);
  begin();
  const auto asked = mac.ask(RequestKind::restart);
  process.run(0.296875);
  EXPECT_EQ(mac.reply(asked), "done");
  EXPECT_TRUE(process.alive());
  EXPECT_THAT(newLines(), IsEmpty());
  process.run(0.0078125);  // 0.3 s have passed
  EXPECT_EQ(process.status(), 0);
  EXPECT_THAT(newLines(), ElementsAre(restartLine));
  EXPECT_THAT(mac.writes(),
              ElementsAre("asked restart", "replied restart", "CHIE=00", "CHTE=00000000", "ACLC=00"));
  EXPECT_EQ(mac.request(asked).answers, 1U);
}

TEST_F(Clients, mayAskTwiceForARestart) {
  begin();
  const auto first = mac.ask(RequestKind::restart);
  process.run(0.2);
  const auto second = mac.ask(RequestKind::restart);
  process.run(60);
  EXPECT_EQ(process.status(), 0);
  EXPECT_EQ(mac.request(first).answers, 1U);
  EXPECT_EQ(mac.request(second).answers, 1U);
  EXPECT_THAT(newLines(), Contains(restartLine).Times(1));
}

TEST_F(Clients, mayStillChangeSettingsBeforeTheRestartComes) {
  begin();
  mac.ask(RequestKind::restart);
  const auto asked = mac.apply("{\"limit\":60}");
  process.run(60);
  EXPECT_EQ(mac.reply(asked), "done");
  EXPECT_EQ(process.status(), 0);
  EXPECT_EQ(mac.key("CHTE").front(), 0);
}

// --- where macOS's own limit holds the charge

class NativeClients : public ::testing::Test {
 protected:
  static virtual_mac::MachineOptions closedKeys() { return {.macOS = 27, .percent = 75}; }
  // The limit is set and verified.
  void begin() {
    process.run(61);
    ASSERT_EQ(mac.key("bfG0").front(), 80);
    forget();
  }
  void forget() {
    mac.forgetJournal();
    seen = lines().size();
  }
  // All logged lines, also those without a log file.
  std::vector<std::string> lines() const {
    std::vector<std::string> all = sim::linesOf(process.output());
    for (std::string& line : all) line = sim::withoutStamp(line);
    return all;
  }
  std::vector<std::string> newLines() const {
    const auto all = lines();
    return {all.begin() + static_cast<std::ptrdiff_t>(seen), all.end()};
  }
  // The writes, without those of the light: a release and a purge hand back only the limit, so the light
  // continues to blink.
  test::Writes writesButTheLight() const {
    test::Writes all = mac.writes();
    std::erase_if(all, [](const std::string& entry) { return entry.starts_with("ACLC="); });
    return all;
  }
  bool nothingWritten() const {
    return !mac.exists("/Library/Application Support/Brisko") && !mac.exists("/Library/Logs/Brisko");
  }

  VirtualMac mac{closedKeys()};
  DaemonProcess process{mac};
  std::size_t seen = 0;
};

constexpr const char* handedBackLine = "macOS limit handed back: off";
constexpr const char* releasedLine = "charge released by the app — the service is about to be removed";
constexpr const char* takenAgainLine =
    "still running 30 s after the release — the removal didn't happen, Brisko takes the charge again";
constexpr const char* purgedLine = "data purge requested: OK";

TEST_F(NativeClients, getTheLimitHandedBackBeforeTheReplyToARelease) {
  begin();
  const auto asked = mac.ask(RequestKind::releaseCharge);
  process.run(0);
  EXPECT_EQ(mac.reply(asked), "done");
  EXPECT_THAT(newLines(), ElementsAre(handedBackLine, releasedLine));
  EXPECT_EQ(mac.writes().front(), "asked release");
  EXPECT_EQ(mac.writes().back(), "replied release");
  EXPECT_THAT(mac.writes(), Contains("limit set 100"));
  forget();
  process.run(29.5);
  EXPECT_THAT(writesButTheLight(), IsEmpty()) << "nothing is driven meanwhile";
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_EQ(mac.key("bfG0").front(), 0);
  process.run(0.5);
  ASSERT_THAT(newLines(), Not(IsEmpty()));
  EXPECT_EQ(newLines().front(), takenAgainLine);
  EXPECT_THAT(newLines(), Contains("macOS limit → 80%"));
  process.run(60);
  EXPECT_EQ(mac.key("bfG0").front(), 80);
}

TEST_F(NativeClients, restartTheGracePeriodWithASecondRelease) {
  begin();
  const auto first = mac.ask(RequestKind::releaseCharge);
  process.run(10);
  const auto second = mac.ask(RequestKind::releaseCharge);
  process.run(29.5);
  EXPECT_EQ(mac.reply(first), "done");
  EXPECT_EQ(mac.reply(second), "done");
  EXPECT_THAT(newLines(), ElementsAre(handedBackLine, releasedLine, handedBackLine, releasedLine));
  process.run(0.5);
  EXPECT_THAT(newLines(), Contains(takenAgainLine).Times(1));
  process.run(60);
  EXPECT_THAT(newLines(), Contains(takenAgainLine).Times(1));
}

TEST_F(NativeClients, leaveTheMacUncontrolledAfterAReleaseAndARemoval) {
  begin();
  mac.ask(RequestKind::releaseCharge);
  process.run(5);
  process.signal(SIGTERM).run(1);
  EXPECT_EQ(process.status(), 0);
  EXPECT_THAT(newLines(), ElementsAre(handedBackLine, releasedLine,
                                      "Signal 15: handing the macOS limit back, exiting.", handedBackLine));
  mac.pass(3600);
  EXPECT_EQ(mac.key("bfG0").front(), 0);
}

TEST_F(NativeClients, keepTheLimitReleasedWhenAPurgeFollowsARelease) {
  begin();
  const auto released = mac.ask(RequestKind::releaseCharge);
  const auto purged = mac.ask(RequestKind::purgeAllData);
  process.run(0);
  EXPECT_EQ(mac.reply(released), "done");
  EXPECT_EQ(mac.reply(purged), "done");
  EXPECT_THAT(newLines(), ElementsAre(handedBackLine, releasedLine, handedBackLine, purgedLine));
  forget();
  process.run(3600);
  EXPECT_THAT(newLines(), ElementsAre(takenAgainLine)) << "logged, because the time of the release is over";
  EXPECT_THAT(writesButTheLight(), IsEmpty()) << "but not done after a purge";
  EXPECT_TRUE(nothingWritten());
}

TEST_F(NativeClients, getTheLimitHandedBackBeforeAPurge) {
  begin();
  const auto asked = mac.ask(RequestKind::purgeAllData);
  process.run(0);
  EXPECT_EQ(mac.reply(asked), "done");
  EXPECT_THAT(newLines(), ElementsAre(handedBackLine, purgedLine));
  EXPECT_TRUE(nothingWritten());
  forget();
  const auto settings = mac.apply("{\"limit\":85}");
  process.run(3600);
  EXPECT_EQ(mac.reply(settings), "done");
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_THAT(writesButTheLight(), ElementsAre("asked apply", "replied apply"))
      << "macOS is left alone for good";
  process.signal(SIGTERM).run(1);
  EXPECT_EQ(process.status(), 0);
  EXPECT_TRUE(nothingWritten()) << "also at its end";
  EXPECT_EQ(mac.key("bfG0").front(), 0);
}

TEST_F(NativeClients, findOnlyTheHandBackInTheLogFileAfterAPurge) {
  begin();
  // A second link to the log file keeps its content after the removal.
  const std::string kept = mac.path("/kept.log");
  ASSERT_EQ(::link(mac.path("/Library/Logs/Brisko/daemon.log").c_str(), kept.c_str()), 0);
  mac.ask(RequestKind::purgeAllData);
  process.run(0);
  ASSERT_TRUE(nothingWritten());
  EXPECT_THAT(test::contents(kept), HasSubstr(std::string(handedBackLine) + "\n"));
  EXPECT_THAT(test::contents(kept), Not(HasSubstr("purge")));
}

TEST_F(NativeClients, mayRestartTheDaemonWhichHandsTheLimitBackFirst) {
  begin();
  const auto asked = mac.ask(RequestKind::restart);
  process.run(0.25);
  EXPECT_EQ(mac.reply(asked), "done");
  EXPECT_THAT(newLines(), IsEmpty());
  process.run(0.1);
  EXPECT_EQ(process.status(), 0);
  EXPECT_THAT(newLines(), ElementsAre(restartLine, handedBackLine));
}

TEST_F(NativeClients, changeTheLimitOfMacOS) {
  begin();
  const auto asked = mac.apply("{\"limit\":90}");
  process.run(0);
  EXPECT_EQ(mac.reply(asked), "done");
  EXPECT_THAT(newLines(), Contains("macOS limit → 90%"));
  EXPECT_EQ(mac.writes().back(), "replied apply");
}

// The daemon does not control the charge there, so there is nothing to release.
TEST(LockedClients, getASuccessReplyToARelease) {
  VirtualMac mac({.macOS = 27, .chargeLimit = false});
  DaemonProcess process(mac);
  process.run(1);
  const auto released = mac.ask(RequestKind::releaseCharge);
  process.run(60);
  EXPECT_EQ(mac.reply(released), "done");
  EXPECT_THAT(mac.logLines(), Not(Contains(HasSubstr("release"))));
  const auto purged = mac.ask(RequestKind::purgeAllData);
  process.run(3600);
  EXPECT_EQ(mac.reply(purged), "done");
  EXPECT_FALSE(mac.exists("/Library/Application Support/Brisko"));
}

}  // namespace
}  // namespace brisko::control_process_test
