#include "base/utc_text.h"

#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>

namespace brisko {
namespace {

std::string dateText(const std::chrono::year_month_day& date) {
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02u-%02u", static_cast<int>(date.year()),
                static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()));
  return text.data();
}

std::string timeText(const std::chrono::hh_mm_ss<std::chrono::seconds>& time) {
  std::array<char, 40> text{};
  std::snprintf(text.data(), text.size(), "%02d:%02d:%02d", static_cast<int>(time.hours().count()),
                static_cast<int>(time.minutes().count()), static_cast<int>(time.seconds().count()));
  return text.data();
}

}  // namespace

UtcText utcText(double secondsSince1970) {
  constexpr double earliest = -62'167'219'200;  // 0000-01-01T00:00:00Z
  constexpr double latest = 253'402'300'799;    // 9999-12-31T23:59:59Z
  const double whole = std::floor(std::fmax(earliest, std::fmin(latest, secondsSince1970)));

  const std::chrono::sys_seconds moment{std::chrono::seconds(static_cast<std::int64_t>(whole))};
  const auto midnight = std::chrono::floor<std::chrono::days>(moment);
  return {.date = dateText(std::chrono::year_month_day(midnight)),
          .time = timeText(std::chrono::hh_mm_ss<std::chrono::seconds>(moment - midnight))};
}

}  // namespace brisko
