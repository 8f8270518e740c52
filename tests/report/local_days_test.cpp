#include "report/local_days.h"

#include <cstdlib>
#include <ctime>

#include "support/testing.h"

namespace brisko::lab::local_days_test {
namespace {

using namespace test;

void inZone(const char* zone) {
  ::setenv("TZ", zone, 1);
  ::tzset();
}

Date day(const char* text) { return dateIn(text).value(); }

TEST(LocalDays, readTheDatesThatThereAre) {
  for (const char* text : {"2026-03-01", "2024-02-29", "1970-01-01", "9999-12-31"}) {
    ASSERT_TRUE(dateIn(text)) << text;
    EXPECT_EQ(isoText(*dateIn(text)), text);
  }
  for (const char* text : {"2026-02-29", "2026-13-01", "2026-00-10", "2026-3-01", "26-03-01", "2026/03/01",
                           "2026-03-01 ", "yesterday", "", "2026-03-0x", "-026-03-01"})
    EXPECT_FALSE(dateIn(text)) << text;
}

TEST(LocalDays, areWrittenForPeople) { EXPECT_EQ(dateText(day("2026-03-01")), "1 March 2026"); }

TEST(LocalDays, areCounted) {
  EXPECT_EQ(isoText(dateAfter(day("2026-02-28"), 1)), "2026-03-01");
  EXPECT_EQ(isoText(dateAfter(day("2026-03-01"), -6)), "2026-02-23");
  EXPECT_EQ(daysBetween(day("2026-01-01"), day("2027-01-01")), 365);
  EXPECT_EQ(daysBetween(day("2026-01-01"), day("2026-01-01")), 0);
}

TEST(LocalDays, beginAtMidnight) {
  inZone("PST8PDT");
  const double midnight = 1772352000;  // of 1 March 2026 there, 08:00 UTC
  EXPECT_EQ(beginOf(day("2026-03-01")), midnight);
  EXPECT_EQ(dateOf(midnight), day("2026-03-01"));
  EXPECT_EQ(dateOf(midnight - 1), day("2026-02-28"));
}

TEST(LocalDays, haveAnHourLessOrMoreWhereTheClockIsChanged) {
  inZone("PST8PDT");
  const auto hours = [](const char* text) {
    return (beginOf(dateAfter(day(text), 1)) - beginOf(day(text))) / 3600;
  };
  EXPECT_EQ(hours("2026-03-08"), 23);
  EXPECT_EQ(hours("2026-11-01"), 25);
  EXPECT_EQ(hours("2026-03-09"), 24);
}

TEST(LocalDays, beginAfterAMidnightThatTheClockSkips) {
  inZone("XST3XDT,M10.3.0/0,M2.3.0/0");  // forward at midnight on the third Sunday of October
  const double begin = beginOf(day("2026-10-18"));
  EXPECT_EQ(dateOf(begin), day("2026-10-18"));
  EXPECT_EQ(dateOf(begin - 1), day("2026-10-17"));
}

}  // namespace
}  // namespace brisko::lab::local_days_test
