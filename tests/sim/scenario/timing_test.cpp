#include "sim/scenario/timing.h"

#include "support/testing.h"

namespace brisko::lab::timing_test {
namespace {

constexpr double eight = 1772352000;  // 2026-03-01 08:00 UTC

TEST(Timing, countsFromTheStepBefore) {
  for (const auto& [text, seconds] : {std::pair{"+90 s", 90.0},
                                      {"+1 h 30 min", 5400.0},
                                      {"+2 days", 172800.0},
                                      {"+0.5 s", 0.5},
                                      {"+3min", 180.0}}) {
    const auto timing = parseTiming(text);
    ASSERT_TRUE(timing) << text;
    EXPECT_DOUBLE_EQ(secondsUntil(*timing, eight), seconds) << text;
  }
}

TEST(Timing, findsTheNextTimeOfDay) {
  EXPECT_EQ(secondsUntil(*parseTiming("08:00:01"), eight), 1);
  EXPECT_EQ(secondsUntil(*parseTiming("08:00"), eight), 86400) << "the next time is never now";
  EXPECT_EQ(secondsUntil(*parseTiming("07:59"), eight), 86340);
  EXPECT_EQ(secondsUntil(*parseTiming("+1 day 07:00"), eight), 86400 + 23 * 3600);
}

TEST(Timing, isMissingForATextOfAnotherForm) {
  for (const char* text : {"", "+", "90 s", "+0 s", "+90", "+90 sec", "+-5 s", "24:00", "8:00", "08:60",
                           "08:00:60", "08", "08:00:00:00", "08:00 ", "+1 day 07:00 h", "noon"}) {
    EXPECT_FALSE(parseTiming(text)) << text;
  }
}

TEST(Timing, readsDates) {
  EXPECT_EQ(parseDate("2026-03-01 08:00"), eight);
  EXPECT_EQ(parseDate("2026-03-01 08:00:30"), eight + 30);
  EXPECT_TRUE(parseDate("2024-02-29 08:00"));
  for (const char* text :
       {"2026-03-01", "2026-13-01 08:00", "2026-03-01T08:00", "2026-03-01 08:00 x", "2026-02-29 08:00",
        "2026-04-31 08:00", "2026-03- 1 08:00", "2026-03-01 08:00:60"}) {
    EXPECT_FALSE(parseDate(text)) << text;
  }
}

TEST(Timing, formatsADurationInItsTwoLargestUnits) {
  EXPECT_EQ(spanText(0), "0 s");
  EXPECT_EQ(spanText(12), "12 s");
  EXPECT_EQ(spanText(3600), "1 h");
  EXPECT_EQ(spanText(5400), "1 h 30 min");
  EXPECT_EQ(spanText(183845), "2 d 3 h");
  EXPECT_EQ(spanText(86405), "1 d");
}

}  // namespace
}  // namespace brisko::lab::timing_test
