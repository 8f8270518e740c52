// calibration/calibration_record.h
// How the calibration's record stands in files.
#pragma once

#include "calibration/calibration_state.h"
#include "core/json_file.h"

namespace brisko {

// Objects. What is not known of a run has no key.
[[nodiscard]] Json dict(const CalRun& run);
[[nodiscard]] Json dict(const CalFailure& failure);

}  // namespace brisko
