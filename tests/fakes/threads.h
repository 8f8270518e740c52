// tests/fakes/threads.h
// The program's threads other than its main thread, and Mach's semaphores, in virtual time. They are real
// threads, but only one runs at a time: another thread runs only while the main thread waits, until it waits
// itself. So the order of events is deterministic, and a test can keep the main thread in a call for as long
// as it needs.
#pragma once

#include <functional>
#include <limits>

namespace brisko::fakes {

[[nodiscard]] bool onMainThread();

// Whether there is a thread other than the main thread. Dispatch has some from its first use on.
[[nodiscard]] bool hasOtherThreads();
void noteDispatchThreads();

// The following functions are for the main thread while it waits.

// Delivers pending signals to threads that do not block them, and runs each thread that has work, until all
// threads wait.
void runOtherThreads();

// The uptime of the first timeout of a waiting thread; infinity if no thread waits.
[[nodiscard]] double firstDeadline();

// Keeps the main thread in a call until `over` returns true. Time passes, with a stop at `moment` (machine
// time).
void waitInCall(const std::function<bool()>& over, double moment = std::numeric_limits<double>::infinity());

// For other threads: lets the main thread run until it waits again.
void letMainThreadRun();

}  // namespace brisko::fakes
