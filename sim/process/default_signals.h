// sim/process/default_signals.h
// The signals that a process starts with. launchd ignores and blocks none; a program started under nohup, or
// with an "&" in a script, ignores some, and so would every process that it starts.
#pragma once

#include <sys/types.h>

namespace brisko::sim {

// A fork whose child has every signal as launchd gives it. No signal that is sent to the child is lost.
[[nodiscard]] pid_t forkWithDefaultSignals();

// For a piece of this process's own: none of the signals that end a process is ignored or blocked.
void takeDefaultSignals();

}  // namespace brisko::sim
