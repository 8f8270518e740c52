// Reading the daemon's history for a report.

#include "report/history_files.h"

#include "base/paths.h"
#include "sim/scenario/timing.h"
#include "support/files.h"
#include "support/scratch_folder.h"
#include "support/testing.h"

namespace brisko::lab::history_files_test {
namespace {

using namespace test;

constexpr long long morning = 1772352000;  // 2026-03-01T08:00:00Z

std::string line(long long time, int percent = 80, const std::string& more = "") {
  return R"({"g":true,"p":)" + std::to_string(percent) + R"(,"s":"hold","t":)" + std::to_string(time) + more +
         "}\n";
}

class HistoryFiles : public ::testing::Test {
 protected:
  void day(const std::string& name, const std::string& lines) const { test::put(folder.path(name), lines); }
  [[nodiscard]] HistoryReading read() {
    const auto reading = readHistory(folder.path(), reason);
    EXPECT_TRUE(reading) << reason;
    return reading.value_or(HistoryReading{});
  }
  [[nodiscard]] Picture onlyLine(const std::string& text) {
    day("2026-03-01.jsonl", text);
    return read().picture;
  }
  test::ScratchFolder folder;
  std::string reason;
};

TEST_F(HistoryFiles, areReadWithAllKeys) {
  const Picture picture =
      onlyLine(R"({"ct":312,"g":true,"hot":true,"p":80,"s":"hold","t":1772352000,"wt":-43})"
               "\n");
  ASSERT_THAT(picture.moments, SizeIs(1));
  Moment expected;
  expected.time = static_cast<double>(morning);
  expected.level = 80;
  expected.state = ChargeState::hold;
  expected.supply = Supply::connected;
  expected.occasion = Occasion::heat;
  expected.temperatureC = 31.2;
  expected.watts = -4.3;
  EXPECT_EQ(picture.moments.front(), expected);
}

// Whatever is in it: a line of nothing but brackets would take a gigabyte.
TEST_F(HistoryFiles, haveNoLineThatIsLongerThanAnyOfTheDaemon) {
  const std::string sample = R"({"g":false,"p":50,"s":"allow","t":1772352000})";
  const std::string longest = sample + std::string(4096 - sample.size(), ' ');
  const double midnight = 1772323200;
  EXPECT_TRUE(readHistoryLine(longest, midnight).moment);
  EXPECT_STREQ(readHistoryLine(longest + " ", midnight).fault, "is longer than any line of the daemon");
}

TEST_F(HistoryFiles, needNeitherTemperatureNorPower) {
  const Moment moment = onlyLine(R"({"g":false,"p":50,"s":"allow","t":1772352000})").moments.at(0);
  EXPECT_EQ(moment.temperatureC, std::nullopt);
  EXPECT_EQ(moment.watts, std::nullopt);
  EXPECT_EQ(moment.supply, Supply::none);
  EXPECT_EQ(moment.occasion, Occasion::none);
}

TEST_F(HistoryFiles, showACutAdapter) {
  EXPECT_EQ(onlyLine(R"({"g":true,"p":90,"s":"discharge","t":1772352000})").moments.at(0).supply,
            Supply::cut);
}

TEST_F(HistoryFiles, areReadDayByDay) {
  day("2026-03-02.jsonl", line(morning + 86400, 70));
  day("2026-03-01.jsonl", line(morning, 80));
  const HistoryReading reading = read();
  EXPECT_EQ(reading.files, 2U);
  EXPECT_THAT(reading.picture.moments, ElementsAre(Field(&Moment::level, 80), Field(&Moment::level, 70)));
  EXPECT_EQ(reading.picture.facts, "2 lines of 2 day files");
}

TEST_F(HistoryFiles, haveAGapAfterTenMinutesWithoutALine) {
  const Picture picture = onlyLine(line(morning) + line(morning + 600) + line(morning + 1201));
  EXPECT_THAT(picture.moments, ElementsAre(Field(&Moment::afterGap, false), Field(&Moment::afterGap, false),
                                           Field(&Moment::afterGap, true)));
}

TEST_F(HistoryFiles, areSortedByTime) {
  const Picture picture = onlyLine(line(morning + 300, 82) + line(morning, 81) + line(morning + 600, 83));
  EXPECT_THAT(picture.moments,
              ElementsAre(Field(&Moment::level, 81), Field(&Moment::level, 82), Field(&Moment::level, 83)));
  EXPECT_THAT(picture.notes, ElementsAre(HasSubstr("order of time"), HasSubstr("ten minutes")));
}

TEST_F(HistoryFiles, loseOnlyTheirInvalidLines) {
  day("2026-03-01.jsonl", line(morning) + "\n{\"t\":17\n[]\n" + line(morning + 60) +
                              R"({"g":true,"p":101,"s":"hold","t":1772352000})"
                              "\n"
                              R"({"g":true,"p":80,"s":"holding","t":1772352000})"
                              "\n"
                              R"({"g":1,"p":80,"s":"hold","t":1772352000})"
                              "\n"
                              R"({"g":true,"p":80,"s":"hold","t":"now"})"
                              "\n\xFF\xFE\n" +
                              R"({"g":true,"p":80,"s":"ho)");
  const HistoryReading reading = read();
  EXPECT_THAT(reading.picture.moments, SizeIs(2));
  EXPECT_EQ(reading.skipped, 8U);
  EXPECT_THAT(
      reading.firstSkipped,
      ElementsAre("2026-03-01.jsonl:3: is no JSON object", "2026-03-01.jsonl:4: is no JSON object",
                  "2026-03-01.jsonl:6: \"p\" is no percentage", "2026-03-01.jsonl:7: \"s\" is no state",
                  "2026-03-01.jsonl:8: \"g\" is neither true nor false"));
  EXPECT_EQ(reading.picture.notes.back(), "8 lines were left out, being broken.");
}

TEST_F(HistoryFiles, belongToTheirDayInAnyZone) {
  constexpr long long midnight = morning - 8 * 3600;  // in UTC
  day("2026-03-01.jsonl", line(midnight - 15 * 3600) + line(midnight - 15 * 3600 - 1) +
                              line(midnight + 39 * 3600) + line(midnight + 39 * 3600 + 1));
  EXPECT_THAT(read().picture.moments, SizeIs(2));
}

TEST_F(HistoryFiles, dropImpossibleNumbers) {
  const Moment moment = onlyLine(line(morning, 80, R"(,"ct":99999,"wt":1e300)")).moments.at(0);
  EXPECT_EQ(moment.temperatureC, std::nullopt);
  EXPECT_EQ(moment.watts, std::nullopt);
}

TEST_F(HistoryFiles, areFoundInASubfolder) {
  test::makeFolder(folder.path("history"));
  day("history/2026-03-01.jsonl", line(morning));
  EXPECT_THAT(read().picture.moments, SizeIs(1));
}

TEST_F(HistoryFiles, areFoundOnAVolume) {
  std::string path = folder.path();
  for (const char* name : {"/Library", "/Application Support", "/Brisko", "/history"})
    test::makeFolder(path += name);
  test::put(folder.path() + historyDir + "/2026-03-01.jsonl", line(morning));
  EXPECT_THAT(read().picture.moments, SizeIs(1));
}

TEST_F(HistoryFiles, needADateAsTheirName) {
  day("2026-03-01.jsonl", line(morning));
  for (const char* other :
       {"2026-02-30.jsonl", "2026-3-01.jsonl", "2026-03-01.json", "2026-03-02.jsonl.old", "notes"}) {
    day(other, line(morning));
  }
  test::makeFolder(folder.path("2026-03-05.jsonl"));
  EXPECT_EQ(read().files, 1U);
}

TEST_F(HistoryFiles, mayBeEmpty) {
  day("2026-03-01.jsonl", line(morning));
  day("2026-03-02.jsonl", "");
  const HistoryReading reading = read();
  EXPECT_THAT(reading.picture.moments, SizeIs(1));
  EXPECT_EQ(reading.skipped, 0U);
}

TEST_F(HistoryFiles, areReportedIfMissing) {
  EXPECT_FALSE(readHistory(folder.path(), reason));
  EXPECT_THAT(reason, HasSubstr("no file is named like 2026-03-01.jsonl"));
  EXPECT_FALSE(readHistory(folder.path("nowhere"), reason));
  EXPECT_EQ(reason, "is no folder that can be read");
  day("2026-03-01.jsonl", "{}\n");
  EXPECT_FALSE(readHistory(folder.path(), reason));
  EXPECT_EQ(reason, "its 1 day file holds no line that can be read");
}

// --- Some days

class SomeDays : public HistoryFiles {
 protected:
  // The hours are counted from the beginning of 2 March, in UTC.
  [[nodiscard]] HistoryReading between(double fromHour, double untilHour) {
    return readHistory(folder.path(), start + fromHour * 3600, start + untilHour * 3600, error);
  }
  static constexpr long long start = morning + 16 * 3600;
  std::error_code error;
};

TEST_F(SomeDays, areThoseFromAMomentUntilBeforeAnother) {
  day("2026-03-02.jsonl",
      line(start - 1, 70) + line(start, 71) + line(start + 86399, 72) + line(start + 86400, 73));
  const HistoryReading reading = between(0, 24);
  EXPECT_FALSE(error);
  EXPECT_THAT(reading.picture.moments, ElementsAre(Field(&Moment::level, 71), Field(&Moment::level, 72)));
}

TEST_F(SomeDays, mayBeInAFileOfTheDayBeforeOrAfter) {
  day("2026-03-01.jsonl", line(start + 3600, 70));  // written in a zone to the west
  day("2026-03-03.jsonl", line(start + 12 * 3600, 71));
  EXPECT_THAT(between(0, 24).picture.moments, SizeIs(2));
}

TEST_F(SomeDays, areReadFromTheirFilesAlone) {
  day("2026-02-01.jsonl", "nonsense\n");
  day("2026-03-02.jsonl", line(start));
  day("2027-01-01.jsonl", "nonsense\n");
  const HistoryReading reading = between(0, 24);
  EXPECT_EQ(reading.files, 1U);
  EXPECT_EQ(reading.skipped, 0U);
  EXPECT_EQ(reading.firstDay, dateIn("2026-02-01"));
  EXPECT_EQ(reading.lastDay, dateIn("2027-01-01"));
}

TEST_F(SomeDays, mayHaveNoSamples) {
  EXPECT_THAT(between(0, 24).picture.moments, IsEmpty());
  EXPECT_FALSE(error);
  EXPECT_FALSE(between(0, 24).firstDay);
}

TEST_F(SomeDays, cannotBeReadFromAFolderThatIsNone) {
  static_cast<void>(readHistory(folder.path("nowhere"), 0, 1, error));
  EXPECT_EQ(error, std::errc::no_such_file_or_directory);
  test::put(folder.path("file"), "");
  static_cast<void>(readHistory(folder.path("file"), 0, 1, error));
  EXPECT_EQ(error, std::errc::not_a_directory);
}

TEST_F(HistoryFiles, areSkippedWhenNoDaemonWroteThem) {
  day("2026-03-01.jsonl", line(morning));
  day("2026-03-02.jsonl", std::string((std::size_t{16} << 20U) + 1, '\n'));
  const HistoryReading reading = read();
  EXPECT_EQ(reading.files, 1U);
  EXPECT_THAT(reading.firstSkipped, ElementsAre("2026-03-02.jsonl: is larger than any file of the daemon"));
}

}  // namespace
}  // namespace brisko::lab::history_files_test
