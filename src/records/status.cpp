#include "records/status.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <string>

#include "base/checked.h"
#include "base/json_file.h"
#include "base/options.h"
#include "base/paths.h"
#include "base/process_flags.h"
#include "base/volume_path.h"
#include "calibration/calibration_record.h"
#include "hardware/charge_gate.h"
#include "hardware/scheduled_wake.h"
#include "platform/clock.h"
#include "records/statistics.h"
#include "state/calibration_state.h"
#include "state/machine_abilities.h"
#include "state/native_limit_state.h"
#include "state/tick_state.h"

namespace brisko {
namespace {

constexpr double refreshSeconds = 15.0;

std::string gLastStatus;     // the signature of the last status written
double gLastStatusTime = 0;  // wall clock; meaningless before the first

std::string text(bool value) { return value ? "true" : "false"; }

// The values that the app must see at once when they change.
std::string signatureOf(const StatusReport& report) {
  std::string signature = stateName(report.state);
  for (const std::string& field :
       {std::to_string(report.pct), text(report.plugged), std::to_string(report.upper), text(report.enabled),
        text(report.discharge), text(report.hot), text(report.topUp), std::string(phaseName(gCal.phase)),
        gGateVerified ? text(*gGateVerified) : "?", std::to_string(gNativeFloor.value_or(0))}) {
    signature += "|" + field;
  }
  return signature;
}

Json calibrationObject(const StatusReport& report) {
  Json runs = Json::array();
  for (const CalRun& run : gCal.runs) runs.push_back(dict(run));
  Json object = {{"phase", phaseName(gCal.phase)}, {"runs", std::move(runs)}};
  if (gCal.phase != CalPhase::idle) {
    object["startedAt"] = gCal.startedAt;
    object["phaseSince"] = gCal.phaseSince;
    object["soakBanked"] = checkedInteger(gCal.soakBanked);
    object["soakSeconds"] = report.calSoakSeconds;
    object["drainTarget"] = report.calDrainTarget;
  }
  if (gCal.lastFailure) object["lastFailure"] = dict(*gCal.lastFailure);
  return object;
}

// Nothing without the option, so that the file is then what it always was.
void addGuards(Json& object, double now) {
  if (gGuards == Guards{}) return;
  object["guards"] = namesOf(gGuards);
  if (gGuards.night && gScheduledWake && *gScheduledWake > now) object["nextWake"] = *gScheduledWake;
  if (gNativeFullUntil) object["fullUntil"] = *gNativeFullUntil;
  if (gDischargeUnseen) object["dischargeUnseen"] = true;
}

Json statusObject(const StatusReport& report, double now) {
  // Not as a list in braces, which would copy every value twice: this is the most frequent work of the
  // daemon.
  Json object;
  object["state"] = stateName(report.state);
  object["pct"] = report.pct;
  object["plugged"] = report.plugged;
  object["upper"] = report.upper;
  object["enabled"] = report.enabled;
  object["discharge"] = report.discharge;
  object["hot"] = report.hot;
  object["topUp"] = report.topUp;
  object["protectedSeconds"] = checkedInteger(gProtectedSeconds);
  object["ledSupported"] = gLedSupported;
  object["dischargeSupported"] = dischargeSupported;
  object["dischargeFailed"] = gDischargeBroken;
  object["smcKeys"] = gProbedKeys;
  object["chargeMode"] = gGate ? chargeLabel(gGate->charge) : "none";
  object["daemonPath"] = gDaemonPath;
  object["daemonVersion"] = daemonVersion;
  object["startedAt"] = daemonStartedAt;
  object["since"] = gStatsSince;
  object["ts"] = now;
  object["cal"] = calibrationObject(report);
  if (gGateVerified) object["gateVerified"] = *gGateVerified;
  if (gNativeFloor) object["nativeFloor"] = *gNativeFloor;
  addGuards(object, now);
  if (report.temp) object["temp"] = std::round(*report.temp * 10.0) / 10.0;
  return object;
}

}  // namespace

void writeStatus(const StatusReport& report) {
  if (gPurged) return;
  std::string signature = signatureOf(report);
  const double now = platform::wallNow();
  if (signature == gLastStatus && now - gLastStatusTime < refreshSeconds) return;
  gLastStatus = std::move(signature);
  gLastStatusTime = now;
  writeJsonFile(onVolume(statusPath), statusObject(report, now));
}

}  // namespace brisko
