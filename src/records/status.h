// records/status.h
// The live state that the daemon publishes for the app, in one file.
#pragma once

#include <cstdint>
#include <optional>

#include "state/charge_state_record.h"

namespace brisko {

// What a tick reports about itself. Everything else in the file is read from its owner.
struct StatusReport {
  ChargeState state = ChargeState::allow;
  std::int64_t pct = 0;     // percent
  bool plugged = false;     // an adapter is plugged in, cut or not
  std::int64_t upper = 80;  // percent, the upper bound by the settings
  bool enabled = true;
  bool discharge = false;                     // a forced discharge is wanted and allowed
  bool hot = false;                           // charging is paused for heat
  std::optional<double> temp = std::nullopt;  // °C
  bool topUp = false;
  std::int64_t calDrainTarget = 0;  // percent
  std::int64_t calSoakSeconds = 0;
};

// Rewrites the file if a value that the app shows at once has changed, or if the last write was 15 s ago or
// more, because temperature, statistics and time change all the time. Does nothing after a purge; failures
// are silent and not retried earlier.
void writeStatus(const StatusReport& report);

}  // namespace brisko
