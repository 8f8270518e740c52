// tests/fakes/threads.h
// The threads of the program besides its main one, and Mach's semaphores, in virtual time. They are real
// threads, but one runs at a time: another has its turn only while the main one waits, and keeps it until it
// waits itself. So there is one order of things, and the main thread can be held in a call for as long as a
// test likes.
#pragma once

#include <functional>
#include <limits>

namespace brisko::fakes {

[[nodiscard]] bool onMainThread();

// Whether there is any thread besides the main one. From its first use on Dispatch has some.
[[nodiscard]] bool hasOtherThreads();
void noteThreadsOfDispatch();

// What follows is for the main thread, where it waits.

// Signals are taken by those who let them in, and each thread that has something to do does it, until all of
// them wait.
void takeTurns();

// The uptime at which the first of them will have waited long enough; infinity when none will.
[[nodiscard]] double firstDeadline();

// The main thread is in a call that does not return before `over` holds. Time passes, but makes a halt at
// `moment` (machine time).
void waitInCall(const std::function<bool()>& over, double moment = std::numeric_limits<double>::infinity());

// On another thread: the main one has its turn until it waits again.
void letMainThreadGoOn();

}  // namespace brisko::fakes
