// platform/clock.h
// The only clocks of the daemon. Nothing outside the platform folders may read another one or sleep.
#pragma once

namespace brisko::platform {

// Wall clock, seconds since 1970-01-01 UTC with fractions. It can step, also backwards.
[[nodiscard]] double wallNow();

// Seconds since the machine was booted. Never steps back; is paused while the machine sleeps.
[[nodiscard]] double uptime();

// Blocks the calling thread for `seconds` (0 or more); nothing else of the process runs meanwhile. A handled
// signal does not cut it short. Only for the time before the run loop starts and for the one-shot modes.
void pause(double seconds);

}  // namespace brisko::platform
