// sim/seam/signals.h
// Signals as the run loops of the virtual Mac receive them: blocked from the moment that a handler is
// installed, and unblocked only while the loop waits. Main thread only.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include <signal.h>

namespace brisko::virtual_mac {

// Installs `handler` and blocks the signal except during the wait. SIGINT and SIGTERM are both blocked while
// the handler runs.
void handleSignal(int signal, void (*handler)(int));

// Only records the signal when it arrives during the wait; `work` is then returned by arrivedSignalWork().
void noteSignal(int signal, std::function<void()> work);

// The work of the recorded signals that arrived since the last call, each once.
[[nodiscard]] std::vector<std::function<void()>> arrivedSignalWork();

// The signal mask of the thread while the loop waits.
[[nodiscard]] sigset_t maskWhileWaiting();

// Waits for zero seconds, which delivers pending signals.
void letPendingSignalsIn();

// Raises the signals whose bits are set in this process.
void raiseSignals(std::uint32_t bits);

}  // namespace brisko::virtual_mac
