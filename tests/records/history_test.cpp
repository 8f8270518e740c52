#include "records/history.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <limits>

#include <sys/stat.h>
#include <unistd.h>

#include "base/paths.h"
#include "base/process_flags.h"
#include "support/child.h"
#include "support/files.h"
#include "support/on_virtual_mac.h"
#include "support/testing.h"

namespace brisko::history_test {
namespace {

using namespace test;

constexpr double day = 86'400;

class History : public test::OnVirtualMac {
 protected:
  void SetUp() override {
    zone("UTC");
    std::filesystem::create_directories(mac.path(historyDir));
    gauge(0, 12'000);
  }

  static void zone(const char* name) { ASSERT_EQ(::setenv("TZ", name, 1), 0); }
  void clock(double wallTime) {
    const auto update = mac.store().update();
    update.machine().system.wallOffset = wallTime - update.machine().now;
  }
  // The values that the registry shows until time passes.
  void gauge(std::int64_t milliamps, std::int64_t millivolts) {
    const auto update = mac.store().update();
    update.machine().gauge.currentMA = milliamps;
    update.machine().gauge.voltageMV = millivolts;
  }

  std::string unmapped(const std::string& name) const { return std::string(historyDir) + "/" + name; }
  std::string file(const std::string& name) const { return mac.read(unmapped(name)); }
  std::vector<std::string> names() const {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(mac.path(historyDir))) {
      found.push_back(entry.path().filename().string());
    }
    std::sort(found.begin(), found.end());
    return found;
  }

  // The line for this sample, without its line feed; "" if none is written.
  std::string record() {
    const std::string before = file(today);
    recordSample(sample, cfg);
    std::string line = file(today).substr(before.size());
    if (!line.empty()) {
      EXPECT_THAT(line, EndsWith("\n"));
      line.pop_back();
    }
    return line;
  }
  bool recordAfter(double seconds) {
    mac.pass(seconds);
    return !record().empty();
  }

