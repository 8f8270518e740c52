// native/locked_system.h
// What the daemon still does on a Mac that closed the charge keys and offers no limit of its own: it hands
// back what an earlier run left set, and from then on only watches.
#pragma once

#include <string>
#include <vector>

namespace brisko {

// Once, at start-up. Connects the adapter and hands the light back where they were left set, and drops the
// requests that can no longer be served. One note for the log for each thing done, also for a failed one.
[[nodiscard]] std::vector<std::string> handBackLockedSystem();

// In place of a tick: publishes status and history, and writes no key.
void observeLockedSystem();

}  // namespace brisko
