// base/utc_text.h
// Moments as UTC texts, without the C library's calendar, which depends on locales and time zones.
#pragma once

#include <string>

namespace brisko {

// Whole seconds, rounded down. The year always has four digits: a moment before the year 0 or after 9999, or
// a NaN, is shown as the nearest end of that range.
struct UtcText {
  std::string date;  // "2026-03-01"
  std::string time;  // "08:15:30"
};
[[nodiscard]] UtcText utcText(double secondsSince1970);

}  // namespace brisko
