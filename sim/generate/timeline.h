// sim/generate/timeline.h
// Collects what happens in a scenario as it is generated, in any order, by the user's days and clock times.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "sim/generate/rng.h"
#include "sim/scenario/generated_scenario.h"

namespace brisko::lab {

inline constexpr std::int64_t secondsOfDay = 86400;

class Timeline {
 public:
  // The scenario begins at `clock`, seconds since midnight, on day 0, and lasts `seconds`.
  Timeline(std::int64_t clock, std::int64_t seconds) : clock_(clock), seconds_(seconds) {}

  // Actions before the beginning or after the end are dropped.
  void note(std::int64_t at, ScenarioJson action) {
    if (at > 0 && at < seconds_) timedActions_.push_back({at, std::move(action)});
  }
  // The moment when the clock shows `minute` on this day. `minute` may exceed the minutes of a day.
  [[nodiscard]] std::int64_t moment(std::int64_t day, std::int64_t minute) const {
    return day * secondsOfDay + minute * 60 - clock_;
  }
  [[nodiscard]] std::int64_t seconds() const { return seconds_; }

  // Returns everything in order of time, and for equal times in order of insertion.
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
