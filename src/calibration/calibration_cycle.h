// calibration/calibration_cycle.h
// The calibration: one full cycle from which the gauge relearns the battery's capacity. Charge to full,
// drain, charge to full again, rest there, and return to the limit. The tick starts it, advances it once per
// tick and carries out its present phase; this code only tracks it. Each step writes the record and then one
// line of the log.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "state/calibration_state.h"

namespace brisko {

// What one tick knows about the battery, and what the settings request.
struct CalibrationInputs {
  std::int64_t pct = 0;
  bool plugged = false;           // an adapter is present
  std::int64_t limit = 80;        // percent, as the user set it
  std::int64_t drainTarget = 15;  // percent
  double soakSeconds = 3600;
};

// Begins a run, unless one is in progress.
void startCalibration();

// Advances the run by at most one phase. Returns true when this call ended it, finished or stalled.
[[nodiscard]] bool advanceCalibration(const CalibrationInputs& inputs);

// Ends a run early. With a reason it counts as a failure of `phase`, or else of the present phase; without
// one it was cancelled, and no failure is recorded.
void stopCalibration(const std::optional<std::string>& reason, std::optional<CalPhase> phase);

// The steps inside a run.
void enterPhase(CalPhase phase);
void finishCalibration();

}  // namespace brisko