  std::string today = "2026-03-01.jsonl";
  Sample sample{.pct = 80, .state = ChargeState::hold, .plugged = true, .temp = 30.0};
  Settings cfg;
};

// --- the line

TEST_F(History, isALineForEachSample) {
  gauge(350, 12'300);
  sample.temp = 31.2;
  recordSample(sample, cfg);
  EXPECT_EQ(file(today), "{\"ct\":312,\"g\":true,\"p\":80,\"s\":\"hold\",\"t\":1772352000,\"wt\":43}\n");
  mac.pass(12.75);
  gauge(-435, 10'000);
  sample = {.pct = 81, .state = ChargeState::discharge, .plugged = false, .hot = true, .temp = std::nullopt};
  recordSample(sample, cfg);
  EXPECT_EQ(file(today),
            "{\"ct\":312,\"g\":true,\"p\":80,\"s\":\"hold\",\"t\":1772352000,\"wt\":43}\n"
            "{\"g\":false,\"hot\":true,\"p\":81,\"s\":\"discharge\",\"t\":1772352012,\"wt\":-44}\n");
}

TEST_F(History, roundsHalvesAwayFromZero) {
  struct Case {
    std::int64_t milliamps;
    std::int64_t millivolts;
    const char* written;
  };
  for (const Case& power :
       {Case{-435, 10'000, "\"wt\":-44}"}, Case{45, 10'000, "\"wt\":5}"}, Case{350, 12'300, "\"wt\":43}"},
        Case{0, 12'000, "\"wt\":0}"}, Case{44, 10'000, "\"wt\":4}"}, Case{19'999, 13'000, "\"wt\":2600}"}}) {
    mac.pass(300);
    gauge(power.milliamps, power.millivolts);
    EXPECT_THAT(record(), EndsWith(power.written));
  }
  for (const auto& [celsius, written] : std::vector<std::pair<double, const char*>>{
           {31.25, "{\"ct\":313,"}, {31.24, "{\"ct\":312,"}, {0.05, "{\"ct\":1,"}, {0.04, "{\"ct\":0,"}}) {
    mac.pass(300);
    sample.temp = celsius;
    EXPECT_THAT(record(), StartsWith(written));
  }
}

TEST_F(History, hasNoPowerWithoutAReading) {
  gauge(20'000, 12'000);
  EXPECT_THAT(record(), Not(HasSubstr("wt")));
  for (const char* property : {"Amperage", "Voltage"}) {
    mac.pass(300);
    mac.property(property, PropertyFault::missing);
    EXPECT_THAT(record(), Not(HasSubstr("wt"))) << property;
    mac.property(property, PropertyFault::none);
  }
  mac.pass(300);
  EXPECT_THAT(record(), HasSubstr("wt"));
  mac.number(ChangeKind::batteryInstalled, 0);
  mac.pass(300);
  EXPECT_THAT(record(), StartsWith("{\"ct\":300,\"g\":true,"));
}

TEST_F(History, dropsFractionsOfTheSecond) {
  clock(1772352000.999);
  EXPECT_THAT(record(), HasSubstr("\"t\":1772352000,"));
}

// --- when a sample is written

TEST_F(History, skipsASampleThatComesTooSoon) {
  EXPECT_TRUE(recordAfter(0));
  sample.pct = 81;
  sample.temp = 45;
  EXPECT_FALSE(recordAfter(10));
  EXPECT_FALSE(recordAfter(44.875));
  EXPECT_TRUE(recordAfter(0.125));  // 55 s
}

TEST_F(History, recordsANewStateOrAdapterAtOnce) {
  EXPECT_TRUE(recordAfter(0));
  sample.state = ChargeState::allow;
  EXPECT_TRUE(recordAfter(2));
  EXPECT_FALSE(recordAfter(2));
  sample.plugged = false;
  EXPECT_TRUE(recordAfter(0));
  EXPECT_FALSE(recordAfter(2));
}

TEST_F(History, recordsANewChargeAfter55Seconds) {
  EXPECT_TRUE(recordAfter(0));
  sample.pct = 79;
  EXPECT_FALSE(recordAfter(54.875));
  EXPECT_TRUE(recordAfter(0.125));
  EXPECT_FALSE(recordAfter(60));
}

TEST_F(History, recordsHalfADegreeAfter55Seconds) {
  EXPECT_TRUE(recordAfter(0));
  sample.temp = 30.4;
  EXPECT_FALSE(recordAfter(60));
  sample.temp = 29.5;
  EXPECT_TRUE(recordAfter(0));
  sample.temp = 30.0;
  EXPECT_FALSE(recordAfter(54.875));
  EXPECT_TRUE(recordAfter(0.125));
}

TEST_F(History, recordsAnythingAfter300Seconds) {
  EXPECT_TRUE(recordAfter(0));
  sample.temp = 30.4;
  EXPECT_FALSE(recordAfter(60));
  EXPECT_FALSE(recordAfter(239.875));
  EXPECT_TRUE(recordAfter(0.125));
  EXPECT_FALSE(recordAfter(299.875));
  EXPECT_TRUE(recordAfter(0.125));
}

TEST_F(History, countsAMissingTemperatureAsZeroDegrees) {
  EXPECT_TRUE(recordAfter(0));
  sample.temp.reset();
  EXPECT_FALSE(recordAfter(54.875));
  EXPECT_TRUE(recordAfter(0.125));
  EXPECT_FALSE(recordAfter(60));
  sample.temp = 0.4;
  EXPECT_FALSE(recordAfter(0));
  sample.temp = 0.5;
  EXPECT_TRUE(recordAfter(0));
}

TEST_F(History, comparesWithTheLastLineAndNotTheLastSample) {
  EXPECT_TRUE(recordAfter(0));
  for (const double warmer : {30.25, 30.4}) {
    sample.temp = warmer;
    EXPECT_FALSE(recordAfter(60));
  }
  sample.temp = 30.5;
  EXPECT_TRUE(recordAfter(60));
}

TEST_F(History, leavesHeatToTheNextLine) {
  EXPECT_TRUE(recordAfter(0));
  sample.hot = true;
  EXPECT_FALSE(recordAfter(60));
  mac.pass(240);
  EXPECT_THAT(record(), HasSubstr("\"hot\":true"));
  sample.hot = false;
  mac.pass(300);
  EXPECT_THAT(record(), Not(HasSubstr("hot")));
}

TEST_F(History, writesNothingUntilAClockThatWasSetBackCatchesUp) {
  EXPECT_TRUE(recordAfter(0));
  mac.number(ChangeKind::clockStep, -3600);
  EXPECT_FALSE(recordAfter(3600));
  sample.plugged = false;
  EXPECT_TRUE(recordAfter(0));
}

TEST_F(History, isNotWrittenWhenSwitchedOff) {
  mac.write(unmapped("2020-01-01.jsonl"), "");
  cfg.history = false;
  EXPECT_FALSE(recordAfter(0));
  EXPECT_THAT(names(), ElementsAre("2020-01-01.jsonl"));
  EXPECT_THAT(newLines(), IsEmpty());
  cfg.history = true;
  EXPECT_TRUE(recordAfter(0));  // an unwritten sample does not count
}

TEST_F(History, isNotWrittenAfterAPurge) {
  std::filesystem::remove_all(mac.path(historyDir));
  gPurged = true;
  recordSample(sample, cfg);
  EXPECT_FALSE(mac.exists(historyDir));
}

// --- the day

TEST_F(History, startsANewFileAtLocalMidnight) {
  struct Case {
    const char* zone;
    double midnight;
    const char* before;
    const char* after;
  };
  for (const Case& place :
       {Case{"UTC", 1772409600, "2026-03-01.jsonl", "2026-03-02.jsonl"},
        Case{"Pacific/Kiritimati", 1772359200, "2026-03-01.jsonl", "2026-03-02.jsonl"},
        Case{"America/New_York", 1772341200, "2026-02-28.jsonl", "2026-03-01.jsonl"},
        Case{"Asia/Kathmandu", 1772388900, "2026-03-01.jsonl", "2026-03-02.jsonl"},
        Case{"America/Sao_Paulo", 1541300400, "2018-11-03.jsonl", "2018-11-04.jsonl"},  // no midnight
        Case{"Asia/Beirut", 1711836000, "2024-03-30.jsonl", "2024-03-31.jsonl"}}) {
    std::filesystem::remove_all(mac.path(historyDir));
    zone(place.zone);
    clock(place.midnight - 0.25);
    sample.plugged = !sample.plugged;
    recordSample(sample, cfg);
    EXPECT_THAT(names(), ElementsAre(place.before)) << place.zone;
    clock(place.midnight);
    sample.plugged = !sample.plugged;
    recordSample(sample, cfg);
    EXPECT_THAT(names(), ElementsAre(place.before, place.after)) << place.zone;
  }
}

TEST_F(History, namesDaysBefore1970AndFarAway) {
  clock(-0.5);
  recordSample(sample, cfg);
  EXPECT_THAT(names(), ElementsAre("1969-12-31.jsonl"));
  sample.plugged = false;
  clock(253'402'300'800);  // the year 10000
  recordSample(sample, cfg);
  EXPECT_TRUE(mac.exists(unmapped("10000-01-01.jsonl")));
  sample.plugged = true;
  clock(1e18);  // beyond every calendar
  recordSample(sample, cfg);
  EXPECT_THAT(names(), SizeIs(1));  // the pruning of the second one removed the first
}

// --- files and folders

TEST_F(History, isReadableForTheAppWhateverTheUmask) {
  for (const mode_t mask : {mode_t{0077}, mode_t{0000}, mode_t{0022}, mode_t{0777}}) {
    std::filesystem::remove_all(mac.path("/Library/Application Support/Brisko"));
    sample.plugged = !sample.plugged;
    const mode_t before = ::umask(mask);
    recordSample(sample, cfg);
    ::umask(before);
    EXPECT_EQ(modeOf(mac.path("/Library/Application Support/Brisko")), 0755U) << mask;
    EXPECT_EQ(modeOf(mac.path(historyDir)), 0755U) << mask;
    EXPECT_EQ(modeOf(mac.path(unmapped(today))), 0644U) << mask;
  }
}

TEST_F(History, keepsTheModesOfExistingFilesAndFolders) {
  mac.write(unmapped(today), "earlier\n");
  test::setMode(mac.path(historyDir), 0700);
  test::setMode(mac.path(unmapped(today)), 0600);
  recordSample(sample, cfg);
  EXPECT_THAT(file(today), StartsWith("earlier\n{"));
  EXPECT_EQ(modeOf(mac.path(historyDir)), 0700U);
  EXPECT_EQ(modeOf(mac.path(unmapped(today))), 0600U);
}

TEST_F(History, countsALineThatCannotBeWritten) {
  test::makeFolder(mac.path(unmapped(today)));
  recordSample(sample, cfg);
  std::filesystem::remove(mac.path(unmapped(today)));
  EXPECT_FALSE(recordAfter(299.875));
  EXPECT_TRUE(recordAfter(0.125));
}

TEST_F(History, prunesAlsoAfterALineThatCannotBeWritten) {
  mac.write(unmapped("2020-01-01.jsonl"), "");
  test::makeFolder(mac.path(unmapped(today)));
  recordSample(sample, cfg);
  EXPECT_THAT(names(), ElementsAre(today));
}

TEST_F(History, toleratesOtherThingsInItsPlace) {
  test::makePipe(mac.path(unmapped(today)));
  recordSample(sample, cfg);  // does not block
  std::filesystem::remove(mac.path(unmapped(today)));

  test::makeLink(mac.path(unmapped(today)), mac.path("/nowhere"));
  sample.plugged = !sample.plugged;
  recordSample(sample, cfg);
  EXPECT_FALSE(mac.exists("/nowhere"));  // a root service must not create files where a link points
  std::filesystem::remove(mac.path(unmapped(today)));

  std::filesystem::remove_all(mac.path(historyDir));
  mac.write(historyDir, "a file");
  sample.plugged = !sample.plugged;
  recordSample(sample, cfg);
  EXPECT_EQ(mac.read(historyDir), "a file");
}

TEST_F(History, createsItsFolderAgainIfItVanishes) {
  EXPECT_TRUE(recordAfter(0));
  std::filesystem::remove_all(mac.path("/Library/Application Support/Brisko"));
  EXPECT_TRUE(recordAfter(300));
}

TEST_F(History, toleratesAFolderOfAnotherUser) {
  const std::string path = mac.path(historyDir);
  test::setMode(path, 0555);
  const auto ended = test::inChild([&] {
    test::becomeNobody();
    recordSample(sample, cfg);
  });
  EXPECT_EQ(ended.status, 0);
  EXPECT_THAT(names(), IsEmpty());
}

// --- pruning

class Pruning : public History {
 protected:
  void SetUp() override {
    History::SetUp();
    clock(noon);
  }
  void has(const std::vector<std::string>& files) {
    for (const auto& name : files) mac.write(unmapped(name), "x");
  }
  static constexpr double noon = 1772366400;  // 2026-03-01T12:00:00Z
};

TEST_F(Pruning, removesTheDaysThatBeganTooLongAgo) {
  has({"2026-02-19.jsonl", "2026-02-20.jsonl", "2026-02-21.jsonl", "2026-03-01.jsonl", "2026-03-09.jsonl"});
  pruneHistory(9);  // 2026-02-20 at noon
  EXPECT_THAT(names(), ElementsAre("2026-02-21.jsonl", "2026-03-01.jsonl", "2026-03-09.jsonl"));
  EXPECT_THAT(newLines(),
              ElementsAre("history pruned: 2026-02-19.jsonl", "history pruned: 2026-02-20.jsonl"));
}

TEST_F(Pruning, keepsADayThatBeganExactlyThen) {
  has({"2026-02-20.jsonl"});
  clock(1772323200);  // 2026-03-01T00:00:00Z
  pruneHistory(9);
  EXPECT_THAT(names(), ElementsAre("2026-02-20.jsonl"));
  clock(1772323200.25);
  pruneHistory(9);
  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(Pruning, keepsAWeekAtLeast) {
  for (const std::int64_t days : {std::int64_t{7}, std::int64_t{3}, std::int64_t{0}, std::int64_t{-1},
                                  std::numeric_limits<std::int64_t>::min()}) {
    has({"2026-02-22.jsonl", "2026-02-23.jsonl"});
    pruneHistory(days);
    EXPECT_THAT(names(), ElementsAre("2026-02-23.jsonl")) << days;
  }
  has({"2026-02-22.jsonl", "2026-02-21.jsonl"});
  pruneHistory(8);
  EXPECT_THAT(names(), ElementsAre("2026-02-22.jsonl", "2026-02-23.jsonl"));
}

TEST_F(Pruning, removesNothingIfTheTimeIsEndless) {
  has({"0001-01-01.jsonl", "1970-01-01.jsonl"});
  for (const std::int64_t days :
       {std::int64_t{9'000'000'000'000'000'000}, std::numeric_limits<std::int64_t>::max()}) {
    pruneHistory(days);
    EXPECT_THAT(names(), SizeIs(2));
  }
  pruneHistory(365);
  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(Pruning, keepsFilesWithOtherNames) {
  const std::vector<std::string> others = {".jsonl",           "02020-01-01.jsonl",   "2020-00-10.jsonl",
                                           "2020-01-01",       "2020-01-01 .jsonl",   "2020-01-01.JSONL",
                                           "2020-01-01.json",  "2020-01-01.jsonl.gz", "2020-01-01x.jsonl",
                                           "2020-01-1.jsonl",  "2020-01-32.jsonl",    "2020-01-+1.jsonl",
                                           "2020-02-30.jsonl", "2020-1-01.jsonl",     "2020x01-01.jsonl",
                                           "2020-01x01.jsonl", "20a0-01-01.jsonl",    "2020-0a-01.jsonl",
                                           "2020-01-0a.jsonl", "2020-00-01.jsonl",    "2020-01-00.jsonl",
                                           "2020-13-01.jsonl", "2020_01_01.jsonl",    "2021-02-29.jsonl",
                                           "20-01-2020.jsonl", "garbage.jsonl",       "notes.txt"};
  has(others);
  pruneHistory(7);
  for (const auto& name : others) EXPECT_TRUE(mac.exists(unmapped(name))) << name;
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(Pruning, needsADigitWhereverTheDateHasOne) {
  std::vector<std::string> others;
  for (const char other : {':', '.', ' ', 'a', '-'}) {
    for (const std::size_t position : {0U, 1U, 2U, 3U, 5U, 6U, 8U, 9U}) {
      std::string name = "2019-11-11.jsonl";
      name[position] = other;
      others.push_back(name);
    }
  }
  for (const char other : {'1', '.', ':'}) {
    for (const std::size_t position : {4U, 7U}) {
      std::string name = "2019-11-11.jsonl";
      name[position] = other;
      others.push_back(name);
    }
  }
  has(others);
  pruneHistory(7);
  for (const auto& name : others) EXPECT_TRUE(mac.exists(unmapped(name))) << name;
}

TEST_F(Pruning, comparesEveryDigitOfTheDate) {
  // The cut is at noon of 2026-02-20. Each of these dates is before or after it by one digit.
  const std::vector<std::string> older = {"1026-02-21.jsonl", "1926-02-21.jsonl", "2016-02-21.jsonl",
                                          "2025-02-21.jsonl", "2026-01-21.jsonl", "2026-02-11.jsonl",
                                          "2026-02-09.jsonl", "2026-02-20.jsonl"};
  const std::vector<std::string> newer = {"2026-02-21.jsonl", "2026-03-01.jsonl", "2026-12-19.jsonl",
                                          "2027-01-19.jsonl", "2036-02-19.jsonl", "2126-02-19.jsonl",
                                          "3026-02-19.jsonl"};
  has(older);
  has(newer);
  pruneHistory(9);
  EXPECT_EQ(names(), newer);
}

TEST_F(Pruning, knowsLeapDays) {
  has({"2020-02-29.jsonl"});
  pruneHistory(7);
  EXPECT_THAT(names(), IsEmpty());
}

TEST_F(Pruning, logsAFileEvenIfItCannotBeRemoved) {
  has({"2020-01-01.jsonl/inside", "2020-01-02.jsonl"});
  for (int time = 0; time < 2; ++time) {
    pruneHistory(7);
    EXPECT_THAT(names(), ElementsAre("2020-01-01.jsonl"));
  }
  EXPECT_THAT(newLines(), ElementsAre("history pruned: 2020-01-01.jsonl", "history pruned: 2020-01-02.jsonl",
                                      "history pruned: 2020-01-01.jsonl"));
  EXPECT_TRUE(mac.exists(unmapped("2020-01-01.jsonl/inside")));
}

TEST_F(Pruning, removesALinkAndNotItsTarget) {
  mac.write("/elsewhere", "kept");
  test::makeLink(mac.path(unmapped("2020-01-01.jsonl")), mac.path("/elsewhere"));
  test::makePipe(mac.path(unmapped("2020-01-02.jsonl")));
  pruneHistory(7);
  EXPECT_THAT(names(), IsEmpty());
  EXPECT_EQ(mac.read("/elsewhere"), "kept");
}

TEST_F(Pruning, toleratesAFolderThatCannotBeListed) {
  std::filesystem::remove_all(mac.path(historyDir));
  pruneHistory(7);
  mac.write(historyDir, "a file");
  pruneHistory(7);
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(Pruning, countsFromTheLocalDaysFirstMoment) {
  struct Case {
    const char* zone;
    const char* name;
    double start;
  };
  for (const Case& place : {Case{"Pacific/Kiritimati", "2026-03-02.jsonl", 1772359200},
                            Case{"America/New_York", "2026-03-01.jsonl", 1772341200},
                            Case{"America/Sao_Paulo", "2018-11-04.jsonl", 1541300400},  // begins at 01:00
                            Case{"Asia/Beirut", "2024-03-31.jsonl", 1711836000},
                            // Midnight comes twice; the first one begins the day.
                            Case{"Atlantic/Azores", "2024-10-27.jsonl", 1729987200}}) {
    zone(place.zone);
    // After a conversion of a winter day, because the C library resolves an ambiguous hour like the previous
    // conversion.
    has({"2010-01-15.jsonl", place.name});
    clock(place.start + 7 * day);
    pruneHistory(7);
    EXPECT_THAT(names(), ElementsAre(place.name)) << place.zone;
    clock(place.start + 7 * day + 1);
    pruneHistory(7);
    EXPECT_THAT(names(), IsEmpty()) << place.zone;
  }
}

TEST_F(Pruning, runsWithTheFirstLineAndOnEachNewDay) {
  cfg.historyDays = 7;
  has({"2020-01-01.jsonl"});
  recordSample(sample, cfg);
  EXPECT_THAT(names(), ElementsAre("2026-03-01.jsonl"));

  has({"2020-01-01.jsonl"});
  mac.pass(300);
  recordSample(sample, cfg);  // the same day: not again
  EXPECT_THAT(names(), SizeIs(2));

  clock(1772409600);
  recordSample(sample, cfg);
  EXPECT_THAT(names(), ElementsAre("2026-03-01.jsonl", "2026-03-02.jsonl"));
  EXPECT_THAT(newLines(), SizeIs(2));
}

TEST_F(Pruning, keepsTheConfiguredNumberOfDays) {
  cfg.historyDays = 3;
  has({"2026-02-22.jsonl", "2026-02-23.jsonl"});
  recordSample(sample, cfg);
  EXPECT_THAT(names(), ElementsAre("2026-02-23.jsonl", "2026-03-01.jsonl"));
}

TEST_F(Pruning, doesNotRunForASampleWithoutALine) {
  EXPECT_TRUE(recordAfter(0));
  clock(1772409600 - 30);
  EXPECT_TRUE(recordAfter(0));
  has({"2020-01-01.jsonl"});
  clock(1772409600);
  recordSample(sample, cfg);
  EXPECT_TRUE(mac.exists(unmapped("2020-01-01.jsonl")));
}

}  // namespace
}  // namespace brisko::history_test
