// policy/verification.h
// Whether the hardware obeys. A key can be accepted and then ignored, or be undone behind our back: after
// every decision the tick lets these three look, in this order, wherever the charge keys are ours. What they
// find is logged; a discharge that does not work is given up for a hold. Whether their own writes were
// accepted does not matter to them, for the next tick looks again. Times are wall clock, so a step of the
// clock shortens or lengthens what is being waited for.
#pragma once

namespace brisko {

// Writes back what has drifted from the state in force: the stop, the adapter's cut, and the firmware's band
// when the tick wants another one. A cut that is lost for the sixth time ends the discharge.
void reassertState();

// Proves that a hold stops the charging. The verdict is logged once in the life of the process, and again
// when it flips; a failure changes nothing but the log. `plugged` as the power-source service says.
void verifyGate(bool plugged);

// Proves that a discharge runs the battery down, and gives it up when it does not. Judged only in a full wake
// with an adapter, and anew from the start after each interruption.
void verifyDischarge(bool fullyAwake);

}  // namespace brisko
