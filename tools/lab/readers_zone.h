// tools/lab/readers_zone.h
// Scenarios use UTC clock times, so the daemon's local days must be those of UTC on every computer. What is
// somebody's own history is read and played in the zone of its reader, because the daemon's days are local.
#pragma once

namespace brisko::lab {

// At the beginning of the program.
void useUtc();
// The zone that the program was started with.
void useReadersZone();

}  // namespace brisko::lab
