// sim/replay/reported_settings.h
// The settings over the days of a report. The summaries in the log show the limit, the switch, the discharge,
// a Top Up and a calibration at every moment. Of the others the report has the values at its end; where the
// log contradicts them, they were changed meanwhile.
#pragma once

#include <optional>
#include <vector>

#include "sim/replay/dated_action.h"
#include "sim/replay/reported_days.h"

namespace brisko::lab {

struct SettingsOverTime {
  std::optional<ScenarioJson> first = {};  // config.json at the beginning; none: no such file
  std::vector<DatedAction> edits = {};
  bool heatMatters = false;                   // charging may pause for heat at some moment
  std::vector<std::int64_t> heatLimits = {};  // °C, from which it did
};

[[nodiscard]] SettingsOverTime settingsOf(const ReportedDays& days);

}  // namespace brisko::lab
