// hardware/charge_state.h
// The one operation that moves the hardware from one charge state to another.
#pragma once

#include "state/charge_state_record.h"

namespace brisko {

// Moves the hardware into `state` through the gate in force, in the safe order, and records and logs it. Does
// nothing when it is already in that state or there is no gate. Whether the hardware obeyed is not known
// here.
void applyState(ChargeState state);

// Whether the battery is currently kept from charging while an adapter is connected.
[[nodiscard]] bool isProtecting();

}  // namespace brisko
