#include "client/daemon_status.h"

#include <cmath>
#include <nlohmann/json.hpp>

#include "calibration/calibration_record.h"

namespace brisko::client {
namespace {

std::string textAt(const Json& object, const char* key) {
  const auto found = object.find(key);
  return found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

std::vector<std::string> textsAt(const Json& object, const char* key) {
  std::vector<std::string> texts;
  const auto found = object.find(key);
  if (found == object.end() || !found->is_array()) return texts;
  for (const Json& each : *found) {
    if (each.is_string()) texts.push_back(each.get<std::string>());
  }
  return texts;
}

// A number beyond those of a double is read as infinite, which no time or temperature can be.
std::optional<double> finiteAt(const Json& object, const char* key) {
  const auto number = numberAt(object, key);
  return number && std::isfinite(*number) ? number : std::nullopt;
}

CalibrationStatus calibrationIn(const Json& object) {
  CalibrationStatus calibration;
  const auto found = object.find("cal");
  if (found == object.end() || !found->is_object()) return calibration;
  calibration.phase = phaseNamed(textAt(*found, "phase"));
  calibration.startedAt = finiteAt(*found, "startedAt").value_or(0);
  calibration.phaseSince = finiteAt(*found, "phaseSince").value_or(0);
  calibration.soakBanked = integerAt(*found, "soakBanked").value_or(0);
  calibration.soakSeconds = integerAt(*found, "soakSeconds").value_or(0);
  calibration.drainTarget = integerAt(*found, "drainTarget").value_or(0);
  if (const auto runs = found->find("runs"); runs != found->end() && runs->is_array()) {
    for (const Json& entry : *runs) {
      if (const auto run = calRunFrom(entry)) calibration.runs.push_back(*run);
    }
  }
  if (const auto failure = found->find("lastFailure"); failure != found->end()) {
    calibration.lastFailure = calFailureFrom(*failure);
  }
  return calibration;
}

}  // namespace

std::optional<DaemonStatus> daemonStatusIn(const Json& object) {
  const auto state = stateNamed(textAt(object, "state"));
  const auto pct = integerAt(object, "pct");
  const auto ts = finiteAt(object, "ts");
  if (!state || !pct || !ts) return std::nullopt;
  const auto flag = [&object](const char* key, bool otherwise) {
    return booleanAt(object, key).value_or(otherwise);
  };
  return DaemonStatus{.state = *state,
                      .pct = *pct,
                      .ts = *ts,
                      .plugged = flag("plugged", false),
                      .upper = integerAt(object, "upper").value_or(80),
                      .enabled = flag("enabled", true),
                      .discharge = flag("discharge", false),
                      .hot = flag("hot", false),
                      .topUp = flag("topUp", false),
                      .dischargeSupported = flag("dischargeSupported", false),
                      .dischargeFailed = flag("dischargeFailed", false),
                      .ledSupported = flag("ledSupported", false),
                      .gateVerified = booleanAt(object, "gateVerified"),
                      .nativeFloor = integerAt(object, "nativeFloor"),
                      .temperature = finiteAt(object, "temp"),
                      .startedAt = finiteAt(object, "startedAt"),
                      .chargeMode = textAt(object, "chargeMode"),
                      .daemonVersion = textAt(object, "daemonVersion"),
                      .daemonPath = textAt(object, "daemonPath"),
                      .calibration = calibrationIn(object),
                      .guards = textsAt(object, "guards"),
                      .nextWake = finiteAt(object, "nextWake"),
                      .fullUntil = finiteAt(object, "fullUntil"),
                      .dischargeUnseen = flag("dischargeUnseen", false)};
}

}  // namespace brisko::client
