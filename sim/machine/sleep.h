// sim/machine/sleep.h
// How the machine falls asleep and wakes, which messages its power client receives, and the scheduled wakes.
// Only the machine's own files include this.
//
// From a full wake to sleep, the client is told and its answer awaited; a moment later the machine sleeps. A
// dark wake begins and ends without a message. Only on the way to a full wake does the client receive the
// message that the system has powered on.
#pragma once

#include "sim/machine/machine.h"

namespace brisko::virtual_mac {

inline constexpr std::uint32_t fullWake = 15;  // capabilities: processor, graphics, audio, network
inline constexpr std::uint32_t darkWake = 9;   // processor, network

[[nodiscard]] Sleep freshSleep();

// Cancels every sleep, wake and message that is under way, and the client is gone: at boot and at shutdown.
// Scheduled events remain, except those in the past.
void endSleep(Machine& machine);

// The machine time at which sleep next acts by itself; infinity when it does not.
[[nodiscard]] double nextSleepEvent(const Machine& machine);
// Performs that action.
void applySleepEvent(Machine& machine);

// What users and macOS do. Each has no effect where it makes no sense.
void closeLid(Machine& machine);
void askForSleep(Machine& machine);
void wakeFully(Machine& machine);
void wakeDark(Machine& machine, double seconds);

}  // namespace brisko::virtual_mac
