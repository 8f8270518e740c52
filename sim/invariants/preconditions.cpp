#include "sim/invariants/preconditions.h"

#include <algorithm>

#include "base/options.h"
#include "sim/invariants/gate_keys.h"
#include "state/calibration_state.h"
#include "state/tick_state.h"

namespace brisko::lab {
namespace {

using virtual_mac::keyCode;
using virtual_mac::Machine;
using virtual_mac::OnWrite;
using virtual_mac::SmcKey;

bool allKeys(const Machine& machine, const ChargeGate& gate, bool (*are)(const Machine&, const KeyWord&)) {
  const auto words = wordsOf(gate).all();
  return std::all_of(words.begin(), words.end(),
                     [&](const KeyWord& word) { return word.code == 0 || are(machine, word); });
}

bool obeys(const Machine& machine, const KeyWord& word) {
  if (!accepts(machine, word)) return false;
  const SmcKey& key = *virtual_mac::findKey(machine, word.code);
  return key.onWrite == OnWrite::obey && key.releaseAfter < 0 && key.releaseAt < 0;
}

bool isReadable(const SmcKey* key) {
  return key != nullptr && key->present && key->readStatus == 0 && key->size > 0;
}

bool showsTheTruth(const SmcKey* key) { return isReadable(key) && !key->scripted; }

bool propertiesAreWhole(const Machine& machine) {
  return std::all_of(machine.properties.begin(), machine.properties.end(),
                     [](const auto& property) { return property.fault == virtual_mac::PropertyFault::none; });
}

}  // namespace

bool accepts(const Machine& machine, const KeyWord& word) {
  const SmcKey* key = virtual_mac::findKey(machine, word.code);
  return key != nullptr && key->present && key->size == word.size && key->readStatus == 0 &&
         (key->onWrite == OnWrite::obey || key->onWrite == OnWrite::storeWithoutEffect);
}

bool keysAccept(const Machine& machine, const ChargeGate& gate) { return allKeys(machine, gate, accepts); }

bool keysObey(const Machine& machine, const ChargeGate& gate) { return allKeys(machine, gate, obeys); }

bool readingsAreTrue(const Machine& machine) {
  const virtual_mac::PowerSource& source = machine.powerSource;
  return machine.battery.installed && machine.powerSourceFault == virtual_mac::PowerSourceFault::none &&
         source.lagSeconds <= 0 && source.stateDueAt < 0 && propertiesAreWhole(machine) &&
         showsTheTruth(virtual_mac::findKey(machine, keyCode("AC-W"))) &&
         showsTheTruth(virtual_mac::findKey(machine, keyCode("TB0T")));
}

bool adapterIsSeen(const Machine& machine) {
  constexpr std::uint8_t noAdapter = 0xFF;
  const SmcKey* key = virtual_mac::findKey(machine, keyCode("AC-W"));
  if (!isReadable(key)) return gLastPlugged;
  return key->scripted ? key->bytes[0] != noAdapter : machine.adapter.present;
}

double mostBetweenReadings(const virtual_mac::Battery& battery, double percent) {
  const double most = virtual_mac::mostChargeMA(battery, std::max(percent, 0.0));
  return 100 * most / 60 / (battery.fullMAh * battery.shownFull);
}

Bounds bandAskedFor(const Settings& settings) {
  constexpr std::int64_t least = 20;
  constexpr std::int64_t widest = 20;
  const std::int64_t upper = std::clamp<std::int64_t>(settings.limit, least, 100);
  const std::int64_t width = std::clamp<std::int64_t>(settings.hysteresis, 1, widest);
  const std::int64_t lower = gCliLower >= 0 ? gCliLower : std::max(upper - width, least);
  return {.upper = upper, .lower = std::min(lower, upper - 1)};
}

bool limitWasInForce(const TickRecord& tick, const Machine& machine) {
  return tick.complete && gateHasKeys() && tick.settings.enabled && !tick.settings.topUp &&
         gTopUpSince == 0 && gCal.phase == CalPhase::idle && readingsAreTrue(machine);
}

bool limitHadToHold(const TickRecord& tick, const Machine& machine) {
  return limitWasInForce(tick, machine) && machine.adapter.present && gLastPlugged;
}

}  // namespace brisko::lab
