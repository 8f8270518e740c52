// sim/replay/reported_power.h
// The adapter, the load and the temperature over the days of a report.
#pragma once

#include <array>
#include <optional>
#include <vector>

#include "sim/machine/machine.h"
#include "sim/replay/dated_action.h"
#include "sim/replay/reported_days.h"
#include "sim/replay/reported_sleep.h"

namespace brisko::lab {

// The adapter came or went.
struct PlugEvent {
  double time = 0;
  bool plugged = false;
  bool unnoticed = false;   // while the Mac slept, and that did not wake it
  double adapterWatts = 0;  // of the adapter that came
};
// How much the battery held at the beginning, compared with what the machine's holds: from the power that
// left it, and from how its percentage fell meanwhile. 1 unless that clearly differs.
[[nodiscard]] double capacityAtBeginning(const ReportedDays& days, const virtual_mac::Machine& machine);

// The second of a minute in which the gauge publishes.
[[nodiscard]] double publicationSecond(const Trace& trace);

// In order of time; the first is the state at the beginning. If an adapter came while the Mac slept or while
// no daemon ran, the charge that it brought to this battery shows when. The power with which it charged a
// sleeping Mac shows whether it was weaker than the Mac's own.
[[nodiscard]] std::vector<PlugEvent> plugEventsOf(const ReportedDays& days,
                                                  const std::vector<SleepSpan>& sleeps,
                                                  const virtual_mac::Machine& machine);

// The load of an awake Mac on battery in each hour of the day, in watts, by the time zone in force: the
// median of that hour. For an hour in which the Mac never ran on battery it is the median of all hours, and
// the model's own load if it never ran on battery at all.
using LoadByHour = std::array<double, 24>;
[[nodiscard]] LoadByHour loadByHour(const Trace& trace, const virtual_mac::Machine& machine);

// Changes of the load. They are computed from the power that left the battery, or that a charging battery
// lacked. On the adapter, where this shows nothing, the load is that of the hour, but not more than the
// adapter can have given; without `hours` it is any load that the adapter can have given. Where there is no
// history, the movement of the percentage shows the power.
[[nodiscard]] std::vector<DatedAction> loadActions(const ReportedDays& days,
                                                   const std::vector<PlugEvent>& plugs,
                                                   const std::vector<SleepSpan>& sleeps,
                                                   const virtual_mac::Machine& machine,
                                                   const std::optional<LoadByHour>& hours = std::nullopt);

// The battery's temperature, also at the end of each sleep, and surroundings that keep it there; exactly
// where it is near one of the limits for heat, in °C.
[[nodiscard]] std::vector<DatedAction> temperatureActions(const ReportedDays& days,
                                                          const std::vector<SleepSpan>& sleeps,
                                                          const std::vector<std::int64_t>& heatLimits = {});

}  // namespace brisko::lab
