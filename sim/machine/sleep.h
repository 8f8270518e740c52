// sim/machine/sleep.h
// How the machine falls asleep and wakes, what its power client hears of it, and the scheduled wakes. Only
// the machine's own files include this.
//
// Full wake to sleep: the client is told and its answer awaited; a moment later the machine sleeps. A dark
// wake comes and goes without a word. Only on the way to a full wake does the client hear that it is powered
// on.
#pragma once

#include "sim/machine/machine.h"

namespace brisko::virtual_mac {

inline constexpr std::uint32_t fullWake = 15;  // capabilities: processor, graphics, audio, network
inline constexpr std::uint32_t darkWake = 9;   // processor, network

[[nodiscard]] Sleep freshSleep();

// No sleep, wake or message is on its way any more, and the client is gone: at boot and at shutdown.
// Scheduled events stay, but for those of the past.
void endSleep(Machine& machine);

// When sleep next takes its course by itself, as machine time; infinity when it does not.
[[nodiscard]] double nextSleepEvent(const Machine& machine);
// Lets that happen.
void applySleepEvent(Machine& machine);

// What people and macOS do. Each is without effect where it makes no sense.
void closeLid(Machine& machine);
void askForSleep(Machine& machine);
void wakeFully(Machine& machine);
void wakeDark(Machine& machine, double seconds);

}  // namespace brisko::virtual_mac
