#include "diagnostics/probe.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <variant>

#include "base/json_file.h"
#include "base/standard_output.h"
#include "hardware/battery.h"
#include "hardware/smc.h"

namespace brisko {
namespace {

bool leftToMacOS(const ChargeGate& gate) { return gate.charge == ChargeKeys::macOSLimit; }

std::string dischargeText(const ChargeGate& gate) {
  if (leftToMacOS(gate)) return "macOS (down to the limit)";
  return cutKeyName(gate.cut).value_or("not supported");
}

// The source that can verify a hold.
const char* verificationSource() {
  if (amperageNow()) return "AppleSmartBattery current";
  return canRead("CHSC") ? "CHSC" : "nothing";
}

std::string writtenText(const ChargeGate& gate) {
  if (leftToMacOS(gate)) return "macOS charge limit (PowerUI, mclLimitValue below 80%)";
  std::string text;
  for (const std::string& key : gate.writtenKeys()) text += (text.empty() ? "" : ", ") + key;
  return text;
}

void printGate(const ChargeGate& gate) {
  printLine(std::string("charging   : ") + chargeLabel(gate.charge));
  printLine("discharge  : " + dischargeText(gate));
  printLine(std::string("MagSafe LED: ") + (canRead("ACLC") ? "ACLC" : "not supported"));
  printLine(std::string("verified by: ") + verificationSource());
  printLine("will write : " + writtenText(gate) + " (+ ACLC)");
}

void printFailure(GateFailure failure) {
  printLine("no usable charge control.");
  printLine(failureMessage(failure));
}

Json objectOf(const ChargeGate& gate) {
  Json object = {{"supported", true}, {"mode", chargeLabel(gate.charge)}, {"led", canRead("ACLC")}};
  if (leftToMacOS(gate)) {
    object["discharge"] = "macOS";
  } else if (const auto key = cutKeyName(gate.cut)) {
    object["discharge"] = *key;
  }
  return object;
}

Json objectOf(GateFailure failure) {
  return {{"supported", false},
          {"reason", publishedReason(failure)},
          {"message", failureMessage(failure)},
          {"detail", failureDetail(failure)}};
}

}  // namespace

int runProbe(bool json) {
  if (SMCOpen(gConn) != platform::kernelSuccess) {
    printLine("Could not open AppleSMC.");
    return 1;
  }
  const auto detected = ChargeGate::detect(false);
  const auto* gate = std::get_if<ChargeGate>(&detected);
  if (json) {
    const Json object = gate ? objectOf(*gate) : objectOf(std::get<GateFailure>(detected));
    if (const auto text = jsonText(object)) writeStandardOutput(*text);
  } else if (gate) {
    printGate(*gate);
  } else {
    printFailure(std::get<GateFailure>(detected));
  }
  // The controller's connection closes when the process ends.
  return 0;
}

const char* publishedReason(GateFailure failure) {
  return failure == GateFailure::lockedByMacOS ? "system-locked" : "none";
}

}  // namespace brisko
