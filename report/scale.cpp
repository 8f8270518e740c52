#include "report/scale.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <optional>

namespace brisko::lab {
namespace {

constexpr int secondsOfDay = 86400;
constexpr std::array<int, 15> stepsOfClock{1,   2,   5,    10,   15,   30,    60,   120,
                                           300, 600, 1800, 3600, 7200, 10800, 21600};
constexpr std::array<int, 5> stepsOfDays{1, 2, 5, 10, 15};  // counted from the first of the month
constexpr std::array<int, 8> stepsOfMonths{1, 3, 6, 12, 24, 60, 120, 1200};

std::tm clockOf(double time) {
  const auto seconds = static_cast<std::time_t>(std::floor(time));
  std::tm parts{};
  static_cast<void>(::localtime_r(&seconds, &parts));
  return parts;
}

double timeOf(std::tm parts) {
  parts.tm_isdst = -1;
  return static_cast<double>(std::mktime(&parts));
}

double startOfDay(int year, int month, int day) {
  std::tm parts{};
  parts.tm_year = year;
  parts.tm_mon = month;
  parts.tm_mday = day;
  return timeOf(parts);
}

std::string text(double time, const char* format) {
  const std::tm parts = clockOf(time);
  std::array<char, 64> buffer{};
  static_cast<void>(std::strftime(buffer.data(), buffer.size(), format, &parts));
  const std::string result = buffer.data();
  return result.starts_with(' ') ? result.substr(1) : result;
}

std::string dayText(double time) { return text(time, "%e %B"); }

// The day's round moments, from its midnight on.
void appendClockTimes(double midnight, int step, std::vector<double>& times) {
  const std::tm day = clockOf(midnight);
  for (int second = 0; second < secondsOfDay; second += step) {
    std::tm parts = day;
    parts.tm_hour = second / 3600;
    parts.tm_min = second / 60 % 60;
    parts.tm_sec = second % 60;
    times.push_back(timeOf(parts));
  }
}

std::vector<double> clockTimes(double from, double until, int step) {
  std::vector<double> times;
  const std::tm first = clockOf(from);
  for (int day = 0;; ++day) {
    const double midnight = startOfDay(first.tm_year, first.tm_mon, first.tm_mday + day);
    if (midnight > until) return times;
    appendClockTimes(midnight, step, times);
  }
}

std::vector<double> dayTimes(double from, double until, int step) {
  std::vector<double> times;
  const std::tm first = clockOf(from);
  for (int month = 0;; ++month) {
    const double begin = startOfDay(first.tm_year, first.tm_mon + month, 1);
    if (begin > until) return times;
    // Days at the end of a month that are too close to the first of the next are left out.
    for (int day = 1; day + step / 2 <= 31; day += step) {
      const double time = startOfDay(first.tm_year, first.tm_mon + month, day);
      if (clockOf(time).tm_mon == clockOf(begin).tm_mon) times.push_back(time);
    }
  }
}

std::vector<double> monthTimes(double from, double until, int step) {
  std::vector<double> times;
  const std::tm first = clockOf(from);
  const int begin = (first.tm_year * 12 + first.tm_mon) / step * step;
  for (int month = begin;; month += step) {
    const double time = startOfDay(month / 12, month % 12, 1);
    if (time > until) return times;
    times.push_back(time);
  }
}

void keepWithin(std::vector<double>& times, double from, double until) {
  std::erase_if(times, [&](double time) { return time < from || time > until; });
  // A time that the clock skips is shown as the one after it.
  std::sort(times.begin(), times.end());
  times.erase(std::unique(times.begin(), times.end()), times.end());
}

std::vector<TimeTick> labelledByClock(const std::vector<double>& times, int step) {
  std::vector<TimeTick> ticks;
  std::string before;
  for (const double time : times) {
    const std::string day = dayText(time);
    ticks.push_back({time, text(time, step < 60 ? "%H:%M:%S" : "%H:%M"), day == before ? "" : day});
    before = day;
  }
  return ticks;
}

std::vector<TimeTick> labelledByDay(const std::vector<double>& times, const char* format) {
  std::vector<TimeTick> ticks;
  for (const double time : times) ticks.push_back({time, "", text(time, format)});
  return ticks;
}

}  // namespace

double roundStep(double span, std::size_t most, double least) {
  double power = std::pow(10.0, std::floor(std::log10(least)));
  for (;; power *= 10) {
    for (const double factor : {1.0, 2.0, 5.0}) {
      const double step = factor * power;
      if (step >= least && std::floor(span / step) + 1 <= static_cast<double>(most)) return step;
    }
  }
}

std::vector<double> multiples(double from, double until, double step) {
  std::vector<double> values;
  // Counted in steps: adding up many steps would drift away from round values.
  const double last = std::floor(until / step + 1e-9);
  for (double count = std::ceil(from / step - 1e-9); count <= last; ++count) values.push_back(count * step);
  return values;
}

Extent roundExtent(double least, double most, double span, double step, double bottom, double top) {
  const double missing = std::max(0.0, span - (most - least)) / 2;
  Extent extent{std::floor((least - missing) / step) * step, std::ceil((most + missing) / step) * step};
  // A curve along the edge would be half hidden.
  if (extent.from > least - step * 0.1) extent.from -= step;
  if (extent.until < most + step * 0.1) extent.until += step;
  extent = {std::max(extent.from, bottom), std::min(extent.until, top)};
  if (extent.from >= extent.until) extent = {bottom, top};
  return extent;
}

std::vector<TimeTick> timeTicks(double from, double until, std::size_t most) {
  const double span = until - from;
  const auto mayDo = [&](double step) { return span / step <= static_cast<double>(most) + 1; };
  for (const int step : stepsOfClock) {
    if (!mayDo(step)) continue;
    std::vector<double> times = clockTimes(from, until, step);
    keepWithin(times, from, until);
    if (times.size() <= most) return labelledByClock(times, step);
  }
  for (const int step : stepsOfDays) {
    if (!mayDo(static_cast<double>(step) * secondsOfDay)) continue;
    std::vector<double> times = dayTimes(from, until, step);
    keepWithin(times, from, until);
    if (times.size() <= most) return labelledByDay(times, "%e %b");
  }
  for (const int step : stepsOfMonths) {
    if (!mayDo(step * 28.0 * secondsOfDay)) continue;
    std::vector<double> times = monthTimes(from, until, step);
    keepWithin(times, from, until);
    if (times.size() <= most) return labelledByDay(times, step < 12 ? "%b %Y" : "%Y");
  }
  return {};
}

std::string momentText(double time) { return text(time, "%e %B %Y %H:%M:%S"); }

std::string zoneText(double time) { return text(time, "%Z"); }

}  // namespace brisko::lab
