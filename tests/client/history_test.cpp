// "brisko history" on files of a volume, which needs no Mac, and on a live virtual Mac.
#include <cstdlib>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <utility>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "base/options.h"
#include "base/paths.h"
#include "client/live_brisko.h"
#include "support/files.h"
#include "support/record_schemas.h"
#include "support/scratch_folder.h"

namespace brisko::test::history_test {
namespace {

using nlohmann::json;
using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::StartsWith;

constexpr long long morning = 1772352000;  // 2026-03-01T08:00:00Z

std::string sample(long long time, int percent, const std::string& more = "") {
  return "{" + more + R"("g":true,"p":)" + std::to_string(percent) + R"(,"s":"hold","t":)" +
         std::to_string(time) + "}\n";
}

class History : public ::testing::Test {
 protected:
  History() { std::filesystem::create_directories(volume.path() + historyDir); }
  void day(const std::string& name, const std::string& lines) const {
    put(volume.path() + historyDir + "/" + name + ".jsonl", lines);
  }
  // 1 to 3 March: an hour of samples each, at 75, 85 and 95 %.
  void threeDays() const {
    for (int count = 0; count < 3; ++count) {
      std::string lines;
      for (int minute = 0; minute <= 60; minute += 5)
        lines += sample(morning + count * 86400 + minute * 60, 75 + count * 10, R"("ct":312,)");
      day("2026-03-0" + std::to_string(count + 1), lines);
    }
  }
  [[nodiscard]] Finished history(Words words, Environment environment = {}) const {
    words.insert(words.begin(), "history");
    words.insert(words.end(), {"--volume", volume.path()});
    environment.insert({{"TZ", "UTC"}, {"LC_ALL", "C.UTF-8"}, {"COLUMNS", "80"}});
    return run("brisko", words, environment);
  }
  [[nodiscard]] Finished march(Words words, Environment environment = {}) const {
    words.insert(words.end(), {"--from", "2026-03-01", "--to", "2026-03-14"});
    return history(words, std::move(environment));
  }
  ScratchFolder volume;
  ScratchFolder drawings;
};

TEST_F(History, isAPlotAndATable) {
  threeDays();
  const std::string text = said(march({}));
  EXPECT_THAT(text, StartsWith("Charge from 1 March 2026 to 3 March 2026, 39 samples\n\n100 |"));
  // With the year in any other one.
  EXPECT_THAT(text, ContainsRegex("Lowest      75 %  (2026 )?Mar 1, 08:00\n"
                                  "Highest     95 %  (2026 )?Mar 3, 08:00\n"));
  EXPECT_THAT(text, HasSubstr("Above 80 %  2 h\n"
                              "Hot         none\n"
                              "Adapter     3 h\n"
                              "Recorded    3 h\n"
                              "Battery     31.2 °C to 31.2 °C\n"));
  EXPECT_THAT(text, Not(HasSubstr("nusable")));
}

TEST_F(History, fitsNarrowTerminalsAndPlainLocales) {
  threeDays();
  std::istringstream lines(said(march({}, {{"COLUMNS", "40"}, {"LC_ALL", "C"}})));
  for (std::string line; std::getline(lines, line);) {
    EXPECT_LE(line.size(), 40U) << line;
    for (const char character : line) EXPECT_GE(character, ' ') << line;
  }
}

TEST_F(History, isAnObjectThatMeetsItsSchema) {
  threeDays();
  std::string text = said(march({"--json"}));
  text.pop_back();
  EXPECT_EQ(flawIn(text, "brisko-history").value_or(""), "") << text;
  const json object = json::parse(text);
  EXPECT_EQ(object["schema"], "brisko.history/1");
  EXPECT_EQ(object["samples"], 39);
  EXPECT_EQ(object["recording"], true);
  EXPECT_EQ(object["from"], morning);
  EXPECT_EQ(object["highest"], json({{"percent", 95}, {"time", morning + 2 * 86400}}));
  EXPECT_EQ(object["seconds"]["above80"], 7200);
  EXPECT_EQ(object["seconds"]["hold"], 10800);
  EXPECT_EQ(object["byCharge"][7], json({{"from", 70}, {"to", 79}, {"seconds", 3600}}));
  ASSERT_EQ(object["days"].size(), 3U);
  EXPECT_EQ(object["days"][1]["day"], "2026-03-02");
  EXPECT_EQ(object["days"][1]["lowest"], 85);
}

TEST_F(History, isATableOfItsSamples) {
  day("2026-03-01", sample(morning, 80, R"("ct":312,)") +
                        R"({"g":true,"hot":true,"p":81,"s":"discharge","t":1772352060,"wt":-43})"
                        "\n"
                        R"({"g":false,"p":82,"s":"allow","t":1772352120})"
                        "\n");
  EXPECT_EQ(said(march({"--csv"})),
            "time,seconds,percent,state,adapter,hot,celsius,watts\n"
            "2026-03-01 08:00:00,1772352000,80,hold,connected,no,31.2,\n"
            "2026-03-01 08:01:00,1772352060,81,discharge,cut,yes,,-4.3\n"
            "2026-03-01 08:02:00,1772352120,82,allow,none,no,,\n");
}

TEST_F(History, isAPageOrAPicture) {
  threeDays();
  const std::string page = drawings.path("march.html");
  EXPECT_EQ(said(march({"--html", page})), page + ": Charge from 1 March 2026 to 3 March 2026\n");
  EXPECT_THAT(contents(page), StartsWith("<!DOCTYPE html>\n"));
  EXPECT_THAT(contents(page), HasSubstr("<h1>Charge from 1 March 2026 to 3 March 2026</h1>"));
  const std::string picture = drawings.path("march.svg");
  EXPECT_EQ(said(march({"--svg", picture, "--quiet"})), "");
  EXPECT_THAT(contents(picture), StartsWith("<?xml"));
  std::string text = said(march({"--svg", picture, "--json"}));
  text.pop_back();
  EXPECT_EQ(flawIn(text, "brisko-history").value_or(""), "") << text;
  EXPECT_EQ(json::parse(text)["file"], picture);
}

TEST_F(History, replacesNoFileThatItDidNotDraw) {
  threeDays();
  const std::string notes = drawings.path("notes.txt");
  put(notes, "my notes");
  expectRefused(march({"--html", notes}), 1, "another file is there");
  EXPECT_EQ(contents(notes), "my notes");
  const std::string own = volume.path() + historyDir + "/2026-03-01.jsonl";
  const std::string before = contents(own);
  expectRefused(march({"--svg", own}), 1, "another file is there");
  EXPECT_EQ(contents(own), before);
  expectRefused(march({"--html", drawings.path("none/march.html")}), 1, "No such file or directory");
  expectRefused(march({"--html", drawings.path()}), 1, "it is a folder");
}

// The system's way to open pages, replaced by a program that notes what it was given.
class Opening : public History {
 protected:
  void opener(const std::string& script) const {
    const std::string path = drawings.path("xdg-open");
    put(path, "#!/bin/sh\n" + script + "\n");
    setMode(path, 0755);
  }
  [[nodiscard]] Finished open(Words words = {}) const {
    words.insert(words.begin(), "--open");
    return march(words, {{"PATH", drawings.path() + ":/usr/bin:/bin"}, {"TMPDIR", drawings.path()}});
  }
};

TEST_F(Opening, givesThePageToTheSystem) {
  threeDays();
  opener("echo noise; printf %s \"$1\" > '" + drawings.path("opened") + "'");
  const std::string text = said(open());
  const std::string page = contents(drawings.path("opened"));
  EXPECT_THAT(page, StartsWith(drawings.path() + "/brisko."));
  EXPECT_EQ(text, page + ": Charge from 1 March 2026 to 3 March 2026\n");
  EXPECT_THAT(contents(page), HasSubstr("</html>"));
  EXPECT_EQ(modeOf(page), 0600U);
}

TEST_F(Opening, namesThePageWhenItFails) {
  threeDays();
  opener("exit 3");
  expectRefused(open(), 1, "xdg-open refused it; it is " + drawings.path() + "/brisko.");
  std::filesystem::remove(drawings.path("xdg-open"));
  const Finished finished = march({"--open"}, {{"PATH", drawings.path()}, {"TMPDIR", drawings.path()}});
  expectRefused(finished, 1, "xdg-open: No such file or directory");
}

// ---------------------------------------------------------------------------------------------------------
// Bad input

TEST_F(History, refusesWhatIsNoRange) {
  threeDays();
  expectRefused(history({"--days", "0"}), 2, "--days takes a whole number from 1 to 3650");
  expectRefused(history({"--days", "3651"}), 2, "--days takes a whole number from 1 to 3650");
  expectRefused(history({"--from", "yesterday"}), 2, "--from takes a day such as 2026-03-01");
  expectRefused(history({"--from", "2026-03-02", "--to", "2026-03-01"}), 2, "2026-03-02 is after 2026-03-01");
  expectRefused(history({"--from", "2026-03-01", "--days", "2"}), 2, "exclude each other");
  expectRefused(march({"--html", "a", "--csv"}), 2, "--html and --csv exclude each other");
  expectRefused(march({"--csv", "--json"}), 2, "--csv and --json exclude each other");
  expectRefused(march({"more"}), 2, "takes no words");
}

TEST_F(History, saysWhereThereIsSomeWhenThereIsNoneOfTheseDays) {
  threeDays();
  put(volume.path() + statusPath, "{}");
  expectRefused(history({"--from", "2026-04-01", "--to", "2026-04-30"}), 1,
                "there is no history of these days, only from 2026-03-01 to 2026-03-03");
  std::filesystem::remove_all(volume.path() + historyDir);
  expectRefused(march({}), 1, "there is no history yet");
  put(volume.path() + defaultConfigPath, R"({"history":false})");
  expectRefused(march({}), 1, "it is switched off (brisko set history=on)");
  put(volume.path() + historyDir, "a file");
  expectRefused(march({}), 1, "the history cannot be shown: Not a directory (/Library/");
}

TEST_F(History, saysThatThereIsNoDaemon) {
  expectRefused(march({}), 3, "there is no history, because the daemon is not installed");
}

TEST_F(History, saysThatItIsSwitchedOff) {
  threeDays();
  put(volume.path() + defaultConfigPath, R"({"history":false})");
  EXPECT_THAT(said(march({})),
              HasSubstr("The history is switched off; \"brisko set history=on\" records it again."));
  EXPECT_EQ(json::parse(said(march({"--json"})))["recording"], false);
  const std::string page = drawings.path("a.html");
  static_cast<void>(said(march({"--html", page})));
  EXPECT_THAT(contents(page), HasSubstr("<p>The history is switched off;"));
}

TEST_F(History, leavesOutTornLinesAndCountsThem) {
  day("2026-03-01", sample(morning, 80) + "{\"g\":true,\"p\":8\n" + sample(morning + 60, 81) + "{\"g\":tr");
  EXPECT_THAT(said(march({})), HasSubstr("Unusable lines, left out: 2\n"));
  EXPECT_EQ(json::parse(said(march({"--json"})))["skipped"], 2);
  EXPECT_EQ(json::parse(said(march({"--json"})))["samples"], 2);
}

// Without a Mac the time is that of this computer; the samples are of the year 9998 and of 2026.
TEST_F(History, leavesOutWhatIsLaterThanNow) {
  threeDays();
  day("9998-01-01", sample(253339257600, 80));
  EXPECT_THAT(said(march({})), HasSubstr("later than now, because the clock was set back"));
  EXPECT_EQ(json::parse(said(march({"--json"})))["samples"], 39);
  std::filesystem::remove_all(volume.path() + historyDir);
  std::filesystem::create_directories(volume.path() + historyDir);
  day("9998-01-01", sample(253339257600, 80));
  put(volume.path() + statusPath, "{}");
  expectRefused(history({}), 1, "there is no history of these days, only of 9998-01-01");
}

TEST_F(History, bringsSamplesIntoTheOrderOfTime) {
  day("2026-03-01", sample(morning + 300, 82) + sample(morning, 81) + sample(morning + 600, 83));
  const json object = json::parse(said(march({"--json"})));
  EXPECT_EQ(object["from"], morning);
  EXPECT_EQ(object["seconds"]["recorded"], 600);
}

TEST_F(History, usesTheDaysOfItsZone) {
  threeDays();
  const json object = json::parse(said(march({"--json"}, {{"TZ", "XXX-16"}})));
  EXPECT_EQ(object["days"][0]["day"], "2026-03-02");
}

// ---------------------------------------------------------------------------------------------------------

TEST(HistoryOfAMac, isWhatItsDaemonRecorded) {
  LiveBrisko mac;
  mac.boot();
  const json object = json::parse(said(mac.brisko({"history", "--json"})));
  EXPECT_GE(object["samples"], 1);
  EXPECT_EQ(object["highest"]["percent"], 70);
  EXPECT_THAT(said(mac.brisko({"history"})), HasSubstr("Highest     70 %"));
}

TEST(HistoryOfAMac, endsAtItsPresentTime) {
  LiveBrisko mac;
  mac.boot();
  const json before = json::parse(said(mac.brisko({"history", "--json"})));
  const long long begin = before["from"];
  const std::string name = before["days"][0]["day"];
  mac.end();
  // The clock is set back by an hour, so what was recorded is now later than it.
  static_cast<void>(mac.mac.vmac("fault", {"clock-step", "--number", "-3600"}));
  put(mac.mac.folder() + "/volume" + historyDir + "/" + name + ".jsonl",
      sample(begin - 7200, 60) + sample(begin, 70));
  const std::string text = said(mac.brisko({"history"}));
  EXPECT_THAT(text, HasSubstr("1 sample"));
  EXPECT_THAT(text, HasSubstr("Highest     60 %"));
  EXPECT_THAT(text, HasSubstr("the clock was set back"));
}

// The picture in the README: a week of the daemon itself, on the lab's virtual Mac.
TEST(HistoryOfAWeek, isThePictureInTheReadme) {
  const ScratchFolder folder;
  const std::string sources = BRISKO_DOCUMENTS "/..";
  const std::string week = folder.path("week");
  Program lab("brisko-lab",
              {"run", "--volume", week, sources + "/tests/scenarios/a-week-of-work-and-travel.json"});
  ASSERT_TRUE(lab.ends(110));
  ASSERT_EQ(lab.status(), 0) << lab.output() << lab.errors();
  const std::string drawn = folder.path("drawn.svg");
  static_cast<void>(said(run(
      "brisko", {"history", "--volume", week, "--from", "2026-03-02", "--to", "2026-03-08", "--svg", drawn},
      {{"TZ", "UTC"}, {"LC_ALL", "C.UTF-8"}})));
  EXPECT_TRUE(contents(drawn) == contents(sources + "/docs/a-week.svg"))
      << "the picture is no longer what brisko draws; look at the new one, and commit it: "
         "scripts/draw-week.sh";
  EXPECT_THAT(contents(sources + "/README.md"), HasSubstr("docs/a-week.svg"));
}

}  // namespace
}  // namespace brisko::test::history_test
