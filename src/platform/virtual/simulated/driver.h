// platform/virtual/simulated/driver.h
// What a test or the lab holds of virtual time: the machine of this process, and how far time may go.
#pragma once

#include <functional>

#include "platform/virtual/machine_store.h"

namespace brisko::virtual_mac {

// Attaches the machine to the seam of this process and its children. Not owned; it must outlive their use.
void attachMachine(MachineStore* store);

// Time never passes `horizon` (machine time) without asking: when the run loop or a pause is about to, the
// machine is brought exactly there and `reached` is called; it returns the next horizon, later than this one.
// Without a horizon time runs freely.
void setHorizon(double horizon, std::function<double()> reached);

// Called after every event of the run loop, once the machine and the daemon are done with it. For invariants.
void setAfterEvent(std::function<void()> afterEvent);

}  // namespace brisko::virtual_mac
