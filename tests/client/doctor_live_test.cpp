// What people do with "brisko doctor", on a live virtual Mac.
#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/live_brisko.h"
#include "support/record_schemas.h"

namespace brisko::doctor_live_test {
namespace {

using nlohmann::json;
using test::expectRefused;
using test::Finished;
using test::LiveBrisko;
using test::said;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

json objectOf(const Finished& finished, const std::string& kind) {
  std::string text = finished.output;
  if (!text.empty()) text.pop_back();
  EXPECT_EQ(test::flawIn(text, "brisko-" + kind).value_or(""), "") << text << finished.errors;
  return json::parse(text, nullptr, false);
}

// The ids of what is found, the worst first.
std::vector<std::string> foundOn(const LiveBrisko& mac) {
  const Finished finished = mac.brisko({"doctor", "--json"});
  const json object = objectOf(finished, "doctor");
  std::vector<std::string> ids;
  for (const json& each : object["findings"]) ids.push_back(each["id"]);
  EXPECT_EQ(finished.status, ids.empty() ? 0 : 1) << finished.errors;
  EXPECT_EQ(object["clear"].get<std::size_t>() + ids.size() + object["notLookedAt"].size(), 41U);
  return ids;
}

TEST(BriskoDoctor, findsNothingOnAHealthyMac) {
  LiveBrisko mac;
  mac.mac.settings("{\"limit\":80}");
  EXPECT_THAT(foundOn(mac), ElementsAre("D01"));
  mac.boot({"--guard", "night,menu,swing"});
  EXPECT_THAT(foundOn(mac), IsEmpty());
  const std::string text = said(mac.brisko({"doctor"}));
  EXPECT_THAT(text, HasSubstr("Nothing was found.\n"));
  EXPECT_THAT(text, HasSubstr("(no such command here)"));
  mac.end();
  EXPECT_THAT(foundOn(mac), ElementsAre("D03"));
}

TEST(BriskoDoctor, mendsSettings) {
  LiveBrisko mac;
  mac.boot({"--lower", "40"});
  test::put(mac.configPath(), "{\"Limit\":65,\"hysteresis\":0,\"led\":\"off\"}");
  EXPECT_THAT(foundOn(mac), ElementsAre("D20", "D21", "D22"));
  const Finished found = mac.brisko({"doctor"}, {{"COLUMNS", "200"}});
  EXPECT_EQ(found.status, 1);
  EXPECT_THAT(found.output, HasSubstr("\"Limit\" is unknown; \"limit\" was probably meant"));
  EXPECT_THAT(found.output, HasSubstr("     → brisko doctor --fix D20"));
  EXPECT_THAT(found.output, HasSubstr("--lower 40"));
  expectRefused(mac.brisko({"doctor", "--fix", "D20", "--quiet"}), 1, "--yes");
  EXPECT_EQ(mac.config(), "{\"Limit\":65,\"hysteresis\":0,\"led\":\"off\"}");
  const json fix = objectOf(mac.brisko({"doctor", "--fix", "D20", "--yes", "--json"}), "fix");
  EXPECT_EQ(fix["status"], 0) << fix;
  const json config = json::parse(mac.config());
  EXPECT_EQ(config.size(), 16U);
  EXPECT_EQ(config["limit"], 65);
  EXPECT_EQ(config["led"], false);
  EXPECT_EQ(config["hysteresis"], 1);
  EXPECT_THAT(foundOn(mac), ElementsAre("D22"));
  EXPECT_THAT(said(mac.brisko({"doctor", "--fix", "D21"})), HasSubstr("D21 found nothing"));
  test::put(mac.configPath(), "limit: 70");
  EXPECT_THAT(foundOn(mac), ElementsAre("D19", "D22"));
  EXPECT_THAT(said(mac.brisko({"doctor", "--fix", "D19", "--yes"})), HasSubstr("limit is 80"));
  EXPECT_EQ(json::parse(mac.config())["limit"], 80);
}

TEST(BriskoDoctor, movesAFileAsideThatEndsTheDaemon) {
  LiveBrisko mac;
  mac.boot();
  mac.end();
  const std::string path = mac.configPath();
  test::put(path, "{\"limit\":99999999999999999999}");
  EXPECT_THAT(foundOn(mac), ElementsAre("D06"));
  test::put(path + ".aside", "kept");
  EXPECT_THAT(said(mac.brisko({"doctor", "--fix", "D06", "--yes"})), HasSubstr(path + ".aside-2"));
  EXPECT_FALSE(test::exists(path));
  EXPECT_EQ(test::contents(path + ".aside"), "kept");
  EXPECT_EQ(test::contents(path + ".aside-2"), "{\"limit\":99999999999999999999}");
}

TEST(BriskoDoctor, findsADaemonThatDoesNothing) {
  LiveBrisko mac;
  mac.boot();
  const std::string logPath = mac.mac.folder() + "/volume/Library/Logs/Brisko/daemon.log";
  json status = json::parse(test::contents(mac.statusPath()));
  mac.pause();
  status["ts"] = status["ts"].get<double>() - 100;
  test::put(mac.statusPath(), status.dump());
  EXPECT_THAT(foundOn(mac), ElementsAre("D13"));
  const std::string log = mac.mac.log();
  test::put(logPath,
            log +
                "2026-03-01T08:15:30Z  app gone — charge, adapter and LED handed back to macOS; service "
                "dormant (uninstall with uninstall-service.sh)\n");
  EXPECT_THAT(foundOn(mac), ElementsAre("D15"));
  test::put(logPath, log);
  status["daemonVersion"] = "0.9.8";
  status["ts"] = status["ts"].get<double>() + 100;
  status["gateVerified"] = false;
  test::put(mac.statusPath(), status.dump());
  test::setMode(mac.statusPath(), 0640);
  EXPECT_THAT(foundOn(mac), ElementsAre("D24", "D18", "D40"));
  mac.daemon->signal(SIGCONT);
  // It may write its status at any moment, with its own version.
  EXPECT_TRUE(test::eventually([&] {
    test::put(mac.statusPath(), status.dump());
    const Finished fixed = mac.brisko({"doctor", "--fix", "D40", "--yes", "--wait", "0"});
    return fixed.output.find("ends now") != std::string::npos;
  }));
  EXPECT_TRUE(mac.daemon->ends());
}

TEST(BriskoDoctor, findsASecondDaemon) {
  LiveBrisko mac;
  mac.boot();
  const auto second = mac.mac.daemon({});
  EXPECT_TRUE(test::eventually([&] { return foundOn(mac) == std::vector<std::string>{"D17"}; }));
}

TEST(BriskoDoctor, looksAtTheFilesOfAnotherVolume) {
  LiveBrisko mac;
  mac.boot();
  const std::string volume = mac.mac.folder() + "/volume";
  const Finished finished = test::run("brisko", {"doctor", "--volume", volume},
                                      {{"BRISKO_VIRTUAL_MAC", ""}, {"LC_ALL", "C.UTF-8"}});
  EXPECT_THAT(finished.output, HasSubstr("(on another volume)"));
  EXPECT_THAT(finished.output, HasSubstr("D01"));
}

TEST(BriskoDoctor, refusesWhatItCannotMend) {
  LiveBrisko mac;
  mac.boot();
  expectRefused(mac.brisko({"doctor", "--fix", "D99"}), 2, "unknown check \"D99\"");
  expectRefused(mac.brisko({"doctor", "--fix", "D24"}), 2, "D24 cannot be fixed from here");
}

}  // namespace
}  // namespace brisko::doctor_live_test
