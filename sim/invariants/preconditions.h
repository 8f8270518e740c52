// sim/invariants/preconditions.h
// What several rules presuppose. A Mac may disobey, misread or be told otherwise in more ways than a rule
// could name; each rule says here on which Mac, and for which pass, it wants to be held.
#pragma once

#include "base/settings.h"
#include "hardware/charge_gate.h"
#include "policy/charge_bounds.h"
#include "sim/invariants/gate_keys.h"
#include "sim/invariants/rule.h"
#include "sim/machine/machine.h"

namespace brisko::lab {

// The gate in force writes keys of the controller; else macOS keeps the limit, or nobody.
[[nodiscard]] inline bool gateHasKeys() { return gGate && gGate->charge != ChargeKeys::macOSLimit; }

// The key takes what is written and shows it; whether anything comes of that is another matter.
[[nodiscard]] bool accepts(const virtual_mac::Machine& machine, const KeyWord& key);
[[nodiscard]] bool keysAccept(const virtual_mac::Machine& machine, const ChargeGate& gate);

// Every key of the gate takes what is written, acts on it, and is not taken back by the system.
[[nodiscard]] bool keysObey(const virtual_mac::Machine& machine, const ChargeGate& gate);

// Charge, adapter and temperature are shown as they are, and at once.
[[nodiscard]] bool readingsAreTrue(const virtual_mac::Machine& machine);

// Whether the daemon sees an adapter: the controller tells, and else the power source did.
[[nodiscard]] bool adapterIsSeen(const virtual_mac::Machine& machine);

// The band that the settings ask for, worked out apart from the daemon.
[[nodiscard]] Bounds bandAskedFor(const Settings& settings);

// The limit was in force in this pass as it stands in the settings: switched on, with neither Top Up nor
// calibration to overrule it, and the charge was shown truly.
[[nodiscard]] bool limitWasInForce(const TickRecord& tick, const virtual_mac::Machine& machine);

// … and charger and power source both said that an adapter is there. Only then is anything to be held.
[[nodiscard]] bool limitHadToHold(const TickRecord& tick, const virtual_mac::Machine& machine);

}  // namespace brisko::lab
