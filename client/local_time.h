// client/local_time.h
// Formats times, durations and quantities for people, in local time.
#pragma once

#include <cstdint>
#include <string>

namespace brisko::client {

// "14:02" on the day of `now`, else "Mar 2, 14:02"; with the year when that differs.
[[nodiscard]] std::string timeText(double secondsSince1970, double now);

// "Mar 2".
[[nodiscard]] std::string dateText(double secondsSince1970);

// "2026-03-01", the local day that contains the moment.
[[nodiscard]] std::string dayText(double secondsSince1970);

// "2026-03-01 14:02:05".
[[nodiscard]] std::string stampText(double secondsSince1970);

// "6 s", "3 min", "4 h 10 min", "3 d 4 h".
[[nodiscard]] std::string durationText(double seconds);

// "80 %".
[[nodiscard]] std::string percentText(std::int64_t percent);

// "31.5 °C"; whole degrees without a fraction.
[[nodiscard]] std::string degreesText(double celsius);

}  // namespace brisko::client
