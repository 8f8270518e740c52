// records/statistics.h
// How long the battery has been protected, and the file that keeps this and the few other values that must
// survive a restart.
#pragma once

namespace brisko {

inline double gProtectedSeconds = 0;  // time spent protecting, in total
inline double gStatsSince = 0;        // seconds since 1970 at which the total started
inline double gLastStatsTick = 0;     // wall clock of the last statisticsTick()

// Takes over what the file holds, once, at start-up. Nothing changes when it is missing, unreadable, not JSON
// or not an object. Otherwise a value that is missing or of another type becomes 0 or unknown; only the start
// of the total stays as it is.
void readStats();

// Writes the file as things stand. Nothing happens after a purge; failures are silent. A total beyond 64 bits
// is fatal (base/checked.h).
void writeStats();

// The work of the statistics timer: while the battery is being protected it adds the time since the last
// call, at most 60 s, so that a sleep or a stall does not count, and writes the file. A clock set back takes
// time away again.
void statisticsTick();

}  // namespace brisko
