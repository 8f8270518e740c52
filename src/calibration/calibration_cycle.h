// calibration/calibration_cycle.h
// The calibration: one full cycle from which the gauge learns anew how much the battery holds. Charge to
// full, drain, charge to full again, rest there, and come back to the limit. The tick starts it, moves it on
// once in every pass and does what its phase asks for; here it is only kept count of. Each step writes the
// record and then one line of the log.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "state/calibration_state.h"

namespace brisko {

// What one tick knows of the battery, and what the settings ask for.
struct CalibrationInputs {
  std::int64_t pct = 0;
  bool plugged = false;           // an adapter is present
  std::int64_t limit = 80;        // percent, as the user set it
  std::int64_t drainTarget = 15;  // percent
  double soakSeconds = 3600;
};

// Begins a run, unless one is in progress.
void startCalibration();

// Moves the run on, by one phase at most. True when it ended in this call, finished or stalled.
[[nodiscard]] bool advanceCalibration(const CalibrationInputs& inputs);

// Ends a run early. With a reason the end is a failure of `phase`, or else of the phase that it is in;
// without one it was cancelled, and nothing is held against it.
void stopCalibration(const std::optional<std::string>& reason, std::optional<CalPhase> phase);

// The steps inside a run.
void enterPhase(CalPhase phase);
void finishCalibration();

}  // namespace brisko
