// Every object is read as a calibration's record, and the record can be written and reads back the same,
// unless a time in it is infinite. The status contains it too, except a soak time beyond 64 bits, which is
// meant to end the process then.
#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "base/paths.h"
#include "calibration/calibration_record.h"
#include "fuzz/fatal.h"
#include "fuzz/require.h"
#include "fuzz/target.h"
#include "fuzz/volume.h"
#include "records/status.h"

namespace brisko::calibration_fuzz {
namespace {

CalibrationState taken(const Json& object) {
  CalibrationState state;
  takeCalibration(object, state);
  return state;
}

bool isFinite(const CalibrationState& state) {
  return std::isfinite(state.startedAt) && std::isfinite(state.phaseSince) &&
         std::isfinite(state.soakBanked) &&
         std::all_of(state.runs.begin(), state.runs.end(),
                     [](const CalRun& run) { return std::isfinite(run.at); });
}

void tryFile(const Volume& volume, const CalibrationState& state) {
  gCal = state;
  writeCalibration();
  gCal = {};
  readCalibration();
  require(gCal == state);
  volume.remove(calibrationPath);
}

void tryStatus(const Volume& volume) {
  static std::int64_t times = 0;  // a new charge each time, since an unchanged status would not be written
  const bool running = gCal.phase != CalPhase::idle;
  const bool ended = endsTheProcess([] { writeStatus({.pct = ++times}); });
  require(ended == (running && !fitsInteger(gCal.soakBanked)));
  if (ended) return;
  const std::optional<Json> status = parseJson(volume.read(statusPath).value_or(""));
  require(status && status->value("pct", Json()) == times);
  const Json& told = status->at("cal");
  require(phaseNamed(told.at("phase").get<std::string>()) == gCal.phase);
  require(told.at("runs").size() == gCal.runs.size());
  require(told.contains("lastFailure") == gCal.lastFailure.has_value());
  require(told.contains("soakBanked") == running);
  if (!running) return;
  require(static_cast<double>(told.at("soakBanked").get<std::int64_t>()) == std::trunc(gCal.soakBanked));
}

void tryText(std::string_view text) {
  static const Volume volume;
  const std::optional<Json> object = parseJson(text);
  if (!object || !object->is_object()) return;
  const CalibrationState state = taken(*object);
  require(state.lastTick == 0);

  const std::optional<std::string> written = jsonText(dict(state));
  require(written.has_value() == isFinite(state));
  if (!written) return;
  const std::optional<Json> again = parseJson(*written);
  require(again.has_value());
  require(taken(*again) == state);
  require(jsonText(dict(taken(*again))) == written);
  tryFile(volume, state);
  tryStatus(volume);
}

const FuzzTarget target("calibration", tryText);

}  // namespace
}  // namespace brisko::calibration_fuzz
