// native/locked_system.h
// What the daemon still does on a Mac that closed the charge keys and offers no limit of its own: it restores
// what an earlier run left set, and from then on only observes.
#pragma once

#include <string>
#include <vector>

namespace brisko {

// Called once, at start-up. Reconnects the adapter and hands back the light if they were left set, and clears
// the requests that can no longer be served. Returns one note for the log for each action, failed ones
// included.
[[nodiscard]] std::vector<std::string> handBackLockedSystem();

// Replaces the tick: publishes status and history, and writes no key.
void observeLockedSystem();

}  // namespace brisko
