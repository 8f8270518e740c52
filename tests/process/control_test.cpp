// The app's requests to the real daemon on a live virtual Mac, and the app's removal and return.

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>

#include "process/live_mac.h"
#include "process/program.h"
#include "support/testing.h"
#include "tools/vmac/control_client.h"

namespace brisko::control_test {
namespace {

using namespace test;
using virtual_mac::ControlRequestKind;
using vmac::ControlClient;

const std::string appPath = "/Applications/Brisko.app";

// Runs a command of the app, which may fail.
Finished app(const LiveMac& mac, const Words& words) {
  Words all{"app", mac.folder()};
  all.insert(all.end(), words.begin(), words.end());
  return run("brisko-vmac", all);
}

void expectDone(const Finished& finished) {
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_EQ(finished.output, "done\n");
  EXPECT_EQ(finished.errors, "");
}

void expectNoAnswer(const LiveMac& mac, const Finished& finished) {
  EXPECT_EQ(finished.status, 1);
  EXPECT_EQ(finished.output, "");
  EXPECT_EQ(finished.errors,
            "brisko-vmac: the service of the machine in " + mac.folder() + " does not answer\n");
}

std::string configOf(const LiveMac& mac) {
  return test::contents(mac.folder() + "/volume/Library/Application Support/Brisko/config.json");
}

// A daemon whose service is available.
std::unique_ptr<Program> servingDaemon(const LiveMac& mac, const Words& arguments = {}) {
  auto daemon = mac.daemon(arguments);
  EXPECT_TRUE(mac.logs("batt "));
  return daemon;
}

// --- Requests

// At real speed, and well before the first heartbeat.
TEST(LiveControl, appliesSettingsBeforeItAnswers) {
  const LiveMac mac({"--charge", "70"});
  mac.settings("{\"hysteresis\":7,\"limit\":80}");
  const auto daemon = servingDaemon(mac);
  expectDone(app(mac, {"apply", "{\"limit\":60}"}));
  EXPECT_THAT(configOf(mac), HasSubstr("\"hysteresis\":7,"));
  EXPECT_THAT(configOf(mac), HasSubstr("\"limit\":60,"));
  EXPECT_THAT(mac.log(), HasSubstr("cap 60%"));
  EXPECT_THAT(mac.log(), HasSubstr("→ state: hold"));
  EXPECT_EQ(mac.key("CHTE"), "01000000");
}

TEST(LiveControl, refusesSettingsThatItCannotRead) {
  const LiveMac mac;
  mac.settings("{\"limit\":80}");
  const auto daemon = servingDaemon(mac);
  const std::string before = configOf(mac);
  for (const std::string& settings : {std::string("[1]"), std::string("{\"limit\":"), std::string("70"),
                                      std::string("{} {}"), std::string(100'000, '[')}) {
    const Finished finished = app(mac, {"apply", settings});
    EXPECT_EQ(finished.status, 1);
    EXPECT_EQ(finished.output, "");
    EXPECT_EQ(finished.errors, "brisko-vmac: Unreadable settings.\n");
  }
  EXPECT_EQ(configOf(mac), before);
  expectDone(app(mac, {"apply", "{}"}));
}

TEST(LiveControl, ignoresAClientThatDoesNotMeetTheRequirement) {
  const LiveMac mac({"--charge", "80"});
  mac.settings("{\"limit\":80}");
  const auto daemon = servingDaemon(mac);
  const std::string log = mac.log();
  const std::string config = configOf(mac);
  const std::string gate = mac.key("CHTE");
  for (const char* stranger : {"wrong-team", "wrong-app", "unsigned"}) {
    expectNoAnswer(mac, app(mac, {"apply", "{\"limit\":50}", "--as", stranger}));
    for (const char* request : {"purge", "release", "restart"}) {
      expectNoAnswer(mac, app(mac, {request, "--as", stranger}));
    }
  }
  EXPECT_EQ(mac.log(), log);
  EXPECT_EQ(configOf(mac), config);
  EXPECT_EQ(mac.key("CHTE"), gate);
  EXPECT_FALSE(daemon->ends(0.5));
  expectDone(app(mac, {"release"}));
}

TEST(LiveControl, admitsEveryClientOfAnUnsignedDaemonAndWarnsEachTime) {
  const LiveMac mac;
  static_cast<void>(mac.vmac("fault", {"daemon-unsigned"}));
  const auto daemon = servingDaemon(mac);
  for (const char* client : {"app", "unsigned", "wrong-team"}) {
    expectDone(app(mac, {"release", "--as", client}));
  }
  EXPECT_TRUE(eventually([&] {
    return countOf(
               mac.log(),
               "⚠️ XPC with no signature check (binary not signed by a team) — development build") == 3;
  }));
}

TEST(LiveControl, doesNotAnswerWithoutADaemon) {
  const LiveMac mac;
  expectNoAnswer(mac, app(mac, {"release"}));
  {
    const auto daemon = servingDaemon(mac);
    expectDone(app(mac, {"release"}));
    daemon->signal(SIGKILL);
    ASSERT_TRUE(daemon->ends());
  }
  expectNoAnswer(mac, app(mac, {"release"}));
  // The next daemon replaces the killed one.
  const auto daemon = mac.daemon();
  EXPECT_TRUE(eventually([&] { return app(mac, {"release"}).status == 0; }));
}

TEST(LiveControl, isServedByTheFirstOfTwoDaemons) {
  const LiveMac mac;
  const auto first = servingDaemon(mac);
  const auto second = mac.daemon();
  ASSERT_TRUE(eventually([&] { return countOf(mac.log(), "batt ") >= 2; }));
  expectDone(app(mac, {"restart"}));
  EXPECT_TRUE(first->ends());
  EXPECT_FALSE(second->ends(0.5));
}

TEST(LiveControl, purgesAllDataAndWritesNoneAgain) {
  const LiveMac mac({"--charge", "80", "--speed", "100"});
  mac.settings("{\"limit\":80}");
  const auto daemon = servingDaemon(mac);
  expectDone(app(mac, {"purge"}));
  const std::string data = mac.folder() + "/volume/Library/Application Support/Brisko";
  const std::string logs = mac.folder() + "/volume/Library/Logs/Brisko";
  EXPECT_FALSE(test::exists(data));
  EXPECT_FALSE(test::exists(logs));
  EXPECT_THAT(daemon->output(), HasSubstr("Z  data purge requested: OK\n"));
  // Again, with nothing to erase; then settings, which are not written any more.
  expectDone(app(mac, {"purge"}));
  expectDone(app(mac, {"apply", "{\"limit\":60}"}));
  static_cast<void>(mac.vmac("unplug"));
  EXPECT_TRUE(eventually([&] { return daemon->output().find("battery  state=allow") != std::string::npos; }));
  daemon->signal(SIGTERM);
  ASSERT_TRUE(daemon->ends());
  EXPECT_FALSE(test::exists(data));
  EXPECT_FALSE(test::exists(logs));
}

// The time of the line with this text in the log, in seconds since midnight; -1 without such a line.
double timeOf(const std::string& log, const std::string& text, bool last = false) {
  const std::size_t at = last ? log.rfind(text) : log.find(text);
  if (at == std::string::npos) return -1;
  const std::size_t line = log.rfind('\n', at) + 1;  // npos + 1 is 0
  const std::string stamp = log.substr(line, 20);    // 2026-03-01T08:15:30Z
  return std::atof(stamp.c_str() + 11) * 3600 + std::atof(stamp.c_str() + 14) * 60 +
         std::atof(stamp.c_str() + 17);
}

// The reply has 0.3 s of machine time to arrive, so the speed is raised only afterwards.
TEST(LiveControl, isRestartedByItsLaunchServiceTenSecondsAfterItsStart) {
  const LiveMac mac({"--charge", "80"});
  Program boot("brisko-vmac", {"boot", mac.folder()});
  ASSERT_TRUE(mac.logs("batt 80%"));
  expectDone(app(mac, {"restart"}));
  static_cast<void>(mac.vmac("speed", {"10"}));
  ASSERT_TRUE(mac.logs("restart requested by the app — exiting so launchd loads the current binary"));
  ASSERT_TRUE(eventually([&] { return countOf(mac.log(), "brisko-daemon started") == 2; }));
  const double day = 86'400;
  const double apart =
      timeOf(mac.log(), "brisko-daemon started", true) - timeOf(mac.log(), "brisko-daemon started");
  EXPECT_GE(apart < 0 ? apart + day : apart, 10);
  // The old process gave everything back, and the new one serves.
  EXPECT_TRUE(eventually([&] { return app(mac, {"apply", "{\"limit\":60}"}).status == 0; }));
  static_cast<void>(mac.vmac("shutdown"));
  EXPECT_TRUE(boot.ends());
  EXPECT_EQ(boot.status(), 0);
}

TEST(LiveControl, exitsWithStatusZeroOnARestartAndGivesEverythingBack) {
  const LiveMac mac({"--charge", "90"});
  mac.settings("{\"discharge\":true}");
  const auto daemon = mac.daemon();
  ASSERT_TRUE(mac.logs("→ state: discharge"));
  expectDone(app(mac, {"restart"}));
  ASSERT_TRUE(daemon->ends());
  EXPECT_EQ(daemon->status(), 0);
  EXPECT_EQ(mac.key("CHTE"), "00000000");
  EXPECT_EQ(mac.key("CHIE"), "00");
}

// --- Many requests at once

// How often a file is written.
class Rhythm {
 public:
  Rhythm(std::string path, const char* key) : path_(std::move(path)), key_(key) {}

  void update() {
    const auto object = nlohmann::json::parse(test::contents(path_), nullptr, false);
    if (!object.is_object() || !object.contains(key_) || object[key_] == last_) return;
    last_ = object[key_];
    ++changes_;
  }
  [[nodiscard]] int changes() const { return changes_; }

 private:
  std::string path_;
  const char* key_;
  nlohmann::json last_;
  int changes_ = 0;
};

TEST(LiveControl, answersTenThousandRequestsAtOnceAndKeepsItsHeartbeat) {
  constexpr int each = 5000;
  const LiveMac mac({"--charge", "80", "--speed", "200"});
  mac.settings("{\"limit\":80}");
  const auto daemon = servingDaemon(mac);
  ASSERT_TRUE(mac.logs("→ state: hold"));

  std::atomic<int> left{2};
  std::vector<std::set<std::int64_t>> answered(2);
  std::vector<std::thread> clients;
  for (auto& ids : answered) {
    clients.emplace_back([&] {
      const auto client = ControlClient::connect(mac.folder(), virtual_mac::findClient("app")->signature);
      ASSERT_NE(client, nullptr);
      std::thread asking([&] {
        for (int number = 0; number < each; ++number) {
          static_cast<void>(client->send(ControlRequestKind::applySettings,
                                         "{\"historyDays\":" + std::to_string(300 + number % 50) + "}"));
        }
      });
      for (int number = 0; number < each; ++number) {
        const auto reply = client->nextReply();
        if (!reply) break;
        EXPECT_TRUE(reply->done);
        EXPECT_TRUE(ids.insert(reply->id).second) << "answered twice";
      }
      asking.join();
      client->closeWriting();
      EXPECT_FALSE(client->nextReply()) << "one too many";
      --left;
    });
  }

  // The files of the two timers: the status at least every minute, the statistics every 20 s. They are also
  // written while requests are waiting.
  const std::string data = mac.folder() + "/volume/Library/Application Support/Brisko";
  Rhythm status(data + "/status.json", "ts");
  Rhythm statistics(data + "/stats.json", "protectedSeconds");
  while (left > 0) {
    status.update();
    statistics.update();
    const timespec moment{0, 5'000'000};
    static_cast<void>(::nanosleep(&moment, nullptr));
  }
  for (std::thread& client : clients) client.join();

  for (const auto& ids : answered) EXPECT_EQ(ids.size(), std::size_t{each});
  EXPECT_GE(statistics.changes(), 3);
  EXPECT_GE(status.changes(), 3);
  EXPECT_EQ(mac.key("CHTE"), "01000000");
  EXPECT_FALSE(daemon->ends(0));
}

// --- The app itself

const std::string absence =
    "app missing at " + appPath + " — handing the charge back to macOS in 600s unless it comes back";
const std::string dormancy =
    "app gone — charge, adapter and LED handed back to macOS; service dormant (uninstall with "
    "uninstall-service.sh)";

// Ten minutes of machine time take a second or two.
constexpr const char* hurry = "400";

TEST(LiveApp, isDeletedAndTheDaemonGivesEverythingBackAndBecomesDormant) {
  const LiveMac mac({"--charge", "90", "--speed", hurry});
  mac.settings("{\"discharge\":true}");
  const auto daemon = mac.daemon({"--app", appPath});
  ASSERT_TRUE(mac.logs("→ state: discharge"));
  EXPECT_EQ(mac.key("CHIE"), "08");
  static_cast<void>(mac.vmac("app", {"delete"}));
  ASSERT_TRUE(mac.logs(absence));
  ASSERT_TRUE(mac.logs(dormancy));
  EXPECT_EQ(mac.key("CHTE"), "00000000");
  EXPECT_EQ(mac.key("CHIE"), "00");
  EXPECT_EQ(mac.key("ACLC"), "00");
  const double grace = timeOf(mac.log(), dormancy) - timeOf(mac.log(), absence);
  EXPECT_GE(grace < 0 ? grace + 86'400 : grace, 600);

  // From now on it writes nothing, whatever the charge.
  const std::string log = mac.log();
  const auto lastWrite = [&] {
    const std::string shown = mac.vmac("show", {"--journal", "1"});
    return shown.substr(shown.find("\njournal\n"));
  };
  const std::string before = lastWrite();
  static_cast<void>(mac.vmac("set", {"charge=40"}));
  static_cast<void>(mac.vmac("unplug"));
  const timespec aWhile{0, 500'000'000};
  static_cast<void>(::nanosleep(&aWhile, nullptr));
  EXPECT_EQ(mac.log(), log);
  EXPECT_EQ(lastWrite(), before);
  EXPECT_FALSE(daemon->ends(0));
}

TEST(LiveApp, causesOneLineIfItReturnsInTime) {
  const LiveMac mac({"--charge", "80", "--speed", hurry});
  const auto daemon = mac.daemon({"--app", appPath});
  ASSERT_TRUE(mac.logs("→ state: hold"));
  static_cast<void>(mac.vmac("speed", {"1"}));
  static_cast<void>(mac.vmac("app", {"delete"}));
  ASSERT_TRUE(mac.logs(absence));
  static_cast<void>(mac.vmac("app", {"restore"}));
  static_cast<void>(mac.vmac("speed", {hurry}));
  const timespec twiceTheGrace{3, 0};
  static_cast<void>(::nanosleep(&twiceTheGrace, nullptr));
  EXPECT_EQ(countOf(mac.log(), "app missing at"), 1U);
  EXPECT_THAT(mac.log(), Not(HasSubstr("app gone")));
  EXPECT_THAT(mac.log(), Not(HasSubstr("app is back")));
  EXPECT_EQ(mac.key("CHTE"), "01000000");
}

TEST(LiveApp, countsAsGoneWhenItIsMovedAndIsFoundByANewDaemon) {
  const LiveMac mac({"--charge", "80", "--speed", hurry});
  const auto daemon = mac.daemon({"--app", appPath});
  ASSERT_TRUE(mac.logs("→ state: hold"));
  static_cast<void>(mac.vmac("app", {"move"}));
  ASSERT_TRUE(mac.logs(dormancy));
  daemon->signal(SIGTERM);
  ASSERT_TRUE(daemon->ends());
  static_cast<void>(mac.vmac("app", {"restore"}));
  const auto next = mac.daemon({"--app", appPath});
  EXPECT_TRUE(eventually([&] { return mac.key("CHTE") == "01000000"; }));
  EXPECT_EQ(countOf(mac.log(), "app missing at"), 1U);
}

// --- The output of the program

TEST(VmacApp, changesTheBundleOnTheMachinesVolume) {
  const LiveMac mac;
  const std::string bundle = mac.folder() + "/volume" + appPath;
  ASSERT_TRUE(test::exists(bundle));
  for (const char* verb : {"delete", "move"}) {
    EXPECT_EQ(app(mac, {verb}).status, 0);
    EXPECT_FALSE(test::exists(bundle)) << verb;
    const Finished again = app(mac, {verb});
    EXPECT_EQ(again.status, 1);
    EXPECT_EQ(again.errors, "brisko-vmac: there is no app in the Applications folder\n");
    EXPECT_EQ(app(mac, {"restore"}).status, 0);
    EXPECT_TRUE(test::exists(bundle)) << verb;
  }
  EXPECT_EQ(app(mac, {"restore"}).status, 1);
}

TEST(VmacApp, restoresAMovedBundle) {
  const LiveMac mac;
  test::put(mac.folder() + "/volume" + appPath + "/mark", "ours");
  static_cast<void>(mac.vmac("app", {"move"}));
  static_cast<void>(mac.vmac("app", {"restore"}));
  EXPECT_EQ(test::contents(mac.folder() + "/volume" + appPath + "/mark"), "ours");
}

TEST(VmacApp, reportsInvalidArguments) {
  const LiveMac mac;
  for (const Words& words : {Words{}, Words{"dance"}, Words{"apply"}, Words{"purge", "{}"},
                             Words{"release", "--as", "nobody"}, Words{"delete", "now"}}) {
    const Finished finished = app(mac, words);
    EXPECT_EQ(finished.status, 2) << ::testing::PrintToString(words);
    EXPECT_EQ(finished.output, "");
  }
  EXPECT_TRUE(test::exists(mac.folder() + "/volume" + appPath));
}

TEST(VmacApp, reportsAFolderThatIsNotAMachine) {
  const test::ScratchFolder scratch;
  const Finished finished = run("brisko-vmac", {"app", scratch.path(), "release"});
  EXPECT_EQ(finished.status, 1);
  EXPECT_THAT(finished.errors, HasSubstr("holds no machine"));
}

}  // namespace
}  // namespace brisko::control_test
