// hardware/charge_state.h
// The one operation that moves the hardware from one charge state to another.
#pragma once

#include "state/charge_state_record.h"

namespace brisko {

// Moves the hardware into `state` through the gate in force, in the safe order, records and logs it. Nothing
// happens when it is the state already or when there is no gate. Whether the hardware obeyed is not known
// here.
void applyState(ChargeState state);

// Whether the battery is at this moment kept from charging while an adapter is connected.
[[nodiscard]] bool isProtecting();

}  // namespace brisko
