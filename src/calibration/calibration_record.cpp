#include "calibration/calibration_record.h"

#include <algorithm>
#include <array>
#include <nlohmann/json.hpp>
#include <utility>

#include "base/paths.h"
#include "base/process_flags.h"
#include "base/volume_path.h"
#include "hardware/battery.h"

namespace brisko {
namespace {

constexpr std::array allPhases{CalPhase::idle,   CalPhase::fill, CalPhase::drain,
                               CalPhase::refill, CalPhase::soak, CalPhase::restore};

std::optional<std::string> textAt(const Json& object, const char* key) {
  const auto entry = object.find(key);
  if (entry == object.end() || !entry->is_string()) return std::nullopt;
  return entry->get<std::string>();
}

// Passes every number of a record that may be unknown to `visit`, together with its key in the file.
template <typename Reading, typename Visit>
void eachNumberOfReading(Reading& reading, const Visit& visit) {
  visit("raw", reading.raw);
  visit("nominal", reading.nominal);
  visit("design", reading.design);
  visit("cycles", reading.cycles);
}

template <typename Run, typename Visit>
void eachNumberOfRun(Run& run, const Visit& visit) {
  visit("beforeRaw", run.beforeRaw);
  visit("afterRaw", run.afterRaw);
  visit("beforeNominal", run.beforeNominal);
  visit("afterNominal", run.afterNominal);
  visit("design", run.design);
  visit("cyclesBefore", run.cyclesBefore);
  visit("cyclesAfter", run.cyclesAfter);
}

auto addTo(Json& object) {
  return [&object](const char* key, const std::optional<std::int64_t>& number) {
    if (number) object[key] = *number;
  };
}

auto takeFrom(const Json& object) {
  return [&object](const char* key, std::optional<std::int64_t>& number) { number = integerAt(object, key); };
}

std::vector<CalRun> runsIn(const Json& object) {
  std::vector<CalRun> runs;
  const auto list = object.find("runs");
  if (list == object.end() || !list->is_array()) return runs;
  for (const Json& element : *list) {
    if (auto run = calRunFrom(element)) runs.push_back(*run);
  }
  return runs;
}

std::optional<CalFailure> failureIn(const Json& object) {
  const auto failure = object.find("lastFailure");
  return failure == object.end() ? std::nullopt : calFailureFrom(*failure);
}

std::optional<GaugeReading> readingIn(const Json& object) {
  const auto reading = object.find("before");
  return reading == object.end() ? std::nullopt : gaugeReadingFrom(*reading);
}

}  // namespace

CalPhase phaseNamed(std::string_view name) {
  const auto* const phase = std::find_if(allPhases.begin(), allPhases.end(),
                                         [name](CalPhase candidate) { return phaseName(candidate) == name; });
  return phase == allPhases.end() ? CalPhase::idle : *phase;
}

std::optional<GaugeReading> readCapacity() {
  const platform::SharedDictionary properties = SmartBattery::properties();
  if (!properties) return std::nullopt;
  const platform::Value* cycles = platform::find(*properties, "CycleCount");
  return GaugeReading{.raw = SmartBattery::mAh(*properties, "AppleRawMaxCapacity"),
                      .nominal = SmartBattery::mAh(*properties, "NominalChargeCapacity"),
                      .design = SmartBattery::mAh(*properties, "DesignCapacity"),
                      .cycles = cycles == nullptr ? std::nullopt : cycles->asInteger()};
}

Json dict(const GaugeReading& reading) {
  Json object = Json::object();
  eachNumberOfReading(reading, addTo(object));
  return object;
}

Json dict(const CalRun& run) {
  Json object = {{"at", run.at}};
  eachNumberOfRun(run, addTo(object));
  return object;
}

Json dict(const CalFailure& failure) {
  return {{"reason", failure.reason}, {"phase", phaseName(failure.phase)}};
}

std::optional<GaugeReading> gaugeReadingFrom(const Json& value) {
  if (!value.is_object()) return std::nullopt;
  GaugeReading reading;
  eachNumberOfReading(reading, takeFrom(value));
  return reading;
}

std::optional<CalRun> calRunFrom(const Json& value) {
  const auto at = numberAt(value, "at");
  if (!at) return std::nullopt;
  CalRun run{.at = *at};
  eachNumberOfRun(run, takeFrom(value));
  return run;
}

std::optional<CalFailure> calFailureFrom(const Json& value) {
  // The text form of an older layout, which recorded only stalled runs and not their phase.
  if (value.is_string()) return CalFailure{.reason = "stalled"};
  const auto reason = textAt(value, "reason");
  if (!reason) return std::nullopt;
  return CalFailure{.reason = *reason, .phase = phaseNamed(textAt(value, "phase").value_or(""))};
}

Json dict(const CalibrationState& state) {
  Json runs = Json::array();
  for (const CalRun& run : state.runs) runs.push_back(dict(run));
  Json object = {
      {"phase", phaseName(state.phase)}, {"startedAt", state.startedAt}, {"phaseSince", state.phaseSince},
      {"soakBanked", state.soakBanked},  {"runs", std::move(runs)},
  };
  if (state.before) object["before"] = dict(*state.before);
  if (state.lastFailure) object["lastFailure"] = dict(*state.lastFailure);
  return object;
}

void takeCalibration(const Json& object, CalibrationState& state) {
  state.phase = phaseNamed(textAt(object, "phase").value_or(""));
  state.startedAt = numberAt(object, "startedAt").value_or(0);
  state.phaseSince = numberAt(object, "phaseSince").value_or(0);
  state.soakBanked = numberAt(object, "soakBanked").value_or(0);
  state.lastFailure = failureIn(object);
  state.runs = runsIn(object);
  if (const auto before = readingIn(object)) state.before = before;
  state.lastTick = 0;
}

void readCalibration() {
  if (const auto object = readJsonObject(onVolume(calibrationPath))) takeCalibration(*object, gCal);
}

void writeCalibration() {
  if (!gPurged) writeJsonFile(onVolume(calibrationPath), dict(gCal));
}

}  // namespace brisko
