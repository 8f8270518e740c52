#include "client/doctor/gathering.h"
#include "hardware/battery.h"
#include "hardware/charge_gate.h"
#include "hardware/smc.h"

namespace brisko::client {
namespace {

Gathered<BatteryFacts> batteryFacts(const std::optional<double>& adapterWatts) {
  const auto properties = SmartBattery::properties();
  if (properties == nullptr) return notGathered<BatteryFacts>("the registry has no battery");
  BatteryFacts facts{.adapterWatts = SmartBattery::adapterWatts(*properties)};
  if (!facts.adapterWatts && adapterWatts) facts.adapterWatts = static_cast<std::int64_t>(*adapterWatts);
  const platform::Value* charger = platform::find(*properties, "ChargerData");
  const platform::Dictionary* values = charger == nullptr ? nullptr : charger->asDictionary();
  const platform::Value* reason = values == nullptr ? nullptr : platform::find(*values, "NotChargingReason");
  if (reason != nullptr) facts.notChargingReason = reason->asWrappedInteger();
  return gathered(facts);
}

// By the label in the status, as the daemon itself reads its keys back.
std::optional<bool> chargingIsStopped(const std::string& chargeMode) {
  for (const ChargeKeys keys : {ChargeKeys::chte, ChargeKeys::ch0b0c, ChargeKeys::firmwareBand}) {
    if (chargeMode == chargeLabel(keys)) return ChargeGate{.charge = keys}.chargingIsStopped();
  }
  return std::nullopt;
}

}  // namespace

void gatherHardware(Evidence& evidence) {
  evidence.battery = batteryFacts(evidence.state.system.adapterWatts);
  if (gConn == 0 && SMCOpen(gConn) != platform::kernelSuccess) {
    gConn = 0;
    const std::string whyNot = "the controller cannot be reached";
    evidence.chargingIsStopped = notGathered<bool>(whyNot);
    evidence.systemLimit = notGathered<std::int64_t>(whyNot);
    return;
  }
  const auto& status = evidence.state.status;
  const auto stopped = status ? chargingIsStopped(status->chargeMode) : std::nullopt;
  evidence.chargingIsStopped = stopped ? gathered(*stopped) : notGathered<bool>("no keys are used");
  // A Mac without that key has no limit of macOS's own.
  evidence.systemLimit = gathered<std::int64_t>(readFirstByte("bfG0").value_or(0));
}

}  // namespace brisko::client
