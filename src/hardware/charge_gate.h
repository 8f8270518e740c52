// hardware/charge_gate.h
// The gate between the adapter and the battery: which keys this Mac offers, and how "stop charging" and "cut
// the adapter" are written in them. Nothing else writes these keys.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace brisko {

enum class ChargeKeys : std::uint8_t {
  chte,          // "CHTE"
  ch0b0c,        // "CH0B" and "CH0C"
  firmwareBand,  // "bfF0", "bfD0", "bfE0": the controller enforces a band itself
  macOSLimit,    // no key: macOS's own limit is set instead
};

enum class AdapterCutKey : std::uint8_t { chie, ch0i, ch0j, none };

// Why no gate was found.
enum class GateFailure : std::uint8_t { noKnownKey, lockedByMacOS };
[[nodiscard]] std::string failureMessage(GateFailure failure);  // for the user
[[nodiscard]] std::string failureDetail(GateFailure failure);   // for a report

struct ChargeGate {
  ChargeKeys charge = ChargeKeys::chte;
  AdapterCutKey cut = AdapterCutKey::none;

  // Reads the keys and writes none. `patient` is for start-up, when macOS's own limit may not be ready yet:
  // it may then block for about a minute.
  [[nodiscard]] static std::variant<ChargeGate, GateFailure> detect(bool patient);

  // True when every write was accepted. Accepted is not obeyed: chargingIsStopped() reads back what the
  // controller holds, and the verifiers watch the current. Every key of the gate is written, even if an
  // earlier write failed. The firmware band is armed at gFirmwareUpper and gFirmwareLower.
  [[nodiscard]] bool setCharging(bool stopped) const;
  // False when a key has another value or cannot be read.
  [[nodiscard]] bool chargingIsStopped() const;

  // False without a cut key.
  [[nodiscard]] bool setAdapterCut(bool cutOff) const;
  [[nodiscard]] bool adapterIsCut() const;

  // The keys that this gate may leave changed.
  [[nodiscard]] std::vector<std::string> writtenKeys() const;

  bool operator==(const ChargeGate&) const = default;
};

inline std::optional<ChargeGate> gGate;  // the gate in force; none until one is found

// True if the gate in force leaves charging to macOS's own limit and writes no key.
[[nodiscard]] inline bool gateIsMacOSLimit() { return gGate && gGate->charge == ChargeKeys::macOSLimit; }

[[nodiscard]] const char* chargeLabel(ChargeKeys keys);  // e.g. "CH0B+CH0C"
// The key's name; none for AdapterCutKey::none.
[[nodiscard]] std::optional<std::string> cutKeyName(AdapterCutKey key);

// Asks `usable` whether macOS's own limit can be used: once or, if `patient`, several times, because the
// service may still be starting after boot (by uptime: 21 times in a minute, or 3 times in 2 s).
[[nodiscard]] bool becomesUsable(bool patient, const std::function<bool()>& usable);

// Undoes an adapter cut that an earlier run left in "CHIE", if the gate in force cannot. Returns one line for
// the log when there was one to undo.
[[nodiscard]] std::vector<std::string> clearLeftoverAdapterCut();

}  // namespace brisko
