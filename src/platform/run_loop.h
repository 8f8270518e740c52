// platform/run_loop.h
// The main run loop: everything the daemon does after its start-up runs inside runMain(), on the main thread,
// one work item after another.
#pragma once

#include <cstdint>
#include <functional>

namespace brisko::platform {

using Work = std::function<void()>;

// Runs until stopMain() or until the process ends. Signals are handled only between two pieces of work.
void runMain();

// Makes runMain() return once the present work item is done.
void stopMain();

using TimerToken = std::uint64_t;  // never 0

// A timer that fires every `intervalSeconds` (above 0) of uptime, first after one interval. It keeps its
// grid: however many intervals it is late, it fires once, then at the next point of the grid. It is paused
// while the machine sleeps. Work due at the same instant runs in the order in which it was added.
[[nodiscard]] TimerToken addRepeatingTimer(double intervalSeconds, Work work);

// The timer never fires again; may be called from the timer's own work. Unknown tokens are ignored.
void invalidateTimer(TimerToken token);

// Runs `work` on the main thread in a later iteration of the run loop, in the order posted. From any thread.
void postMain(Work work);

// The same after `seconds` (0 or more) of uptime. From any thread.
void postMainAfter(double seconds, Work work);

// Installs `handler` for the signal and from then on runs it from the run loop only: it never interrupts a
// piece of work, so it may do all that the main thread may do. SIGINT and SIGTERM are both blocked while it
// runs. On a real Mac there is one exception. If the loop has not responded after 5 s of uptime, because the
// main thread is stuck in a call, another thread runs the handler. It must then end the process, and must do
// first what matters most, since later steps may have to wait for the main thread. The main thread writes no
// key from then on.
void installSignalHandler(int signal, void (*handler)(int));

// Disables the signal's default effect and runs `work` from the run loop, as a work item, each time the
// signal arrives (several arrivals before the loop handles them count as one).
void addSignalSource(int signal, Work work);

}  // namespace brisko::platform
