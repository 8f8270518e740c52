// sim/seam/simulated/virtual_time.h
// Virtual time: the machine's own clock is the clock, and it moves only when the run loop or a pause has
// nothing else to do.
#pragma once

#include "sim/machine/machine.h"

namespace brisko::virtual_mac {

[[nodiscard]] double virtualNow();     // machine time
[[nodiscard]] double virtualUptime();  // seconds
[[nodiscard]] double virtualWallClock();

// The machine time at which the uptime will be `uptime`; infinity while the machine sleeps.
[[nodiscard]] double timeAtUptime(double uptime);

// Lets time pass until `time` (machine time, later than now; infinity for ever). False when it stopped short
// of that, or only just reached it, after the first thing that the process must hear of or at the horizon.
[[nodiscard]] bool passToward(double time);

// Raises the signals that wait in the machine.
void raiseMachineSignals();

// To be called by the run loop after every piece of work.
void afterEvent();

}  // namespace brisko::virtual_mac
