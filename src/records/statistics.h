// records/statistics.h
// How long the battery has been protected.
#pragma once

namespace brisko {

inline double gProtectedSeconds = 0;  // time spent protecting, in total
inline double gStatsSince = 0;        // seconds since 1970 at which the total started
inline double gLastStatsTick = 0;     // wall clock of the last statisticsTick()

// The work of the statistics timer: adds the time since the last call while the battery is being protected,
// at most 60 s, so that a sleep or a stall does not count. A clock set back takes time away again.
void statisticsTick();

}  // namespace brisko
