#include "client/recent_history.h"

#include <cmath>
#include <string>

#include <gtest/gtest.h>

namespace brisko::client::recent_history_test {
namespace {

constexpr double now = 1'772'352'000;

std::string line(double time, int pct, const std::string& state = "allow", bool plugged = true) {
  return "{\"g\":" + std::string(plugged ? "true" : "false") + ",\"p\":" + std::to_string(pct) + ",\"s\":\"" +
         state + "\",\"t\":" + std::to_string(static_cast<long>(time)) + ",\"wt\":215}\n";
}

RecentHistory historyOf(const std::string& today, const std::string& yesterday = "") {
  return recentHistory(now, [&](double moment) { return moment > now - 3600 ? today : yesterday; });
}

TEST(RecentHistory, readsASample) {
  const auto sample = sampleIn(R"({"ct":312,"g":true,"p":80,"s":"hold","t":1741950000,"wt":-43})");
  ASSERT_TRUE(sample);
  EXPECT_EQ(sample->time, 1741950000);
  EXPECT_EQ(sample->pct, 80);
  EXPECT_EQ(sample->state, ChargeState::hold);
  EXPECT_TRUE(sample->plugged);
  EXPECT_DOUBLE_EQ(sample->watts.value(), -4.3);
}

TEST(RecentHistory, skipsLinesThatAreNotSamples) {
  for (const char* text : {"", "{}", "[1]", "{\"g\":true,\"p\":80,\"s\":\"hold\"",
                           R"({"g":1,"p":80,"s":"hold","t":1})", R"({"g":true,"p":80,"s":"other","t":1})"}) {
    EXPECT_FALSE(sampleIn(text)) << text;
  }
}

TEST(RecentHistory, readsTheLastFifteenMinutesInOrder) {
  const RecentHistory history = historyOf(line(now - 901, 50) + line(now - 900, 51) + line(now - 60, 60));
  ASSERT_EQ(history.samples.size(), 2U);
  EXPECT_EQ(history.samples.front().pct, 51);
  EXPECT_EQ(history.samples.back().pct, 60);
}

TEST(RecentHistory, ignoresSamplesFromBeforeTheClockWasSetBack) {
  EXPECT_EQ(historyOf(line(now - 60, 60) + line(now + 1, 61)).samples.size(), 1U);
}

TEST(RecentHistory, findsAStateThatBeganTheDayBefore) {
  const std::string yesterday = line(now - 40'000, 70, "allow") + line(now - 30'000, 80, "hold");
  EXPECT_EQ(historyOf(line(now - 100, 80, "hold"), yesterday).stateSince, now - 30'000);
  EXPECT_FALSE(historyOf(line(now - 100, 80, "hold")).stateSince.has_value());
}

std::vector<RecentSample> rising(int minutes, double perMinute) {
  std::vector<RecentSample> samples;
  for (int minute = 0; minute <= minutes; ++minute) {
    samples.push_back({.time = now - (minutes - minute) * 60.0,
                       .pct = 60 + static_cast<std::int64_t>(std::floor(minute * perMinute)),
                       .state = ChargeState::allow,
                       .plugged = true});
  }
  return samples;
}

TEST(Slope, isMeasuredBetweenTheFirstAndTheLastChange) {
  const auto slope = slopeOf(rising(10, 0.5));
  ASSERT_TRUE(slope);
  EXPECT_DOUBLE_EQ(slope->perMinute, 0.5);
  EXPECT_EQ(slope->lastPct, 65);
}

TEST(Slope, needsThreeMinutesBetweenTwoChanges) {
  EXPECT_FALSE(slopeOf(rising(3, 1)));
  EXPECT_TRUE(slopeOf(rising(4, 1)));
}

TEST(Slope, countsOnlySinceTheLastChangeOfTheAdapter) {
  auto samples = rising(10, 1);
  for (std::size_t index = 0; index < 8; ++index) samples[index].plugged = false;
  EXPECT_FALSE(slopeOf(samples));
}

TEST(Minutes, followTheSlopeAndTheTimeSinceTheLastChange) {
  const Slope slope{.perMinute = 0.5, .lastTime = now - 60, .lastPct = 70};
  EXPECT_DOUBLE_EQ(minutesUntil(80, slope, now).value(), 19);
  EXPECT_FALSE(minutesUntil(60, slope, now).has_value());
  EXPECT_FALSE(minutesUntil(70, slope, now).has_value());
}

TEST(Minutes, growWhileANearlyFullBatteryChargesMoreSlowly) {
  const Slope slope{.perMinute = 1, .lastTime = now, .lastPct = 80};
  EXPECT_NEAR(minutesUntil(85, slope, now).value(), 5, 0.01);
  EXPECT_GT(minutesUntil(100, slope, now).value(), 22);
  EXPECT_LT(minutesUntil(100, slope, now).value(), 35);
}

TEST(Minutes, areProportionalDuringADischarge) {
  const Slope slope{.perMinute = -0.25, .lastTime = now, .lastPct = 90};
  EXPECT_DOUBLE_EQ(minutesUntil(80, slope, now).value(), 40);
}

TEST(Minutes, areNeverNegative) {
  const Slope slope{.perMinute = 1, .lastTime = now - 600, .lastPct = 79};
  EXPECT_EQ(minutesUntil(80, slope, now), 0);
}

}  // namespace
}  // namespace brisko::client::recent_history_test
