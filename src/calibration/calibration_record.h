// calibration/calibration_record.h
// What a calibration leaves behind: the gauge's readings before and after it, and the file in which the cycle
// outlives a restart of the daemon.
#pragma once

#include <optional>
#include <string_view>

#include "base/json_file.h"
#include "state/calibration_state.h"

namespace brisko {

// Idle when no phase has that name.
[[nodiscard]] CalPhase phaseNamed(std::string_view name);

// What the gauge says now; none when the battery has no properties to read.
[[nodiscard]] std::optional<GaugeReading> readCapacity();

// Objects. What is not known has no key.
[[nodiscard]] Json dict(const GaugeReading& reading);
[[nodiscard]] Json dict(const CalRun& run);
[[nodiscard]] Json dict(const CalFailure& failure);

// The reverse, of any value. A number that is missing, or of another type, is not known. None when `value` is
// no object, and for a run also without the time at which it finished.
[[nodiscard]] std::optional<GaugeReading> gaugeReadingFrom(const Json& value);
[[nodiscard]] std::optional<CalRun> calRunFrom(const Json& value);

// None when `value` is neither a text nor an object with a reason. A phase that is missing or unknown is
// idle.
[[nodiscard]] std::optional<CalFailure> calFailureFrom(const Json& value);

// All of a record but the time of the last tick: how long the daemon was away counts for nothing.
[[nodiscard]] Json dict(const CalibrationState& state);
// The reverse: a value that is missing or of another type becomes idle, 0 or none. Only the reading before
// the run stays as it is when `object` has none.
void takeCalibration(const Json& object, CalibrationState& state);

// Takes gCal from the file, once, at start-up. Nothing changes when it is missing, unreadable, not JSON or
// not an object.
void readCalibration();

// Writes the file as gCal stands. Nothing happens after a purge; failures are silent.
void writeCalibration();

}  // namespace brisko
