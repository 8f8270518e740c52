#include "report/local_days.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>

namespace brisko::lab {
namespace {

std::optional<int> digits(std::string_view text) {
  int number = 0;
  for (const char digit : text) {
    if (digit < '0' || digit > '9') return std::nullopt;
    number = number * 10 + (digit - '0');
  }
  return number;
}

Date dateFrom(int year, int month, int day) {
  return Date{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
              std::chrono::day(static_cast<unsigned>(day))};
}

double timeOf(const Date& date, int hour) {
  std::tm parts{};
  parts.tm_year = static_cast<int>(date.year()) - 1900;
  parts.tm_mon = static_cast<int>(static_cast<unsigned>(date.month())) - 1;
  parts.tm_mday = static_cast<int>(static_cast<unsigned>(date.day()));
  parts.tm_hour = hour;
  parts.tm_isdst = -1;
  return static_cast<double>(std::mktime(&parts));
}

}  // namespace

std::optional<Date> dateIn(std::string_view text) {
  if (text.size() != 10 || text[4] != '-' || text[7] != '-') return std::nullopt;
  const auto year = digits(text.substr(0, 4));
  const auto month = digits(text.substr(5, 2));
  const auto day = digits(text.substr(8, 2));
  if (!year || !month || !day) return std::nullopt;
  const Date date = dateFrom(*year, *month, *day);
  return date.ok() ? std::optional(date) : std::nullopt;
}

std::string isoText(const Date& date) {
  std::array<char, 48> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), "%04d-%02u-%02u", static_cast<int>(date.year()),
                                  static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day())));
  return text.data();
}

std::string dateText(const Date& date) {
  constexpr std::array months{"January", "February", "March",     "April",   "May",      "June",
                              "July",    "August",   "September", "October", "November", "December"};
  return std::to_string(static_cast<unsigned>(date.day())) + " " +
         months.at(static_cast<unsigned>(date.month()) - 1) + " " +
         std::to_string(static_cast<int>(date.year()));
}

Date dateAfter(const Date& date, int days) {
  return Date{std::chrono::sys_days(date) + std::chrono::days(days)};
}

int daysBetween(const Date& first, const Date& last) {
  return static_cast<int>((std::chrono::sys_days(last) - std::chrono::sys_days(first)).count());
}

Date dateOf(double time) {
  const auto seconds = static_cast<std::time_t>(std::floor(time));
  std::tm parts{};
  static_cast<void>(::localtime_r(&seconds, &parts));
  return dateFrom(parts.tm_year + 1900, parts.tm_mon + 1, parts.tm_mday);
}

double beginOf(const Date& date) {
  // A midnight that the clock skips may be taken for an hour of the day before.
  const double midnight = timeOf(date, 0);
  return dateOf(midnight) == date ? midnight : timeOf(date, 1);
}

double utcMidnightOf(const Date& date) {
  return static_cast<double>(std::chrono::sys_days(date).time_since_epoch().count()) * 86400.0;
}

}  // namespace brisko::lab
