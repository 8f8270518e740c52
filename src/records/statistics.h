// records/statistics.h
// How long the battery has been protected, and the file that stores this and the few other values that must
// survive a restart.
#pragma once

namespace brisko {

inline double gProtectedSeconds = 0;  // time spent protecting, in total
inline double gStatsSince = 0;        // seconds since 1970 at which the total started
inline double gLastStatsTick = 0;     // wall clock of the last statisticsTick()

// Reads the file, once, at start-up. Changes nothing if it is missing, unreadable, not JSON or not an object.
// Otherwise a value that is missing or has another type becomes 0 or unknown, except the start of the total,
// which is kept.
void readStats();

// Writes the present values to the file. Does nothing after a purge; failures are silent. A total beyond 64
// bits is fatal (base/checked.h).
void writeStats();

// The statistics timer's work: while the battery is being protected, adds the time since the last call, at
// most 60 s, so that a sleep or a stall does not count, and writes the file. A clock set back subtracts time
// again.
void statisticsTick();

}  // namespace brisko
