// sim/machine/controller.h
// The management controller inside the machine: its table of keys, what the hardware follows in it, and what
// macOS closes. Only the machine's own files include this.
#pragma once

#include <cstdint>

#include "sim/machine/machine.h"

namespace brisko::virtual_mac {

// Fills the table with every key that a Mac may have; those that this one lacks stand there as not present.
void makeKeys(Machine& machine, GateKind gate, CutKind cut, bool magSafeLight);

// The key, present or not; null when the table has no place with this code.
[[nodiscard]] SmcKey* placeOf(Machine& machine, std::uint32_t code);

// A stored key of one byte that no Mac of ours has; null when the table is full.
[[nodiscard]] SmcKey* addKey(Machine& machine, std::uint32_t code);

// The system puts its own value back.
void releaseKey(SmcKey& key);

// Closes or opens the charge keys as the machine's macOS does. A closed key is back at its resting value,
// for from then on macOS itself rules over charging.
void closeOrOpenKeys(Machine& machine);

// What the hardware follows in the keys at this moment. The firmware's band depends on the charge as well.
struct ChargeOrders {
  bool adapterCut;
  bool stopped;  // by a key that stops whatever the charge is
  bool bandArmed;
  double bandUpper;  // percent shown
  double bandLower;
};
[[nodiscard]] ChargeOrders chargeOrders(const Machine& machine);

// Whether charging is open under these orders at `shownLevel`, `bandCharging` being the band's last
// direction.
[[nodiscard]] bool letsCharge(const ChargeOrders& orders, double shownLevel, bool bandCharging);

}  // namespace brisko::virtual_mac
