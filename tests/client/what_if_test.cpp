// "brisko what-if" and "brisko advise": what they refuse, and on a live virtual Mac with a history.
#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "base/paths.h"
#include "client/effect_on_charge.h"
#include "client/live_brisko.h"
#include "client/setting_assignment.h"
#include "report/local_days.h"
#include "support/files.h"
#include "support/record_schemas.h"
#include "support/scratch_folder.h"

namespace brisko::test::what_if_test {
namespace {

using client::whyDoesNotMatter;
using client::whyNeverMatters;
using nlohmann::json;
using ::testing::HasSubstr;
using ::testing::StartsWith;

// --- What can matter

TEST(EffectOnCharge, isNoneOfSettingsThatLeaveTheChargeAlone) {
  for (const char* key : {"led", "blinkSeconds", "history", "historyDays"})
    EXPECT_THAT(whyNeverMatters(key), HasSubstr("does not change the charge")) << key;
  for (const char* key : {"topUp", "calibrate", "resetStats"})
    EXPECT_THAT(whyNeverMatters(key), HasSubstr("a request that the daemon serves once")) << key;
  for (const char* key : {"enabled", "limit", "hysteresis", "discharge", "thermal", "thermalLimit",
                          "topUpHours", "calDrain", "calSoakMinutes"})
    EXPECT_EQ(whyNeverMatters(key), "") << key;
}

TEST(EffectOnCharge, dependsOnTheOtherSettings) {
  Settings off;
  off.enabled = false;
  off.thermal = false;
  Settings on = off;
  on.enabled = true;
  struct Case {
    json keys;
    Settings settings;
    bool lowerGiven;
    const char* reason;  // empty: it matters
  };
  for (const Case& each : {
           Case{{{"limit", 70}}, off, false, "add enabled=on"},
           Case{{{"discharge", true}}, off, false, "add enabled=on"},
           Case{{{"limit", 70}, {"enabled", true}}, off, false, ""},
           Case{{{"enabled", false}}, on, false, ""},
           Case{{{"enabled", false}, {"limit", 70}}, on, false, "add enabled=on"},
           Case{{{"thermalLimit", 35}}, on, false, "add thermal=on"},
           Case{{{"thermalLimit", 35}, {"thermal", true}}, on, false, ""},
           Case{{{"hysteresis", 3}}, on, false, ""},
           Case{{{"hysteresis", 3}}, on, true, "--lower"},
       }) {
    const std::string reason = whyDoesNotMatter(each.keys, each.settings, each.lowerGiven);
    if (*each.reason == '\0') {
      EXPECT_EQ(reason, "") << each.keys;
    } else {
      EXPECT_THAT(reason, HasSubstr(each.reason)) << each.keys;
    }
  }
}

// --- The commands

// A MacBook with its files, and a history that ends today: on the adapter at 80 % but for two hours a day.
class WhatIf : public ::testing::Test {
 protected:
  static constexpr double now = LiveMac::startTime;

