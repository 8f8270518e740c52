// sim/invariants/gate_keys.h
// The keys of a gate as an observer of the machine sees them: what they show, and the effect of a write. The
// values repeat those of the daemon on purpose: a check must not ask the code that it checks.
#pragma once

#include <array>
#include <cstdint>

#include "hardware/charge_gate.h"
#include "sim/machine/machine.h"

namespace brisko::lab {

// A key and the value that stops the charging, arms the band or cuts the adapter: this byte, followed by
// zeros.
struct KeyWord {
  std::uint32_t code = 0;  // 0: the gate has no such key
  std::uint32_t size = 0;  // bytes
  std::uint8_t set = 0;
};

struct GateWords {
  KeyWord stop;
  KeyWord secondStop;             // of a pair
  std::array<KeyWord, 2> limits;  // of a band; no value of them counts as an order
  KeyWord cut;

  [[nodiscard]] std::array<KeyWord, 5> all() const { return {stop, secondStop, limits[0], limits[1], cut}; }
};

// Of a gate that leaves the charging to macOS all words are empty.
[[nodiscard]] GateWords wordsOf(const ChargeGate& gate);

// What the daemon reads back from the keys.
struct GateKeys {
  bool first = false;  // each key reads stopped; with a single key, the second is always true
  bool second = false;
  bool cut = false;

  [[nodiscard]] bool stopped() const { return first && second; }
  bool operator==(const GateKeys&) const = default;
};

[[nodiscard]] GateKeys keysOf(const ChargeGate& gate, const virtual_mac::Machine& machine);

[[nodiscard]] bool isWrite(const virtual_mac::JournalEntry& entry);     // to the controller, accepted or not
[[nodiscard]] bool isAccepted(const virtual_mac::JournalEntry& entry);  // … by the controller
// A write that requests the cut of the adapter.
[[nodiscard]] bool asksForCut(const virtual_mac::JournalEntry& entry, const ChargeGate& gate);

// What obedient keys show after the write.
[[nodiscard]] GateKeys after(const GateKeys& keys, const ChargeGate& gate,
                             const virtual_mac::JournalEntry& write);

// A write to a key with which the gate stops the charging, keeps a band or cuts the adapter.
[[nodiscard]] bool isOfGate(const virtual_mac::JournalEntry& entry, const ChargeGate& gate);

}  // namespace brisko::lab
