// sim/scenario/timing.h
// The time of a step of a scenario, as written in the file.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace brisko::lab {

// "+90 s", "+1 h 30 min", "+2 days": this long after the previous step. "21:30", "06:00:15": when the wall
// clock next shows that time, in UTC. "+1 day 07:00": when it next shows that time after that long.
struct Timing {
  double seconds = 0;
  std::optional<double> timeOfDay = std::nullopt;  // seconds since midnight
};

// None when the text has none of these forms.
[[nodiscard]] std::optional<Timing> parseTiming(std::string_view text);

// The seconds from now, when the wall clock shows `wallClock`, until the step.
[[nodiscard]] double secondsUntil(const Timing& timing, double wallClock);

// "2026-03-01 08:00" or "2026-03-01 08:00:30", in UTC, as seconds since 1970.
[[nodiscard]] std::optional<double> parseDate(std::string_view text);

// "2 d 3 h", "45 min", "12 s": the two largest units.
[[nodiscard]] std::string spanText(double seconds);

}  // namespace brisko::lab
