// power/orderly_exit.h
// Giving the Mac back, whatever way the daemon ends.
#pragma once

namespace brisko {

// Reconnects the adapter, lets charging run, hands macOS's own limit and the light back and writes the
// statistics, and in every case cancels the scheduled wake. Each step is tried whatever became of the one
// before. May run more than once in a process.
void restoreOnExit();

// From now on SIGINT and SIGTERM end the process through restoreOnExit(), and so do exit() and a return from
// main().
void installExitHandling();

}  // namespace brisko
