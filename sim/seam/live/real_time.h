// sim/seam/live/real_time.h
// How the machine's time follows the real clock, and how long to wait in real time. Without a machine the
// computer's own clocks are used.
#pragma once

#include <time.h>

namespace brisko::virtual_mac {

// Real time, seconds since 1970.
[[nodiscard]] double realNow();

// The computer's own uptime without its sleep, seconds.
[[nodiscard]] double hostUptime();

// Real seconds until `uptime`; 0 when it has passed, infinity when waiting will not reach it (the machine
// sleeps, or its time is paused).
[[nodiscard]] double realSecondsUntilUptime(double uptime);

// A real wait of `seconds` (0 or more), never shorter and at most a microsecond longer: doubles of this size
// are accurate to a quarter of a microsecond, and waking too early would cost a second wait.
[[nodiscard]] timespec realWait(double seconds);

// Raises the machine's pending signals.
void raiseMachineSignals();

}  // namespace brisko::virtual_mac
