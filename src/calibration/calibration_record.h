// calibration/calibration_record.h
// What a calibration records: the gauge's readings before and after it, and the file in which the cycle
// survives a restart of the daemon.
#pragma once

#include <optional>
#include <string_view>

#include "base/json_file.h"
#include "state/calibration_state.h"

namespace brisko {

// Idle when no phase has that name.
[[nodiscard]] CalPhase phaseNamed(std::string_view name);

// The gauge's present values; none when the battery has no readable properties.
[[nodiscard]] std::optional<GaugeReading> readCapacity();

// As JSON objects. An unknown value has no key.
[[nodiscard]] Json dict(const GaugeReading& reading);
[[nodiscard]] Json dict(const CalRun& run);
[[nodiscard]] Json dict(const CalFailure& failure);

// The reverse, for any value. A number that is missing or has another type is unknown. None when `value` is
// not an object, and for a run also when its finishing time is missing.
[[nodiscard]] std::optional<GaugeReading> gaugeReadingFrom(const Json& value);
[[nodiscard]] std::optional<CalRun> calRunFrom(const Json& value);

// None when `value` is neither a text nor an object with a reason. A missing or unknown phase becomes idle.
[[nodiscard]] std::optional<CalFailure> calFailureFrom(const Json& value);

// The whole record except the time of the last tick: time while the daemon was not running does not count.
[[nodiscard]] Json dict(const CalibrationState& state);
// The reverse: a value that is missing or has another type becomes idle, 0 or none. Only the reading before
// the run is kept when `object` has none.
void takeCalibration(const Json& object, CalibrationState& state);

// Reads gCal from the file, once, at start-up. Changes nothing when the file is missing, unreadable, not JSON
// or not an object.
void readCalibration();

// Writes gCal to the file. Does nothing after a purge; failures are silent.
void writeCalibration();

}  // namespace brisko
