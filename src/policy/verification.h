// policy/verification.h
// Verifies that the hardware obeys. A write can be accepted and then ignored, or be undone by others. After
// every decision the tick calls these three functions, in this order, wherever we can write the charge keys.
// Their findings are logged; a discharge that does not work is given up for a hold. They ignore whether their
// own writes were accepted, because the next tick checks again. Times are wall clock, so a step of the clock
// shortens or lengthens a wait.
#pragma once

namespace brisko {

// Restores what has drifted from the state in force: the stop, the adapter's cut, and the firmware's band
// when the tick wants another one. A cut that is lost for the sixth time ends the discharge.
void reassertState();

// Verifies that a hold stops the charging. The verdict is logged once per process, and again when it changes;
// a failure is only logged. `plugged` is the power-source service's value.
void verifyGate(bool plugged);

// Verifies that a discharge runs the battery down, and gives it up when it does not. Evaluated only in a full
// wake with an adapter, and again from the start after each interruption.
void verifyDischarge(bool fullyAwake);

}  // namespace brisko
