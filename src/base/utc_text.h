// base/utc_text.h
// Moments as UTC texts, without the C library's calendar, which knows locales and time zones.
#pragma once

#include <string>

namespace brisko {

// Whole seconds, rounded down. The year has four digits, however far off the moment lies: what is before the
// year 0 or after 9999, or no number at all, shows as the nearest end.
struct UtcText {
  std::string date;  // "2026-03-01"
  std::string time;  // "08:15:30"
};
[[nodiscard]] UtcText utcText(double secondsSince1970);

}  // namespace brisko
