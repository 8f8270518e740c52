#include "hardware/charge_gate.h"

#include <algorithm>
#include <array>

#include "hardware/smart_charge_bridge.h"
#include "hardware/smc.h"
#include "hardware/system_lock.h"
#include "platform/clock.h"
#include "state/tick_state.h"

namespace brisko {
namespace {

using Word = std::array<std::uint8_t, 4>;

constexpr Word chteOpen{0, 0, 0, 0};
constexpr Word chteStopped{1, 0, 0, 0};
constexpr std::uint8_t pairOpen = 0x00;
constexpr std::uint8_t pairStopped = 0x02;
constexpr std::uint8_t bandOff = 0x00;
constexpr std::uint8_t bandArmed = 0x02;

struct CutKey {
  const char* name;
  std::uint8_t cutValue;
};

std::optional<CutKey> cutKey(AdapterCutKey key) {
  switch (key) {
    case AdapterCutKey::chie:
      return CutKey{"CHIE", 0x08};
    case AdapterCutKey::ch0i:
      return CutKey{"CH0I", 0x01};
    case AdapterCutKey::ch0j:
      return CutKey{"CH0J", 0x01};
    case AdapterCutKey::none:
      break;
  }
  return std::nullopt;
}

bool writePercent(const char* key, std::int64_t percent) {
  const auto clamped = static_cast<std::uint8_t>(std::clamp<std::int64_t>(percent, 0, 100));
  const Word bytes{clamped, 0, 0, 0};
  return writeKey(key, bytes);
}

std::optional<ChargeKeys> findChargeKeys() {
  if (canRead("CHTE")) return ChargeKeys::chte;
  if (canRead("CH0B") && canRead("CH0C")) return ChargeKeys::ch0b0c;
  if (canRead("bfF0") && canRead("bfD0") && canRead("bfE0")) return ChargeKeys::firmwareBand;
  return std::nullopt;
}

AdapterCutKey findCutKey() {
  for (const auto key : {AdapterCutKey::chie, AdapterCutKey::ch0i, AdapterCutKey::ch0j}) {
    if (canRead(cutKey(key)->name)) return key;
  }
  return AdapterCutKey::none;
}

// A band is changed only while it is off, so the controller never sees half of a change.
bool setFirmwareBand(bool active, std::int64_t upper, std::int64_t lower) {
  const bool off = writeByte("bfF0", bandOff);
  if (!active) return off;
  const bool upperWritten = writePercent("bfD0", upper);
  const bool lowerWritten = writePercent("bfE0", lower);
  const bool armed = writeByte("bfF0", bandArmed);
  return upperWritten && lowerWritten && armed;
}

// Where macOS closes the keys, none of them is read.
std::variant<ChargeGate, GateFailure> detectMacOSLimit(bool patient) {
  const bool usable =
      SystemLock::nativeAvailable() && becomesUsable(patient, [] { return CKMCLSupported() == 1; });
  if (!usable) return GateFailure::lockedByMacOS;
  return ChargeGate{ChargeKeys::macOSLimit, AdapterCutKey::none};
}

bool setPair(std::uint8_t value) {
  const bool first = writeByte("CH0B", value);
  const bool second = writeByte("CH0C", value);
  return first && second;
}

}  // namespace

std::string failureMessage(GateFailure failure) {
  if (failure == GateFailure::noKnownKey) {
    return "Brisko couldn’t find a way to control charging on this Mac. "
           "It needs an Apple Silicon Mac, an M1 or newer.";
  }
  return "macOS " + std::to_string(SystemLock::macOSMajor()) +
         " changed the way charging is controlled; Brisko can’t hold a limit on this version yet.";
}

std::string failureDetail(GateFailure failure) {
  if (failure == GateFailure::noKnownKey) {
    return "no known charge-control key (looked for CHTE, CH0B+CH0C, bfF0/bfD0/bfE0)";
  }
  return "macOS " + std::to_string(SystemLock::macOSMajor()) +
         ": CHTE/CH0B/CH0C empty and bfF0/bfD0/bfE0 refused (kIOReturnNotPrivileged) even for root — not "
         "probed, see SystemLock";
}

std::variant<ChargeGate, GateFailure> ChargeGate::detect(bool patient) {
  if (SystemLock::closesKeys()) return detectMacOSLimit(patient);
  const auto charge = findChargeKeys();
  if (!charge) return GateFailure::noKnownKey;
  return ChargeGate{*charge, findCutKey()};
}

bool ChargeGate::setCharging(bool stopped) const {
  switch (charge) {
    case ChargeKeys::chte:
      return writeKey("CHTE", stopped ? chteStopped : chteOpen);
    case ChargeKeys::ch0b0c:
      return setPair(stopped ? pairStopped : pairOpen);
    case ChargeKeys::firmwareBand:
      return setFirmwareBand(stopped, gFirmwareUpper, gFirmwareLower);
    case ChargeKeys::macOSLimit:
      break;
  }
  return true;
}

bool ChargeGate::chargingIsStopped() const {
  switch (charge) {
    case ChargeKeys::chte: {
      const auto bytes = readKey("CHTE");
      return bytes && std::equal(bytes->begin(), bytes->end(), chteStopped.begin(), chteStopped.end());
    }
    case ChargeKeys::ch0b0c:
      return readFirstByte("CH0B") == pairStopped && readFirstByte("CH0C") == pairStopped;
    case ChargeKeys::firmwareBand:
      return readFirstByte("bfF0") == bandArmed;
    case ChargeKeys::macOSLimit:
      break;
  }
  // macOS shows the limit that it enforces in a key of its own; 0 means none.
  return readFirstByte("bfG0").value_or(0) != 0;
}

bool ChargeGate::setAdapterCut(bool cutOff) const {
  const auto key = cutKey(cut);
  return key && writeByte(key->name, cutOff ? key->cutValue : std::uint8_t{0});
}

bool ChargeGate::adapterIsCut() const {
  const auto key = cutKey(cut);
  return key && readFirstByte(key->name) == key->cutValue;
}

std::vector<std::string> ChargeGate::writtenKeys() const {
  std::vector<std::string> keys;
  if (charge == ChargeKeys::macOSLimit) return keys;
  if (const auto name = cutKeyName(cut)) keys.push_back(*name);
  switch (charge) {
    case ChargeKeys::chte:
      keys.emplace_back("CHTE");
      break;
    case ChargeKeys::ch0b0c:
      keys.insert(keys.end(), {"CH0B", "CH0C"});
      break;
    case ChargeKeys::firmwareBand:
      keys.insert(keys.end(), {"bfF0", "bfD0", "bfE0"});
      break;
    case ChargeKeys::macOSLimit:
      break;
  }
  return keys;
}

const char* chargeLabel(ChargeKeys keys) {
  switch (keys) {
    case ChargeKeys::chte:
      return "CHTE";
    case ChargeKeys::ch0b0c:
      return "CH0B+CH0C";
    case ChargeKeys::firmwareBand:
      return "bfD0/bfE0/bfF0";
    case ChargeKeys::macOSLimit:
      break;
  }
  return "macOS";
}

std::optional<std::string> cutKeyName(AdapterCutKey key) {
  const auto found = cutKey(key);
  if (!found) return std::nullopt;
  return found->name;
}

bool becomesUsable(bool patient, const std::function<bool()>& usable) {
  if (usable()) return true;
  if (!patient) return false;
  // Read once, because the uptime at the start of the wait decides.
  constexpr double youngBoot = 300.0;  // seconds
  const bool young = platform::uptime() < youngBoot;
  const int furtherQuestions = young ? 20 : 2;
  for (int question = 0; question < furtherQuestions; ++question) {
    platform::pause(young ? 3.0 : 1.0);
    if (usable()) return true;
  }
  return false;
}

std::vector<std::string> clearLeftoverAdapterCut() {
  const CutKey key = *cutKey(AdapterCutKey::chie);
  if (readFirstByte(key.name) != key.cutValue) return {};
  if (writeByte(key.name, 0)) return {"adapter cut found set, restored"};
  return {"⚠️ adapter cut found set, and could not be restored"};
}

}  // namespace brisko
