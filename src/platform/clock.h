// platform/clock.h
// The daemon's only clocks. Nothing outside the platform folders may read another clock or sleep.
#pragma once

namespace brisko::platform {

// Earlier than every reading of the wall clock; the time of an event that has not happened yet.
inline constexpr double distantPast = -62'135'596'800;  // 0001-01-01T00:00:00Z

// Wall clock, seconds since 1970-01-01 UTC with fractions. It can step, including backwards.
[[nodiscard]] double wallNow();

// Seconds since the machine was booted. Never steps back, and is paused while the machine sleeps.
[[nodiscard]] double uptime();

// Blocks the calling thread for `seconds` (0 or more); the run loop does not run meanwhile. A handled signal
// does not shorten it. Only for use before the run loop starts and in the one-shot modes.
void pause(double seconds);

}  // namespace brisko::platform
