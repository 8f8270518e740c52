// What people do with brisko, on a live virtual Mac.
#include <csignal>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include "client/live_brisko.h"
#include "client/service.h"
#include "support/record_schemas.h"
#include "support/testing.h"

namespace brisko::brisko_test {
namespace {

using namespace test;
using nlohmann::json;

// The one object that a command printed, validated against its schema.
json answered(const Finished& finished, const std::string& kind, int status = 0) {
  EXPECT_EQ(finished.status, status) << finished.errors;
  std::string text = finished.output;
  EXPECT_TRUE(text.ends_with('\n'));
  if (!text.empty()) text.pop_back();
  EXPECT_EQ(test::flawIn(text, "brisko-" + kind).value_or(""), "") << text;
  json object = json::parse(text, nullptr, false);
  EXPECT_EQ(object.value("schema", ""), "brisko." + kind + "/1");
  return object;
}

// --- Reading

TEST(Brisko, showsWhatTheDaemonDoes) {
  LiveBrisko mac;
  mac.mac.settings("{\"limit\":80}");
  mac.boot();
  const std::string text = said(mac.brisko({}));
  EXPECT_THAT(text, HasSubstr("Charge      70 %  on the adapter (30 W)"));
  EXPECT_THAT(text, HasSubstr("Band        75–80 %"));
  EXPECT_THAT(text, HasSubstr("limit 80 %"));
  EXPECT_THAT(text, HasSubstr("Discharge off"));
  EXPECT_THAT(text, HasSubstr("0.9.9, through CHTE, up "));
  EXPECT_THAT(text, HasSubstr("Charging from 70 % to the limit of 80 %."));
  EXPECT_THAT(said(mac.brisko({"why"})), StartsWith("Charging from 70 % to the limit of 80 %."));
  EXPECT_THAT(said(mac.brisko({"status", "--line"})), StartsWith("70% charging allowed 80%"));
}

TEST(Brisko, wrapsAnswersForNarrowTerminalsAndUsesAsciiInPlainLocales) {
  LiveBrisko mac;
  mac.boot();
  const std::string narrow = said(mac.brisko({}, {{"COLUMNS", "40"}}));
  for (std::size_t begin = 0; begin < narrow.size();) {
    const std::size_t end = narrow.find('\n', begin);
    EXPECT_LE(end - begin, 42U) << narrow.substr(begin, end - begin);
    begin = end + 1;
  }
  const std::string plain = said(mac.brisko({}, {{"LC_ALL", "C"}}));
  EXPECT_THAT(plain, HasSubstr("75-80 %"));
  for (const char byte : plain) EXPECT_GE(byte, 0) << plain;
}

TEST(Brisko, printsObjectsThatMeetTheirSchemas) {
  LiveBrisko mac;
  mac.boot();
  const json status = answered(mac.brisko({"--json"}), "status");
  EXPECT_EQ(status["status"], json::parse(test::contents(mac.statusPath())));
  EXPECT_EQ(status["why"]["code"], "charging");
  EXPECT_EQ(status["stale"], false);
  EXPECT_EQ(status["settings"].size(), 16U);
  EXPECT_EQ(answered(mac.brisko({"why", "--json"}), "why")["until"]["value"], 80);
  EXPECT_EQ(answered(mac.brisko({"get", "--json"}), "settings")["settings"].size(), 16U);
  EXPECT_EQ(answered(mac.brisko({"limit", "--json"}), "settings")["settings"], json({{"limit", 80}}));
  const json change = answered(mac.brisko({"limit", "75", "--json"}), "change");
  EXPECT_EQ(change["way"], "service");
  EXPECT_EQ(change["confirmed"], true);
  EXPECT_EQ(change["asked"], json({{"limit", 75}}));
  EXPECT_EQ(answered(mac.brisko({"calibrate", "--json"}), "calibration")["phase"], "idle");
  EXPECT_GT(answered(mac.brisko({"log", "--json", "--all"}), "log")["lines"].size(), 3U);
  EXPECT_EQ(answered(mac.brisko({"version", "--json"}), "version")["daemon"], "0.9.9");
  answered(mac.brisko({"restart", "--json", "--wait", "0"}), "restart");
}

TEST(Brisko, showsTheLogInEnglish) {
  LiveBrisko mac;
  mac.boot();
  const std::string text = said(mac.brisko({"log"}));
  EXPECT_THAT(text, HasSubstr("brisko-daemon started"));
  EXPECT_THAT(text, MatchesRegex("[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9:]{8}  (.|\n)*"));
  EXPECT_EQ(said(mac.brisko({"log", "--raw"})), mac.mac.log());
  expectRefused(mac.brisko({"log", "--since", "yesterday"}), 2, "90m, 2h or 3d");
}

// --- Changing

TEST(Brisko, changesTheLimitThroughTheServiceAndKeepsEverythingElse) {
  LiveBrisko mac;
  mac.mac.settings("{\"hysteresis\":7,\"limit\":80}");
  mac.boot();
  EXPECT_EQ(said(mac.brisko({"limit", "60"})), "The limit is 60 %.\n");
  EXPECT_THAT(mac.config(), HasSubstr("\"hysteresis\":7,"));
  EXPECT_THAT(mac.config(), HasSubstr("\"limit\":60,"));
  EXPECT_EQ(mac.mac.key("CHTE"), "01000000");
  EXPECT_THAT(said(mac.brisko({"why"})), HasSubstr("above the limit of 60 %"));
  EXPECT_EQ(said(mac.brisko({"limit", "60", "--quiet"})), "");
}

TEST(Brisko, changesEverySetting) {
  LiveBrisko mac;
  mac.boot();
  static_cast<void>(said(mac.brisko({"band", "60..70"})));
  EXPECT_EQ(said(mac.brisko({"get", "hysteresis"})), "10\n");
  EXPECT_EQ(said(mac.brisko({"get", "limit"})), "70\n");
  static_cast<void>(said(mac.brisko({"heat", "38"})));
  static_cast<void>(said(mac.brisko({"light", "off"})));
  static_cast<void>(said(mac.brisko({"discharge", "on"})));
  static_cast<void>(said(mac.brisko({"set", "calDrain=20", "history=off", "blinkSeconds=1.5"})));
  static_cast<void>(said(mac.brisko({"off"})));
  const json config = json::parse(mac.config());
  EXPECT_EQ(config["thermal"], true);
  EXPECT_EQ(config["thermalLimit"], 38);
  EXPECT_EQ(config["led"], false);
  EXPECT_EQ(config["discharge"], true);
  EXPECT_EQ(config["calDrain"], 20);
  EXPECT_EQ(config["history"], false);
  EXPECT_EQ(config["blinkSeconds"], 1.5);
  EXPECT_EQ(config["enabled"], false);
  EXPECT_THAT(said(mac.brisko({"why"})), StartsWith("Limiting is off"));
}

TEST(Brisko, sendsTheLimitOfTheJobAlongWithoutAFile) {
  LiveBrisko mac;
  mac.boot({"--limit", "85"});
  EXPECT_EQ(said(mac.brisko({"limit"})), "The limit is 85 %.\n");
  static_cast<void>(said(mac.brisko({"light", "off"})));
  EXPECT_EQ(json::parse(mac.config())["limit"], 85);
}

TEST(Brisko, chargesToFullOnceAndStops) {
  LiveBrisko mac;
  mac.boot();
  EXPECT_THAT(said(mac.brisko({"full", "--for", "4h"})), StartsWith("Charging to full once."));
  EXPECT_THAT(said(mac.brisko({"why"})), StartsWith("Charging to full once, now 70 %"));
  EXPECT_EQ(json::parse(mac.config())["topUpHours"], 4);
  static_cast<void>(said(mac.brisko({"full", "--stop"})));
  EXPECT_EQ(json::parse(mac.config())["topUp"], false);
}

TEST(Brisko, refusesAFullChargeThatWouldBeDropped) {
  LiveBrisko mac({"--charge", "70", "--unplugged"});
  mac.boot();
  const std::string before = mac.config();
  expectRefused(mac.brisko({"full"}), 1, "not plugged in");
  expectRefused(mac.brisko({"full", "--for", "90m"}), 2, "whole hours");
  expectRefused(mac.brisko({"full", "--for", "0h"}), 2, "whole hours");
  expectRefused(mac.brisko({"full", "--for", "169h"}), 2, "whole hours");
  expectRefused(mac.brisko({"full", "--for", "4h", "--stop"}), 2, "exclude");
  EXPECT_EQ(mac.config(), before);
}

TEST(Brisko, startsACalibrationOnlyWhenConfirmed) {
  LiveBrisko mac;
  mac.boot();
  expectRefused(mac.brisko({"calibrate", "start"}), 1, "--yes");
  EXPECT_THAT(said(mac.brisko({"calibrate", "status"})), StartsWith("No calibration runs."));
  EXPECT_THAT(said(mac.brisko({"calibrate", "start", "--yes"})), StartsWith("The calibration has started."));
  EXPECT_THAT(said(mac.brisko({"why"})), StartsWith("Calibration, first charge: from 70 % to 100 %"));
  expectRefused(mac.brisko({"calibrate", "start", "--yes"}), 1, "runs already");
  expectRefused(mac.brisko({"full"}), 1, "calibration");
  static_cast<void>(said(mac.brisko({"calibrate", "stop"})));
  EXPECT_EQ(said(mac.brisko({"calibrate", "stop"})), "No calibration runs.\n");
}

// The daemon overwrites the file in place, so it may be found truncated.
json valueInFile(const LiveBrisko& mac, const std::string& key) {
  json value;
  EXPECT_TRUE(eventually([&] {
    const json config = json::parse(mac.config(), nullptr, false);
    if (config.is_object()) value = config[key];
    return config.is_object();
  }));
  return value;
}

TEST(Brisko, losesNoneOfAThousandWritesFromEightClients) {
  LiveBrisko mac;
  mac.boot();
  ASSERT_EQ(::setenv("BRISKO_VIRTUAL_MAC", mac.mac.folder().c_str(), 1), 0);
  const std::vector<std::string> keys{"hysteresis", "thermalLimit",   "topUpHours", "historyDays",
                                      "calDrain",   "calSoakMinutes", "limit",      "blinkSeconds"};
  constexpr int rounds = 125;
  std::vector<int> lost(keys.size());
  std::vector<std::thread> clients;
  for (std::size_t index = 0; index < keys.size(); ++index) {
    clients.emplace_back([&, index] {
      const std::string& key = keys[index];
      const bool isNumber = key == "blinkSeconds";
      for (int round = 0; round < rounds; ++round) {
        const json value = isNumber ? json(1.5 + round) : json(30 + round);
        const auto reply = client::applySettings(json{{key, value}}.dump(), 60);
        if (reply.answer != client::ServiceAnswer::done || valueInFile(mac, key) != value) ++lost[index];
      }
    });
  }
  for (std::thread& client : clients) client.join();
  for (std::size_t index = 0; index < keys.size(); ++index) EXPECT_EQ(lost[index], 0) << keys[index];
}

// --- In the file

TEST(BriskoWithoutService, writesTheFileForADaemonThatRefusesIt) {
  LiveBrisko mac;
  mac.mac.settings("{\"hysteresis\":7,\"limit\":80}");
  static_cast<void>(mac.mac.vmac("fault", {"daemon-other-team"}));
  mac.boot();
  EXPECT_THAT(said(mac.brisko({"limit", "60", "--wait", "60"})), StartsWith("The limit is 60 %."));
  const json config = json::parse(mac.config());
  EXPECT_EQ(config.size(), 16U);
  EXPECT_EQ(config["hysteresis"], 7);
  EXPECT_EQ(test::modeOf(mac.configPath()), 0644U);
  EXPECT_TRUE(mac.mac.logs("→ state: hold"));
}

TEST(BriskoWithoutService, writesTheFileForADaemonThatIsStopped) {
  LiveBrisko mac;
  mac.boot();
  mac.end();
  expectRefused(mac.brisko({"limit", "60"}), 3, "no daemon runs");
  EXPECT_EQ(json::parse(mac.config())["limit"], 60);
  EXPECT_EQ(mac.brisko({}).status, 3);
  expectRefused(mac.brisko({"restart"}), 3, "no daemon runs");
}

TEST(BriskoWithoutService, namesTheLineWithSudo) {
  LiveBrisko mac;
  mac.boot();
  mac.end();
  static_cast<void>(mac.mac.vmac("fault", {"user", "--number", "501"}));
  const std::string before = mac.config();
  expectRefused(mac.brisko({"limit", "60"}), 4, "run: sudo brisko limit 60");
  EXPECT_EQ(mac.config(), before);
}

// --- Bad input

TEST(BriskoRefuses, numbersThatAreNotALimit) {
  LiveBrisko mac;
  mac.mac.settings("{\"limit\":80}");
  mac.boot();
  const std::string before = mac.config();
  for (const char* limit : {"19", "101", "eighty", "80%", ""})
    expectRefused(mac.brisko({"limit", limit}), 2, "the limit is a whole number from 20 to 100");
  expectRefused(mac.brisko({"limit", "70", "80"}), 2, "only one word");
  expectRefused(mac.brisko({"band", "80..75"}), 2, "band");
  expectRefused(mac.brisko({"set", "limits=80"}), 2, "did you mean \"limit\"?");
  expectRefused(mac.brisko({"set", "limit"}), 2, "needs a value");
  expectRefused(mac.brisko({"set", "limit=80", "limit=70"}), 2, "twice");
  expectRefused(mac.brisko({"set", "limit=80", "led=maybe"}), 2, "on or off");
  expectRefused(mac.brisko({"get", "limt"}), 2, "did you mean \"limit\"?");
  expectRefused(mac.brisko({"limit", "70", "--wait", "soon"}), 2, "--wait");
  EXPECT_EQ(mac.config(), before);
}

TEST(BriskoRefuses, settingsFilesThatItCannotUse) {
  LiveBrisko mac;
  mac.mac.settings("{\"limit\":80}");
  mac.boot();
  struct Case {
    std::string bytes;
    const char* reason;
  };
  for (const Case& each :
       {Case{"limit: 80", "line 1, column 1"}, Case{"{\"limit\":80,\n \"led\":tru", "line 2"},
        Case{"", "it is empty"}, Case{"[80]", "not a JSON object"},
        Case{"{\"limit\":99999999999999999999}", "too large"},
        Case{std::string((std::size_t{16} << 20U) + 1, ' '), "larger than any file"}}) {
    test::put(mac.configPath(), each.bytes);
    expectRefused(mac.brisko({"limit", "70"}), 1, each.reason);
    EXPECT_TRUE(test::contents(mac.configPath()) == each.bytes) << each.reason;
    if (each.reason == std::string("too large")) break;  // such a number ends the daemon
  }
}

TEST(BriskoRefuses, otherThanRegularFiles) {
  LiveBrisko mac;
  mac.boot();
  mac.end();
  test::put(mac.configPath(), "{}");
  EXPECT_EQ(std::rename(mac.configPath().c_str(), (mac.configPath() + ".real").c_str()), 0);
  test::makeLink(mac.configPath(), mac.configPath() + ".real");
  expectRefused(mac.brisko({"limit", "70"}), 1, "is a link");
  EXPECT_EQ(test::contents(mac.configPath() + ".real"), "{}");
  EXPECT_EQ(std::remove(mac.configPath().c_str()), 0);
  test::makePipe(mac.configPath());
  expectRefused(mac.brisko({"limit", "70"}), 1, "not a regular file");
}

TEST(BriskoRefuses, aFileOfAnotherUser) {
  LiveBrisko mac;
  mac.boot();
  mac.end();
  test::put(mac.configPath(), "{}");
  if (::chown(mac.configPath().c_str(), 501, 501) != 0) GTEST_SKIP() << "only root can give a file away";
  expectRefused(mac.brisko({"limit", "70"}), 1, "belongs to another user");
  EXPECT_EQ(mac.config(), "{}");
}

TEST(BriskoRefuses, anUnreadableFileUnlessForced) {
  LiveBrisko mac;
  mac.boot();
  test::put(mac.configPath(), "{");
  EXPECT_EQ(said(mac.brisko({"limit", "70", "--force"})), "The limit is 70 %.\n");
  EXPECT_EQ(json::parse(mac.config())["limit"], 70);
}

TEST(BriskoRefuses, aMacWithoutADaemon) {
  const LiveBrisko mac;
  expectRefused(mac.brisko({"limit", "70"}), 3, "not installed");
  EXPECT_FALSE(test::exists(mac.configPath()));
  const Finished status = mac.brisko({});
  EXPECT_EQ(status.status, 3);
  EXPECT_EQ(status.output, "The daemon is not installed: nothing limits the charge.\n");
}

TEST(BriskoRefuses, aComputerThatIsNotAMac) {
  expectRefused(test::run("brisko", {"status"}, {{"BRISKO_VIRTUAL_MAC", ""}}), 3, "not a Mac");
  expectRefused(test::run("brisko", {"limit", "70"}, {{"BRISKO_VIRTUAL_MAC", "/nowhere"}}), 3, "/nowhere");
}

TEST(BriskoRefuses, toTrustAStatusFromTheFuture) {
  LiveBrisko mac;
  mac.boot();
  json status = json::parse(test::contents(mac.statusPath()));
  mac.pause();
  status["ts"] = status["ts"].get<double>() + 7200;
  test::put(mac.statusPath(), status.dump());
  const Finished finished = mac.brisko({"why"});
  EXPECT_EQ(finished.status, 3);
  EXPECT_THAT(finished.output, HasSubstr("the clock was set back"));
}

// A daemon that is paused, with a status from long ago.
void fallSilent(LiveBrisko& mac) {
  mac.pause();
  json status = json::parse(test::contents(mac.statusPath()));
  status["ts"] = status["ts"].get<double>() - 100;
  test::put(mac.statusPath(), status.dump());
}

TEST(BriskoReads, thatTheDaemonDoesNothing) {
  LiveBrisko mac;
  mac.boot();
  fallSilent(mac);
  EXPECT_THAT(mac.brisko({"why"}).output, StartsWith("The daemon does not report: its status is 1 min old."));
  const std::string logPath = mac.mac.folder() + "/volume/Library/Logs/Brisko/daemon.log";
  const std::string log = mac.mac.log();
  test::put(logPath,
            log +
                "2026-03-01T08:15:30Z  app gone — charge, adapter and LED handed back to macOS; service "
                "dormant (uninstall with uninstall-service.sh)\n");
  EXPECT_THAT(mac.brisko({"why"}).output, StartsWith("The app was removed"));
  expectRefused(mac.brisko({"limit", "60"}), 3, "Nothing was changed.");
  test::put(logPath,
            log + "2026-03-01T08:15:30Z  charge released by the app — the service is about to be removed\n");
  EXPECT_THAT(mac.brisko({"why"}).output, StartsWith("The app released the charge"));
  const std::string data = mac.statusPath().substr(0, mac.statusPath().rfind('/'));
  std::filesystem::remove_all(data);
  EXPECT_THAT(mac.brisko({"why"}).output, StartsWith("All data was erased"));
  expectRefused(mac.brisko({"limit", "60"}), 3, "Nothing was changed.");
  EXPECT_FALSE(test::exists(data));
  mac.daemon->signal(SIGCONT);
}

TEST(BriskoReads, theFilesOfAnotherVolume) {
  // Read without its machine, the status is compared with the present.
  LiveBrisko mac({"--start", std::to_string(std::time(nullptr))});
  mac.mac.settings("{\"limit\":65}");
  mac.boot();
  const std::string volume = mac.mac.folder() + "/volume";
  const auto brisko = [&](Words words) {
    words.insert(words.end(), {"--volume", volume + "/"});
    return test::run("brisko", words, {{"BRISKO_VIRTUAL_MAC", ""}, {"LC_ALL", "C.UTF-8"}});
  };
  EXPECT_EQ(said(brisko({"get", "limit"})), "65\n");
  EXPECT_THAT(said(brisko({"status"})), HasSubstr("limit 65 %"));
  EXPECT_EQ(said(brisko({"limit", "60"})), "The limit is 60 %. It is written on that volume.\n");
  EXPECT_EQ(json::parse(mac.config())["limit"], 60);
  expectRefused(brisko({"restart"}), 2, "another volume");
}

TEST(BriskoReads, aStatusOfAnOlderVersion) {
  LiveBrisko mac;
  mac.boot();
  json status = json::parse(test::contents(mac.statusPath()));
  mac.pause();
  test::put(
      mac.statusPath(),
      json{{"state", "hold"}, {"pct", 80}, {"ts", status["ts"]}, {"plugged", true}, {"upper", 80}}.dump());
  const Finished finished = mac.brisko({});
  EXPECT_EQ(finished.status, 0) << finished.errors;
  EXPECT_THAT(finished.output, HasSubstr("unknown version"));
  EXPECT_THAT(finished.output, HasSubstr("Held at 80 %: this is the limit."));
  test::put(mac.statusPath(), "{}");
  EXPECT_THAT(mac.brisko({}).errors, HasSubstr("not usable"));
}

TEST(BriskoEnds, silentlyOnAClosedPipe) {
  LiveBrisko mac;
  mac.boot();
  const std::string program = test::programPath("brisko");
  const Finished finished =
      test::run("/bin/sh", {"-c", "{ sleep 0.2; '" + program + "' get; echo $? >&2; } | true"},
                {{"BRISKO_VIRTUAL_MAC", mac.mac.folder()}, {"LC_ALL", "C.UTF-8"}});
  EXPECT_EQ(finished.errors, "0\n");
  const Finished full = test::run("/bin/sh", {"-c", "'" + program + "' get > /dev/full"},
                                  {{"BRISKO_VIRTUAL_MAC", mac.mac.folder()}});
  expectRefused(full, 1, "could not be written");
}

}  // namespace
}  // namespace brisko::brisko_test
