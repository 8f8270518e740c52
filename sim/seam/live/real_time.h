// sim/seam/live/real_time.h
// How the time of the machine follows the real clock, and how long a real wait for it is. Without a machine
// the computer's own clocks stand in.
#pragma once

#include <time.h>

namespace brisko::virtual_mac {

// Real time, seconds since 1970.
[[nodiscard]] double realNow();

// The computer's own uptime without its sleep, seconds.
[[nodiscard]] double hostUptime();

// Real seconds until `uptime`; 0 when it has passed, infinity when it will not come by waiting (the machine
// sleeps, or its time is paused).
[[nodiscard]] double realSecondsUntilUptime(double uptime);

// A real wait of `seconds` (0 or more), never shorter and a microsecond longer at most: doubles of this size
// are good to a quarter of one, and waking too early would cost a second wait.
[[nodiscard]] timespec realWait(double seconds);

// Raises the signals that wait in the machine.
void raiseMachineSignals();

}  // namespace brisko::virtual_mac
