// report/history_summary.h
// What a history adds up to: for each day the lowest and the highest charge and how long the battery was
// nearly full or hot, and for all of it the hours by charge. Time of which nothing was recorded does not
// count.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "report/local_days.h"
#include "report/picture.h"

namespace brisko::lab {

inline constexpr double highCharge = 80;  // percent; a battery ages faster above it

struct Durations {  // seconds
  double recorded = 0;
  double high = 0;  // above highCharge
  double hot = 0;   // charging was paused for heat
};

struct DaySummary {
  Date date = {};
  double begin = 0;  // its first moment, and that of the next day; seconds since 1970
  double end = 0;
  std::optional<double> lowest = {};  // percent; none without a sample
  std::optional<double> highest = {};
  Durations durations = {};
};

struct HistorySummary {
  std::vector<DaySummary> days = {};  // from the day of the first sample to that of the last, none left out
  Durations durations = {};
  double plugged = 0;                    // seconds with an adapter, cut or not
  std::array<double, 3> inState = {};    // seconds, by ChargeState
  std::array<double, 11> byCharge = {};  // seconds at 0 to 9 %, 10 to 19 % … 90 to 99 %, 100 %
  Moment lowest = {};                    // the first with the lowest charge
  Moment highest = {};                   // likewise
  std::optional<double> coolest = {};    // °C; none without a temperature
  std::optional<double> warmest = {};
};

// Of the samples of a history, at least one; each has a level.
[[nodiscard]] HistorySummary summariseHistory(const std::vector<Moment>& moments);

// The charges that belong to an element of byCharge: "80–89 %".
[[nodiscard]] std::string chargeText(std::size_t index);

// "3.5 h", "126 h": with a digit after the point below 10 hours.
[[nodiscard]] std::string hoursText(double seconds);

}  // namespace brisko::lab
