// state/calibration_drive.h
// What a running calibration asks of one tick.
#pragma once

#include <cstdint>
#include <optional>

#include "state/calibration_state.h"

namespace brisko {

struct CalDrive {
  bool toFull = false;      // charge to 100; otherwise drain …
  std::int64_t target = 0;  // … to this percentage (100 when charging)
};

// None while idle. A drain ends at `drainTarget`, the way back to normal at the limit as the user set it.
[[nodiscard]] std::optional<CalDrive> calibrationDrive(CalPhase phase, std::int64_t drainTarget,
                                                       std::int64_t limit);

}  // namespace brisko
