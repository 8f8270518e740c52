// policy/decision.h
// The decision of a tick on a Mac whose charge keys we can write: which charge state the hardware should be
// in.
#pragma once

#include <cstdint>
#include <optional>

#include "state/calibration_drive.h"
#include "state/charge_state_record.h"

namespace brisko {

struct DecisionInputs {
  bool enabled = true;
  bool thermalPaused = false;
  std::optional<CalDrive> calDrive;
  std::int64_t pct = 0;
  bool plugged = false;         // by the power-source service
  bool adapterPresent = false;  // by the controller; it sees a cut adapter too
  std::int64_t target = 80;     // the band in force
  std::int64_t floor = 75;
  bool atLimit = false;       // the limit was reached and the battery is held in the band
  bool dischargeNow = false;  // a forced discharge is wanted, allowed and possible in this kind of wake
  bool canDischarge = false;  // the hardware can, and has not failed to
  bool drainWaits = false;    // a calibration's drain waits, with charging stopped, for an unplugged adapter
  ChargeState state = ChargeState::allow;  // in force
};

[[nodiscard]] ChargeState decideState(const DecisionInputs& inputs);

}  // namespace brisko
