#include "client/day_range.h"

#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace brisko::client::day_range_test {
namespace {

using ::testing::HasSubstr;

AskedDays asked(std::vector<std::string> options) {
  options.insert(options.begin(), "history");
  const Parsed parsed = parseCommandLine(options);
  EXPECT_TRUE(parsed.invocation) << parsed.error;
  return askedDays(*parsed.invocation, *lab::dateIn("2026-03-08"));
}

std::string rangeText(const std::vector<std::string>& options) {
  const AskedDays days = asked(options);
  if (!days.range) return days.error;
  return lab::isoText(days.range->first) + " " + lab::isoText(days.range->last);
}

TEST(DayRange, isSevenDaysUpToToday) { EXPECT_EQ(rangeText({}), "2026-03-02 2026-03-08"); }

TEST(DayRange, isAsManyDaysAsAskedFor) {
  EXPECT_EQ(rangeText({"--days", "1"}), "2026-03-08 2026-03-08");
  EXPECT_EQ(rangeText({"--days", "30"}), "2026-02-07 2026-03-08");
  EXPECT_EQ(rangeText({"--days", "3650"}), "2016-03-11 2026-03-08");
}

TEST(DayRange, isFromOneDayToAnother) {
  EXPECT_EQ(rangeText({"--from", "2026-01-01", "--to", "2026-01-01"}), "2026-01-01 2026-01-01");
  EXPECT_EQ(rangeText({"--from", "2026-03-01"}), "2026-03-01 2026-03-08");
  EXPECT_EQ(rangeText({"--to", "2026-01-07"}), "2026-01-01 2026-01-07");
  EXPECT_EQ(rangeText({"--to", "2026-01-07", "--days", "2"}), "2026-01-06 2026-01-07");
  EXPECT_EQ(rangeText({"--from", "2026-03-01", "--to", "2030-01-01"}), "2026-03-01 2026-03-08");
}

TEST(DayRange, refusesWhatIsNoNumberOfDays) {
  for (const char* days : {"0", "-1", "3651", "seven", "7d", "1.5"})
    EXPECT_THAT(rangeText({"--days=" + std::string(days)}), HasSubstr("a whole number from 1 to 3650"))
        << days;
}

TEST(DayRange, refusesWhatIsNoDay) {
  for (const char* date : {"2026-02-30", "yesterday", "2026-3-1", "01.03.2026"}) {
    EXPECT_EQ(rangeText({"--from", date}),
              "--from takes a day such as 2026-03-01, not \"" + std::string(date) + "\"");
    EXPECT_THAT(rangeText({"--to", date}), HasSubstr("--to takes a day"));
  }
}

TEST(DayRange, refusesDaysThatNeverComeTogether) {
  EXPECT_EQ(rangeText({"--from", "2026-03-02", "--to", "2026-03-01"}), "2026-03-02 is after 2026-03-01");
  EXPECT_EQ(rangeText({"--from", "2026-03-09"}), "2026-03-09 is after today, 2026-03-08");
  EXPECT_THAT(rangeText({"--from", "2026-03-01", "--days", "3"}), HasSubstr("exclude each other"));
  EXPECT_THAT(rangeText({"--from", "2016-03-10"}), HasSubstr("more than 3650 days"));
  EXPECT_EQ(rangeText({"--from", "2016-03-11"}), "2016-03-11 2026-03-08");
}

}  // namespace
}  // namespace brisko::client::day_range_test
