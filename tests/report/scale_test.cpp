#include "report/scale.h"

#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "sim/scenario/timing.h"
#include "support/testing.h"

namespace brisko::lab::scale_test {
namespace {

using namespace test;

TEST(Scale, canRunInEitherDirection) {
  const Scale across{.from = 10, .until = 20, .begin = 100, .end = 300};
  EXPECT_EQ(across.at(10), 100);
  EXPECT_EQ(across.at(20), 300);
  EXPECT_EQ(across.at(15), 200);
  const Scale up{.from = 0, .until = 100, .begin = 50, .end = 0};
  EXPECT_EQ(up.at(100), 0);
  EXPECT_EQ(up.at(25), 37.5);
}

TEST(Scale, usesTheSmallestRoundStepThatFits) {
  EXPECT_EQ(roundStep(100, 11, 1), 10);
  EXPECT_EQ(roundStep(100, 10, 1), 20);
  EXPECT_EQ(roundStep(10, 11, 1), 1);
  EXPECT_EQ(roundStep(10, 11, 5), 5) << "none smaller than is asked for";
  EXPECT_EQ(roundStep(1e6, 6, 1), 200000);
}

TEST(Scale, computesItsTicksWithoutDrift) {
  EXPECT_THAT(multiples(70, 90, 5), ElementsAre(70, 75, 80, 85, 90));
  EXPECT_THAT(multiples(-401, 399, 200), ElementsAre(-400, -200, 0, 200));
  EXPECT_THAT(multiples(0, 0.3, 0.1), SizeIs(4));
  EXPECT_THAT(multiples(1, 4, 5), IsEmpty());
}

void expectExtent(const Extent& extent, double from, double until) {
  EXPECT_EQ(extent.from, from);
  EXPECT_EQ(extent.until, until);
}

TEST(Scale, leavesRoomAroundWhatItShows) {
  expectExtent(roundExtent(75, 80, 20, 5, 0, 100), 65, 90);
  expectExtent(roundExtent(60, 82, 20, 5, 0, 100), 55, 85);
  expectExtent(roundExtent(60.6, 84.4, 20, 5, 0, 100), 60, 85);
  expectExtent(roundExtent(60.4, 84.6, 20, 5, 0, 100), 55, 90);
}

TEST(Scale, staysWithinItsBounds) {
  expectExtent(roundExtent(0, 100, 20, 5, 0, 100), 0, 100);
  expectExtent(roundExtent(97, 100, 20, 5, 0, 100), 85, 100);
}

// --- Time

double at(const std::string& date) { return parseDate(date).value(); }

class TimeTicks : public ::testing::Test {
 protected:
  TimeTicks() { useZone("UTC"); }
  static void useZone(const char* zone) {
    ::setenv("TZ", zone, 1);
    ::tzset();
  }
  // "22:00 1 March", "23:00", …
  static std::vector<std::string> labels(const std::string& from, const std::string& until,
                                         std::size_t most = 12) {
    std::vector<std::string> all;
    for (const TimeTick& tick : timeTicks(at(from), at(until), most)) {
      all.push_back(tick.clock + (tick.clock.empty() || tick.day.empty() ? "" : " ") + tick.day);
    }
    return all;
  }
};

TEST_F(TimeTicks, nameTheirDayOnce) {
  EXPECT_THAT(labels("2026-03-01 22:00", "2026-03-02 01:10", 5),
              ElementsAre("22:00 1 March", "23:00", "00:00 2 March", "01:00"));
}

TEST_F(TimeTicks, areAsDenseAsFits) {
  EXPECT_THAT(labels("2026-03-01 08:00", "2026-03-01 19:59"), SizeIs(12));
  EXPECT_THAT(labels("2026-03-01 08:00", "2026-03-01 20:00"),
              ElementsAre("08:00 1 March", "10:00", "12:00", "14:00", "16:00", "18:00", "20:00"));
}

TEST_F(TimeTicks, showSecondsWithinAMinute) {
  EXPECT_THAT(labels("2026-03-01 08:00:00", "2026-03-01 08:00:30", 4),
              ElementsAre("08:00:00 1 March", "08:00:10", "08:00:20", "08:00:30"));
  EXPECT_THAT(labels("2026-03-01 08:00:00", "2026-03-01 08:02:30", 3),
              ElementsAre("08:00 1 March", "08:01", "08:02"));
}

TEST_F(TimeTicks, countDaysFromTheFirstOfTheMonth) {
  EXPECT_THAT(labels("2026-02-25 08:00", "2026-03-08 12:00", 6),
              ElementsAre("27 Feb", "1 Mar", "3 Mar", "5 Mar", "7 Mar"));
  EXPECT_THAT(labels("2026-02-20 08:00", "2026-04-02 08:00", 4), ElementsAre("1 Mar", "16 Mar", "1 Apr"));
}

TEST_F(TimeTicks, useMonthsAndYearsForLongTimes) {
  EXPECT_THAT(labels("2026-01-01 00:00", "2026-08-01 00:00", 8),
              ElementsAre("Jan 2026", "Feb 2026", "Mar 2026", "Apr 2026", "May 2026", "Jun 2026", "Jul 2026",
                          "Aug 2026"));
  EXPECT_THAT(labels("2024-06-01 00:00", "2027-06-01 00:00", 4), ElementsAre("2025", "2026", "2027"));
  EXPECT_THAT(labels("2001-01-01 00:00", "2400-01-01 00:00", 5), ElementsAre("2100", "2200", "2300", "2400"));
}

TEST_F(TimeTicks, followTheClockAtTheStartOfSummerTime) {
  useZone("CET-1CEST,M3.5.0,M10.5.0/3");
  const auto ticks = timeTicks(at("2026-03-28 23:00"), at("2026-03-29 03:00"), 12);
  std::vector<std::string> clocks;
  for (const TimeTick& tick : ticks) {
    if (tick.clock.ends_with(":00")) clocks.push_back(tick.clock);
  }
  EXPECT_THAT(clocks, ElementsAre("00:00", "01:00", "03:00", "04:00", "05:00"));
  for (std::size_t index = 1; index < ticks.size(); ++index)
    EXPECT_GT(ticks[index].time, ticks[index - 1].time);
}

TEST_F(TimeTicks, showTheZoneAndTheMoment) {
  EXPECT_EQ(momentText(at("2026-03-01 08:00:05") + 0.9), "1 March 2026 08:00:05");
  EXPECT_EQ(zoneText(0), "UTC");
  useZone("CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_EQ(momentText(at("2026-07-01 08:00:00")), "1 July 2026 10:00:00");
  EXPECT_EQ(zoneText(at("2026-07-01 08:00:00")), "CEST");
}

}  // namespace
}  // namespace brisko::lab::scale_test
