#include "report/history_summary.h"

#include <algorithm>

#include "report/markup.h"

namespace brisko::lab {
namespace {

std::vector<DaySummary> daysFrom(const Date& first, const Date& last) {
  std::vector<DaySummary> days;
  for (int count = 0; count <= daysBetween(first, last); ++count) {
    const Date date = dateAfter(first, count);
    days.push_back({.date = date, .begin = beginOf(date), .end = beginOf(dateAfter(date, 1))});
  }
  return days;
}

template <class Value>
void widen(std::optional<Value>& least, std::optional<Value>& most, Value value) {
  least = std::min(least.value_or(value), value);
  most = std::max(most.value_or(value), value);
}

// The moment's values apply for so many seconds.
void addTo(Durations& durations, const Moment& moment, double seconds) {
  durations.recorded += seconds;
  if (*moment.level > highCharge) durations.high += seconds;
  if (moment.occasion == Occasion::heat) durations.hot += seconds;
}

void addTo(HistorySummary& summary, const Moment& moment, double seconds) {
  addTo(summary.durations, moment, seconds);
  if (moment.supply != Supply::none) summary.plugged += seconds;
  if (moment.state) summary.inState.at(static_cast<std::size_t>(*moment.state)) += seconds;
  const double ten = std::clamp(*moment.level, 0.0, 100.0) / 10;
  summary.byCharge.at(static_cast<std::size_t>(ten)) += seconds;
}

// Divides the time from the moment until `end` among the days, beginning with `day`.
void addToDays(std::vector<DaySummary>::iterator day, const Moment& moment, double end) {
  for (double time = moment.time; time < end; ++day) {
    const double until = std::min(end, day->end);
    addTo(day->durations, moment, until - time);
    time = until;
  }
}

void addExtremes(HistorySummary& summary, const Moment& moment) {
  if (*moment.level < *summary.lowest.level) summary.lowest = moment;
  if (*moment.level > *summary.highest.level) summary.highest = moment;
  if (moment.temperatureC) widen(summary.coolest, summary.warmest, *moment.temperatureC);
}

}  // namespace

HistorySummary summariseHistory(const std::vector<Moment>& moments) {
  HistorySummary summary{.days = daysFrom(dateOf(moments.front().time), dateOf(moments.back().time)),
                         .lowest = moments.front(),
                         .highest = moments.front()};
  auto day = summary.days.begin();
  for (std::size_t index = 0; index < moments.size(); ++index) {
    const Moment& moment = moments[index];
    while (day + 1 != summary.days.end() && moment.time >= day->end) ++day;
    widen(day->lowest, day->highest, *moment.level);
    addExtremes(summary, moment);
    const bool isLast = index + 1 == moments.size() || moments[index + 1].afterGap;
    if (isLast) continue;
    const double end = moments[index + 1].time;
    addTo(summary, moment, end - moment.time);
    addToDays(day, moment, end);
  }
  return summary;
}

std::string chargeText(std::size_t index) {
  if (index >= 10) return "100 %";
  return std::to_string(index * 10) + "–" + std::to_string(index * 10 + 9) + " %";
}

std::string hoursText(double seconds) {
  const double hours = seconds / 3600;
  return fixed(hours, hours > 0 && hours < 9.95 ? 1 : 0) + " h";
}

}  // namespace brisko::lab
