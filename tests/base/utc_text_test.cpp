#include "base/utc_text.h"

#include <limits>

#include "support/testing.h"

namespace brisko::utc_text_test {
namespace {

std::string together(double seconds) {
  const UtcText text = utcText(seconds);
  return text.date + " " + text.time;
}

TEST(UtcText, isTheCalendarInUtc) {
  EXPECT_EQ(together(1772352930), "2026-03-01 08:15:30");
  EXPECT_EQ(together(0), "1970-01-01 00:00:00");
  EXPECT_EQ(together(951782399), "2000-02-28 23:59:59");
  EXPECT_EQ(together(951782400), "2000-02-29 00:00:00");
}

TEST(UtcText, roundsDownToWholeSeconds) {
  EXPECT_EQ(together(1772352930.999), "2026-03-01 08:15:30");
  EXPECT_EQ(together(-0.001), "1969-12-31 23:59:59");
}

TEST(UtcText, keepsTheYearWithinFourDigits) {
  EXPECT_EQ(together(253402300799), "9999-12-31 23:59:59");
  EXPECT_EQ(together(253402300800), "9999-12-31 23:59:59");
  EXPECT_EQ(together(1e300), "9999-12-31 23:59:59");
  EXPECT_EQ(together(-62167219200), "0000-01-01 00:00:00");
  EXPECT_EQ(together(-1e300), "0000-01-01 00:00:00");
  EXPECT_EQ(together(std::numeric_limits<double>::quiet_NaN()), "9999-12-31 23:59:59");
}

}  // namespace
}  // namespace brisko::utc_text_test
