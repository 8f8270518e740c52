// state/calibration_drive.h
// What a running calibration requires from one tick.
#pragma once

#include <cstdint>
#include <optional>

#include "state/calibration_state.h"

namespace brisko {

struct CalDrive {
  bool toFull = false;      // charge to 100; otherwise drain …
  std::int64_t target = 0;  // … to this percentage (100 when charging)
};

// None while idle. A drain ends at `drainTarget`, the last phase at the limit that the user set.
[[nodiscard]] std::optional<CalDrive> calibrationDrive(CalPhase phase, std::int64_t drainTarget,
                                                       std::int64_t limit);

}  // namespace brisko
