// hardware/led.h
// The MagSafe connector's light: what it shows for a charge state.
#pragma once

#include <cstdint>

#include "hardware/led_mode.h"
#include "policy/charge_state_record.h"

namespace brisko {

struct LedInputs {
  bool wanted = true;  // the user wants the light driven
  bool adapterPresent = false;
  bool controlling = true;  // limiting is on, or a calibration runs
  std::int64_t pct = 0;
  std::int64_t shownTarget = 100;  // percent that the charge is heading for
};

[[nodiscard]] LedMode ledMode(ChargeState state, const LedInputs& inputs);

}  // namespace brisko
