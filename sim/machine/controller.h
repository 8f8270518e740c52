// sim/machine/controller.h
// The management controller inside the machine: its table of keys, how the hardware follows them, and which
// of them macOS closes. Only the machine's own files include this.
#pragma once

#include <cstdint>

#include "sim/machine/machine.h"

namespace brisko::virtual_mac {

// Fills the table with every key that a Mac may have; keys that this Mac lacks are marked as not present.
void makeKeys(Machine& machine, GateKind gate, CutKind cut, bool magSafeLight);

// The key, present or not; null when the table has no place for this code.
[[nodiscard]] SmcKey* placeOf(Machine& machine, std::uint32_t code);

// Adds a stored key of one byte that none of the models has; null when the table is full.
[[nodiscard]] SmcKey* addKey(Machine& machine, std::uint32_t code);

// The system restores its own value.
void releaseKey(SmcKey& key);

// Closes or opens the charge keys as the machine's macOS does. A closed key returns to its resting value,
// because from then on macOS itself controls charging.
void closeOrOpenKeys(Machine& machine);

// What the hardware follows at this moment, according to the keys. The firmware's band also depends on the
// charge.
struct ChargeOrders {
  bool adapterCut;
  bool stopped;  // by a key that stops at any charge
  bool bandArmed;
  double bandUpper;  // percent shown
  double bandLower;
};
[[nodiscard]] ChargeOrders chargeOrders(const Machine& machine);

// Whether charging is open under these orders at `shownLevel`. `bandCharging` is the band's last direction.
[[nodiscard]] bool letsCharge(const ChargeOrders& orders, double shownLevel, bool bandCharging);

}  // namespace brisko::virtual_mac
