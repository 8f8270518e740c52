// records/history.h
// The charge over time, for the app's charts: one file of lines for each local calendar day.
#pragma once

#include <cstdint>
#include <optional>

#include "base/settings.h"
#include "state/charge_state_record.h"

namespace brisko {

struct Sample {
  std::int64_t pct = 0;  // percent
  ChargeState state = ChargeState::allow;
  bool plugged = false;                       // an adapter is plugged in, cut or not
  bool hot = false;                           // charging is paused for heat
  std::optional<double> temp = std::nullopt;  // °C
};

// Appends a line to the day's file if the state or the adapter changed; after 55 s also if the charge
// changed, or the temperature by half a degree; after 300 s in any case. The first line of a day also prunes.
// Does nothing with the history switched off or after a purge. Failures are silent, and the sample counts as
// written.
void recordSample(const Sample& sample, const Settings& cfg);

// Removes the files of days that began more than `days` days ago; fewer than 7 count as 7. Files with other
// names stay. Each removal is logged, failed ones included.
void pruneHistory(std::int64_t days);

}  // namespace brisko
