// sim/replay/reported_sleep.h
// When the Mac of a report slept: from macOS's own log of power events or, without one, from the gaps that a
// sleeping daemon leaves in its history and its log, and from the lines that it logs before a sleep.
#pragma once

#include <optional>
#include <vector>

#include "sim/replay/dated_action.h"
#include "sim/replay/reported_days.h"

namespace brisko::lab {

struct SleepSpan {
  double from = 0, until = 0;
  bool endsDark = false;   // in a dark wake …
  double darkSeconds = 0;  // … of this length
};
[[nodiscard]] std::vector<SleepSpan> sleepsOf(const ReportedDays& days);

// The same without the dark wakes that the daemon had scheduled, as far as the log shows that: with other
// settings it schedules others.
[[nodiscard]] std::vector<SleepSpan> withoutOwnWakes(const std::vector<SleepSpan>& sleeps,
                                                     const Trace& trace);

// Whether the wakes that the daemon scheduled were full, for some seconds, rather than dark; none if macOS's
// own log does not show it.
[[nodiscard]] std::optional<bool> scheduledWakesAreFull(const ReportedDays& days);

[[nodiscard]] std::vector<DatedAction> sleepActions(const std::vector<SleepSpan>& sleeps);

// The span that contains the moment; null when the Mac was awake.
[[nodiscard]] const SleepSpan* sleepAt(const std::vector<SleepSpan>& sleeps, double time);

}  // namespace brisko::lab
