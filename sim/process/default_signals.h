// sim/process/default_signals.h
// The state of the signals at the start of a process. launchd ignores and blocks none. A program that was
// started under nohup, or with "&" in a script, ignores some, and its children would inherit that.
#pragma once

#include <sys/types.h>

namespace brisko::sim {

// A fork whose child has its signals as under launchd. No signal that is sent to the child is lost.
[[nodiscard]] pid_t forkWithDefaultSignals();

// The same for this process: from now on no signal that ends a process is ignored or blocked.
void takeDefaultSignals();

}  // namespace brisko::sim
