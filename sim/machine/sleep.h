// sim/machine/sleep.h
// How the machine falls asleep and wakes, which messages its power client receives, and the scheduled wakes.
// Only the machine's own files include this.
//
// From a full wake to sleep, the client is told and its answer awaited; then the machine is dark for some
// seconds and sleeps. A dark wake begins and ends without a message. Only on the way to a full wake does the
// client receive messages, that the system will power on and that it has. "System Capabilities" changes with
// the last answer and with the full wake, not with the sleep itself.
#pragma once

#include "sim/machine/machine.h"

namespace brisko::virtual_mac {

inline constexpr std::uint32_t fullWake = 15;  // capabilities: processor, graphics, audio, network
inline constexpr std::uint32_t darkWake = 9;   // processor, network

[[nodiscard]] Sleep freshSleep();

// Cancels every sleep, wake and message that is under way, and the client is gone: at boot and at shutdown.
// The lid and the machine's choices stay, and so do scheduled events, except those in the past.
void endSleep(Machine& machine);

// The machine time at which sleep next acts by itself; infinity when it does not.
[[nodiscard]] double nextSleepEvent(const Machine& machine);
// Performs that action.
void applySleepEvent(Machine& machine);

// What users and macOS do. Each has no effect where it makes no sense.
void closeLid(Machine& machine);
void openLid(Machine& machine);
void commandSleep(Machine& machine);
void askForSleep(Machine& machine);
void wakeByUser(Machine& machine);
void wakeDark(Machine& machine, double seconds);
// The adapter came or went.
void wakeForAdapter(Machine& machine);
// What kept the Mac from sleeping now, if anything.
void setRefusal(Machine& machine, SleepRefusal refusal);
void setNights(Machine& machine, Nights nights);

}  // namespace brisko::virtual_mac
