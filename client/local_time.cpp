#include "client/local_time.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <ctime>

namespace brisko::client {
namespace {

std::tm localTime(double secondsSince1970) {
  constexpr double latest = 253'402'300'799;  // the year 9999
  const auto moment = static_cast<std::time_t>(std::clamp(secondsSince1970, 0.0, latest));
  std::tm local{};
  static_cast<void>(::localtime_r(&moment, &local));
  return local;
}

// English names of months in any locale.
constexpr std::array<const char*, 12> months{"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                             "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

template <typename... Values>
std::string formatted(const char* format, Values... values) {
  std::array<char, 80> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), format, values...));
  return text.data();
}

}  // namespace

std::string timeText(double secondsSince1970, double now) {
  const std::tm local = localTime(secondsSince1970);
  const std::tm today = localTime(now);
  std::string text = formatted("%02d:%02d", local.tm_hour, local.tm_min);
  if (local.tm_year == today.tm_year && local.tm_yday == today.tm_yday) return text;
  text = dateText(secondsSince1970) + ", " + text;
  return local.tm_year == today.tm_year ? text : std::to_string(local.tm_year + 1900) + " " + text;
}

std::string dateText(double secondsSince1970) {
  const std::tm local = localTime(secondsSince1970);
  return formatted("%s %d", months[static_cast<std::size_t>(local.tm_mon)], local.tm_mday);
}

std::string dayText(double secondsSince1970) {
  const std::tm local = localTime(secondsSince1970);
  return formatted("%04d-%02d-%02d", local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
}

std::string stampText(double secondsSince1970) {
  const std::tm local = localTime(secondsSince1970);
  return dayText(secondsSince1970) + formatted(" %02d:%02d:%02d", local.tm_hour, local.tm_min, local.tm_sec);
}

std::string durationText(double seconds) {
  constexpr double longest = 1e15;  // a damaged file may contain more, and what is no number is less
  const auto whole = static_cast<std::int64_t>(seconds > 0 ? std::min(std::round(seconds), longest) : 0.0);
  const auto joined = [](std::int64_t large, const char* largeUnit, std::int64_t small,
                         const char* smallUnit) {
    const std::string text = std::to_string(large) + largeUnit;
    return small == 0 ? text : text + " " + std::to_string(small) + smallUnit;
  };
  if (whole < 60) return std::to_string(whole) + " s";
  if (whole < 3600) return std::to_string(whole / 60) + " min";
  if (whole < 86'400) return joined(whole / 3600, " h", whole / 60 % 60, " min");
  return joined(whole / 86'400, " d", whole / 3600 % 24, " h");
}

std::string percentText(std::int64_t percent) { return std::to_string(percent) + " %"; }

std::string degreesText(double celsius) {
  if (celsius == std::floor(celsius)) return formatted("%.0f °C", celsius);
  return formatted("%.1f °C", celsius);
}

}  // namespace brisko::client
