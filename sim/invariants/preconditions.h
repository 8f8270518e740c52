// sim/invariants/preconditions.h
// The preconditions that several rules share. A Mac may disobey, misread or be changed in more ways than a
// rule could list, so each rule states on which Macs, and for which ticks, it applies.
#pragma once

#include "base/settings.h"
#include "hardware/charge_gate.h"
#include "policy/charge_bounds.h"
#include "sim/invariants/gate_keys.h"
#include "sim/invariants/rule.h"
#include "sim/machine/machine.h"

namespace brisko::lab {

// The gate in force writes keys of the controller; otherwise macOS or nobody limits the charge.
[[nodiscard]] inline bool gateHasKeys() { return gGate && gGate->charge != ChargeKeys::macOSLimit; }

// The key stores what is written and shows it, whether or not the hardware follows it.
[[nodiscard]] bool accepts(const virtual_mac::Machine& machine, const KeyWord& key);
[[nodiscard]] bool keysAccept(const virtual_mac::Machine& machine, const ChargeGate& gate);

// Every key of the gate stores what is written and acts on it, and the system does not take it back.
[[nodiscard]] bool keysObey(const virtual_mac::Machine& machine, const ChargeGate& gate);

// Charge, adapter and temperature are shown correctly and without delay.
[[nodiscard]] bool readingsAreTrue(const virtual_mac::Machine& machine);

// Whether the daemon sees an adapter: through the controller's key, or else through the power source.
[[nodiscard]] bool adapterIsSeen(const virtual_mac::Machine& machine);

// The most that the battery gains from this percentage on between two readings of its gauge, a minute apart,
// in percent as shown.
[[nodiscard]] double mostBetweenReadings(const virtual_mac::Battery& battery, double percent);

// The band that the settings request, computed independently of the daemon.
[[nodiscard]] Bounds bandAskedFor(const Settings& settings);

// The limit was in force in this tick as it stands in the settings: switched on, not overruled by a Top Up or
// a calibration, and the charge was shown truly.
[[nodiscard]] bool limitWasInForce(const TickRecord& tick, const virtual_mac::Machine& machine);

// … and both charger and power source reported an adapter. Only then must anything be held.
[[nodiscard]] bool limitHadToHold(const TickRecord& tick, const virtual_mac::Machine& machine);

}  // namespace brisko::lab
