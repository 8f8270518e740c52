// sim/seam/simulated/virtual_time.h
// Virtual time: the machine's own clock, which advances only when the run loop or a pause has nothing else to
// do.
#pragma once

#include "sim/machine/machine.h"

namespace brisko::virtual_mac {

[[nodiscard]] double virtualNow();     // machine time
[[nodiscard]] double virtualUptime();  // seconds
[[nodiscard]] double virtualWallClock();

// The machine time at which the uptime will be `uptime`; infinity while the machine sleeps.
[[nodiscard]] double timeAtUptime(double uptime);

// Lets time pass until `time` (machine time, later than now; infinity for ever). Returns false when it
// stopped earlier, or at `time`, because of an event that the process must be told of or because of the
// horizon.
[[nodiscard]] bool passToward(double time);

// Raises the machine's pending signals.
void raiseMachineSignals();

// Called by the run loop after every work item.
void afterEvent();

}  // namespace brisko::virtual_mac
