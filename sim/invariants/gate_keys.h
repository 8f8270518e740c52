// sim/invariants/gate_keys.h
// The keys of a gate as one sees them who looks at the machine: what they show, and what a write makes of
// them. The words are those of the daemon, written down a second time: who judges must not ask the judged.
#pragma once

#include <array>
#include <cstdint>

#include "hardware/charge_gate.h"
#include "sim/machine/machine.h"

namespace brisko::lab {

// A key and the value that stops the charging, arms the band or cuts the adapter: this byte, the others 0.
struct KeyWord {
  std::uint32_t code = 0;  // 0: the gate has no such key
  std::uint32_t size = 0;  // bytes
  std::uint8_t set = 0;
};

struct GateWords {
  KeyWord stop;
  KeyWord secondStop;             // of a pair
  std::array<KeyWord, 2> limits;  // of a band; no value of them is a word
  KeyWord cut;

  [[nodiscard]] std::array<KeyWord, 5> all() const { return {stop, secondStop, limits[0], limits[1], cut}; }
};

// Those of a gate that leaves the charging to macOS are all none.
[[nodiscard]] GateWords wordsOf(const ChargeGate& gate);

// What the keys show to the daemon when it reads them back.
struct GateKeys {
  bool first = false;  // each stopped; of a gate with one such key the second always is
  bool second = false;
  bool cut = false;

  [[nodiscard]] bool stopped() const { return first && second; }
  bool operator==(const GateKeys&) const = default;
};

[[nodiscard]] GateKeys keysOf(const ChargeGate& gate, const virtual_mac::Machine& machine);

[[nodiscard]] bool isWrite(const virtual_mac::JournalEntry& entry);     // of the controller, accepted or not
[[nodiscard]] bool isAccepted(const virtual_mac::JournalEntry& entry);  // … by the controller
// A write that asks for the adapter to be cut.
[[nodiscard]] bool asksForCut(const virtual_mac::JournalEntry& entry, const ChargeGate& gate);

// What keys that obey show after the write.
[[nodiscard]] GateKeys after(const GateKeys& keys, const ChargeGate& gate,
                             const virtual_mac::JournalEntry& write);

// A write to a key by which the gate stops the charging, keeps a band or cuts the adapter.
[[nodiscard]] bool isOfGate(const virtual_mac::JournalEntry& entry, const ChargeGate& gate);

}  // namespace brisko::lab
