// sim/generate/timeline.h
// What happens in a scenario, noted as it is generated: in any order, by the days and clocks of its user.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "sim/generate/generated_scenario.h"
#include "sim/generate/rng.h"

namespace brisko::lab {

inline constexpr std::int64_t secondsOfDay = 86400;

class Timeline {
 public:
  // The scenario begins at `clock`, seconds since midnight, of day 0, and continues for `seconds`.
  Timeline(std::int64_t clock, std::int64_t seconds) : clock_(clock), seconds_(seconds) {}

  // What lies before the beginning or after the end is dropped.
  void note(std::int64_t at, ScenarioJson action) {
    if (at > 0 && at < seconds_) timedActions_.push_back({at, std::move(action)});
  }
  // The moment when the clock of the day shows `minute`, which may be more than a day has.
  [[nodiscard]] std::int64_t moment(std::int64_t day, std::int64_t minute) const {
    return day * secondsOfDay + minute * 60 - clock_;
  }
  [[nodiscard]] std::int64_t seconds() const { return seconds_; }

  // Everything in the order of time, and of writing where that is the same.
  [[nodiscard]] std::vector<TimedAction> takeAll() {
    std::stable_sort(timedActions_.begin(), timedActions_.end(),
                     [](const TimedAction& left, const TimedAction& right) { return left.at < right.at; });
    return std::move(timedActions_);
  }

 private:
  std::int64_t clock_;
  std::int64_t seconds_;
  std::vector<TimedAction> timedActions_;
};

}  // namespace brisko::lab
