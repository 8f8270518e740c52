// sim/seam/signals.h
// Signals as the run loops of the virtual Mac take them: shut out from the moment that somebody handles them,
// and let in only while the loop waits. Main thread only.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include <signal.h>

namespace brisko::virtual_mac {

// Installs `handler` and shuts the signal out of everything but the wait. SIGINT and SIGTERM are both shut
// out while it runs.
void handleSignal(int signal, void (*handler)(int));

// The signal is only noted when it arrives in the wait, and `work` is then among arrivedSignalWork().
void noteSignal(int signal, std::function<void()> work);

// The work of the noted signals that arrived since the last call, each once.
[[nodiscard]] std::vector<std::function<void()>> arrivedSignalWork();

// The signal mask of the thread while the loop waits.
[[nodiscard]] sigset_t maskWhileWaiting();

// A wait of no length: lets in what is pending.
void letPendingSignalsIn();

// Raises the signals whose bits are set in this process.
void raiseSignals(std::uint32_t bits);

}  // namespace brisko::virtual_mac
