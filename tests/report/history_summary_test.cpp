#include "report/history_summary.h"

#include <numeric>

#include "report/drawn_moments.h"
#include "support/testing.h"

namespace brisko::lab::history_summary_test {
namespace {

using namespace test;

constexpr double hour = 3600;

class HistorySummaryTest : public InUtc {
 protected:
  Moment& add(double hours, double level) {
    moments.push_back(heldAt(midnight + hours * hour, level));
    return moments.back();
  }
  [[nodiscard]] HistorySummary summary() const { return summariseHistory(moments); }
  std::vector<Moment> moments;
};

TEST_F(HistorySummaryTest, countsASampleUntilTheNextOne) {
  add(8, 70);
  add(9, 90);
  add(11, 70);
  EXPECT_EQ(summary().durations.recorded, 3 * hour);
  EXPECT_EQ(summary().durations.high, 2 * hour);
}

TEST_F(HistorySummaryTest, countsAsHighOnlyWhatIsAbove80) {
  add(8, 80);
  add(9, 80);
  EXPECT_EQ(summary().durations.high, 0);
  moments.front().level = 81;
  EXPECT_EQ(summary().durations.high, hour);
}

TEST_F(HistorySummaryTest, countsNoTimeOfWhichNothingWasRecorded) {
  add(0, 90);
  add(1, 90);
  add(9, 90).afterGap = true;
  add(10, 90);
  EXPECT_EQ(summary().durations.recorded, 2 * hour);
  EXPECT_EQ(summary().durations.high, 2 * hour);
  EXPECT_EQ(summary().plugged, 2 * hour);
}

TEST_F(HistorySummaryTest, dividesTimeBetweenDays) {
  add(23, 90);
  add(26, 70);
  add(27, 70);
  const auto days = summary().days;
  ASSERT_THAT(days, SizeIs(2));
  EXPECT_EQ(isoText(days[0].date), "2026-03-01");
  EXPECT_EQ(days[0].durations.high, hour);
  EXPECT_EQ(days[1].durations.high, 2 * hour);
  EXPECT_EQ(days[1].durations.recorded, 3 * hour);
  EXPECT_EQ(days[0].lowest, 90);
  EXPECT_EQ(days[1].highest, 70);
}

TEST_F(HistorySummaryTest, keepsDaysWithoutSamples) {
  add(12, 60);
  add(84, 61).afterGap = true;
  const auto days = summary().days;
  ASSERT_THAT(days, SizeIs(4));
  EXPECT_FALSE(days[1].lowest);
  EXPECT_EQ(days[1].durations.recorded, 0);
  EXPECT_EQ(days[3].lowest, 61);
}

TEST_F(HistorySummaryTest, putsMidnightIntoTheNewDay) {
  add(23.999, 60);
  add(24, 61);
  ASSERT_THAT(summary().days, SizeIs(2));
  EXPECT_EQ(summary().days[0].highest, 60);
  EXPECT_EQ(summary().days[1].lowest, 61);
}

TEST_F(HistorySummaryTest, countsByCharge) {
  for (const double level : {0.0, 9.0, 10.0, 79.0, 80.0, 99.0, 100.0})
    add(static_cast<double>(moments.size()), level);
  add(7, 50);
  const auto seconds = summary().byCharge;
  EXPECT_THAT(seconds, ElementsAre(2 * hour, hour, 0, 0, 0, 0, 0, hour, hour, hour, hour));
  EXPECT_EQ(std::accumulate(seconds.begin(), seconds.end(), 0.0), summary().durations.recorded);
  EXPECT_EQ(chargeText(0), "0–9 %");
  EXPECT_EQ(chargeText(9), "90–99 %");
  EXPECT_EQ(chargeText(10), "100 %");
}

TEST_F(HistorySummaryTest, countsHeatStatesAndTheAdapter) {
  add(0, 60).occasion = Occasion::heat;
  add(1, 60).state = ChargeState::discharge;
  add(3, 60).supply = Supply::none;
  add(7, 60);
  EXPECT_EQ(summary().durations.hot, hour);
  EXPECT_THAT(summary().inState, ElementsAre(0, 5 * hour, 2 * hour));
  EXPECT_EQ(summary().plugged, 3 * hour);
}

TEST_F(HistorySummaryTest, namesTheFirstLowestAndHighest) {
  add(0, 60);
  add(1, 40);
  add(2, 40);
  add(3, 90);
  add(4, 90);
  EXPECT_EQ(summary().lowest.time, midnight + hour);
  EXPECT_EQ(summary().highest.time, midnight + 3 * hour);
  EXPECT_FALSE(summary().coolest);
  moments[1].temperatureC = 20.5;
  moments[3].temperatureC = 35;
  EXPECT_EQ(summary().coolest, 20.5);
  EXPECT_EQ(summary().warmest, 35);
}

TEST_F(HistorySummaryTest, canBeOfOneSample) {
  add(8, 80);
  EXPECT_EQ(summary().durations.recorded, 0);
  EXPECT_THAT(summary().days, SizeIs(1));
}

TEST(HoursText, hasADigitAfterThePointBelowTen) {
  EXPECT_EQ(hoursText(0), "0 h");
  EXPECT_EQ(hoursText(1800), "0.5 h");
  EXPECT_EQ(hoursText(9.94 * hour), "9.9 h");
  EXPECT_EQ(hoursText(9.95 * hour), "10 h");
  EXPECT_EQ(hoursText(126.4 * hour), "126 h");
}

}  // namespace
}  // namespace brisko::lab::history_summary_test
