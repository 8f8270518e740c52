// power/orderly_exit.h
// Hands the Mac back, however the daemon ends.
#pragma once

namespace brisko {

// Reconnects the adapter, opens charging, hands back macOS's own limit and the light, writes the statistics
// and, in every case, cancels the scheduled wake. Each step is tried even if an earlier one failed. May run
// more than once in a process.
void restoreOnExit();

// From now on SIGINT, SIGTERM, exit() and a return from main() end the process through restoreOnExit().
void installExitHandling();

}  // namespace brisko
