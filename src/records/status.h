// records/status.h
// The live state that the daemon publishes for the app, in one file.
#pragma once

#include <cstdint>
#include <optional>

#include "state/charge_state_record.h"

namespace brisko {

// What a tick tells of itself. All else in the file is read where it stands.
struct StatusReport {
  ChargeState state = ChargeState::allow;
  std::int64_t pct = 0;     // percent
  bool plugged = false;     // an adapter is there, cut or not
  std::int64_t upper = 80;  // percent, the upper bound by the settings
  bool enabled = true;
  bool discharge = false;                     // a forced discharge is wanted and allowed
  bool hot = false;                           // charging is paused for heat
  std::optional<double> temp = std::nullopt;  // °C
  bool topUp = false;
  std::int64_t calDrainTarget = 0;  // percent
  std::int64_t calSoakSeconds = 0;
};

// Rewrites the file when something changed that the app shows at once, and otherwise when the last writing is
// 15 s ago or more: temperature, statistics and the time go along with the next one. Nothing happens after a
// purge; failures are silent and not tried again sooner.
void writeStatus(const StatusReport& report);

}  // namespace brisko