  void days(int count, int first = 0) const {
    for (int back = first; back < first + count; ++back) {
      const lab::Date date = lab::dateAfter(lab::dateOf(now), -back);
      const double begin = lab::beginOf(date);
      std::string lines;
      for (int minutes = 0; minutes < 24 * 60; minutes += 5) {
        const double time = begin + minutes * 60;
        if (time > now) break;
        lines += line(time, minutes);
      }
      day(lab::isoText(date), lines);
    }
  }
  // Unplugged from 10 to 12 o'clock, and charged again at the same rate.
  [[nodiscard]] std::string line(double time, int minutes) const {
    const bool unplugged = minutes >= 600 && minutes < 720;
    const bool charges = minutes >= 720 && minutes < 840;
    const int lost = unplugged ? (minutes - 600) * lostADay / 120 : (840 - minutes) * lostADay / 120;
    const int percent = unplugged || charges ? 80 - lost : 80;
    const int watts10 = lostADay * 526 / 2 / 100;  // of 52.6 Wh
    return "{\"ct\":300,\"g\":" + std::string(unplugged ? "false" : "true") +
           ",\"p\":" + std::to_string(percent) + ",\"s\":\"" + (unplugged || charges ? "allow" : "hold") +
           "\",\"t\":" + std::to_string(static_cast<long long>(time)) + ",\"wt\":" +
           std::to_string(unplugged ? -watts10
                          : charges ? watts10
                                    : 0) +
           "}\n";
  }
  void day(const std::string& name, const std::string& lines) const {
    const std::string history = mac.mac.folder() + "/volume" + historyDir;
    std::filesystem::create_directories(history);
    put(history + "/" + name + ".jsonl", lines);
  }
  [[nodiscard]] Finished brisko(const Words& words) const {
    return mac.brisko(words, {{"TZ", "UTC"}, {"COLUMNS", "100"}});
  }
  int lostADay = 20;  // percent of the charge
  LiveBrisko mac{{"--charge", "80"}};
  ScratchFolder folder;
};

TEST_F(WhatIf, refusesWhatCannotBeAnswered) {
  mac.mac.settings(R"({"limit": 80, "thermal": false})");
  expectRefused(brisko({"what-if", "limt=70"}), 2, "unknown setting \"limt\"; did you mean \"limit\"?");
  expectRefused(brisko({"what-if", "limit=7"}), 2, "limit is a whole number from 20 to 100, not \"7\"");
  expectRefused(brisko({"what-if", "limit"}), 2, "for example: brisko what-if limit=");
  expectRefused(brisko({"what-if", "limit=70", "limit=80"}), 2, "\"limit\" is set twice");
  expectRefused(brisko({"what-if", "led=off"}), 2, "led cannot matter");
  expectRefused(brisko({"what-if", "topUp=on"}), 2, "topUp cannot be compared");
  expectRefused(brisko({"what-if", "thermalLimit=35"}), 1, "add thermal=on");
  expectRefused(brisko({"what-if", "limit=70", "--days", "0"}), 2,
                "--days takes a whole number from 1 to 366");
  expectRefused(brisko({"advise", "--days", "367"}), 2, "--days takes a whole number from 1 to 366");
  expectRefused(brisko({"advise"}), 3, "there is no history, because the daemon is not installed");
  days(2);
  expectRefused(brisko({"what-if", "limit=70"}), 1,
                "the history has only 2 days of those asked for; at least 3 are needed");
  expectRefused(brisko({"advise", "--days", "1"}), 1, "only 1 day");
  std::string broken;
  for (int count = 0; count < 30; ++count) broken += "{\"p\":\n";
  day(lab::isoText(lab::dateAfter(lab::dateOf(now), -2)), broken);
  expectRefused(brisko({"what-if", "limit=70"}), 1, "lines of the history are broken; the first is ");
}

TEST_F(WhatIf, showsBothWaysOfTheSameDays) {
  mac.mac.settings(R"({"limit": 80, "hysteresis": 5})");
  days(3);
  const std::string page = folder.path() + "/page.html";
  const std::string text = said(brisko({"what-if", "limit=60", "--html", page}));
  EXPECT_THAT(text, StartsWith("What if limit=60?  3 days, from "));
  EXPECT_THAT(text, AllOf(HasSubstr(" as it was set "), HasSubstr(" as asked\n")));
  EXPECT_THAT(text, HasSubstr("it is assumed to be what it takes on battery"));
  EXPECT_THAT(contents(page), HasSubstr("Drawn by brisko what-if."));

  // Not over somebody else's file, and the answer is printed anyway.
  put(page, "mine");
  const Finished refused = brisko({"what-if", "limit=60", "--json", "--html", page});
  expectRefused(refused, 1, "was not written: ");
  EXPECT_EQ(contents(page), "mine");
  const std::string line = refused.output.substr(0, refused.output.find('\n'));
  EXPECT_EQ(flawIn(line, "brisko-what-if").value_or(""), "") << line;
  const json object = json::parse(line);
  EXPECT_EQ(object["asked"], json({{"limit", 60}}));
  EXPECT_EQ(object["asSet"]["timesEmpty"], 0);
  EXPECT_GT(object["asSet"]["meanPercent"], 74);
  EXPECT_LT(object["asAsked"]["meanPercent"], 66);
  EXPECT_LT(object["ageing"]["most"], 0.95);
  EXPECT_GT(object["agreement"]["withinThree"], 0.8) << line;
}

// Sixty points a day, and the battery of the replay loses some more: 65 % would have been empty at noon.
TEST_F(WhatIf, advisesTheLowestLimitThatLeavesNobodyShort) {
  lostADay = 60;
  mac.mac.settings(R"({"limit": 80, "hysteresis": 5})");
  days(3);
  const std::string output = said(brisko({"advise", "--json"}));
  const std::string line = output.substr(0, output.find('\n'));
  EXPECT_EQ(flawIn(line, "brisko-advice").value_or(""), "") << line;
  const json object = json::parse(line);
  EXPECT_EQ(object["advised"], 70);
  for (const json& each : object["limits"])
    EXPECT_EQ(each["figures"]["timesEmpty"] > 0, each["limit"] < 70) << each;
  EXPECT_EQ(object["limits"].size(), 9U);
}

TEST_F(WhatIf, saysPlainlyThatTheLabIsMissing) {
  days(3);
  const std::string alone = folder.path() + "/brisko";
  std::filesystem::copy(std::string(BRISKO_PROGRAMS) + "/brisko", alone);
  const Finished finished =
      run(alone, {"what-if", "limit=60"}, {{"BRISKO_VIRTUAL_MAC", mac.mac.folder()}, {"LC_ALL", "C.UTF-8"}});
  expectRefused(finished, 1,
                "brisko-lab, which replays the days, is missing; it belongs beside brisko: " + folder.path() +
                    "/brisko-lab");
}

}  // namespace
}  // namespace brisko::test::what_if_test
