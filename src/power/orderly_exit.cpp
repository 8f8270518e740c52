#include "power/orderly_exit.h"

#include <csignal>
#include <cstdlib>
#include <string>

#include <unistd.h>

#include "base/log.h"
#include "hardware/charge_gate.h"
#include "hardware/led.h"
#include "hardware/scheduled_wake.h"
#include "hardware/smc.h"
#include "native/native_limit.h"
#include "platform/run_loop.h"
#include "records/statistics.h"
#include "state/machine_abilities.h"

namespace brisko {
namespace {

// Runs from the run loop, so it may do all that the main thread may do; or, if the main thread is stuck, on
// another thread. Then the order matters: the keys come first, because their writes need neither memory nor a
// lock. It ends the process itself: the exit hook must not restore a second time.
void signalHandler(int signal) {
  restoreOnExit();
  log("Signal " + std::to_string(signal) + ": charging, adapter and LED restored, exiting.");
  ::_exit(0);
}

// Handing back macOS's own limit needs services that require an ordinary exit, so there the signal becomes a
// work item and the exit hook does the rest.
void exitOnSignal(int signal) {
  log("Signal " + std::to_string(signal) + ": handing the macOS limit back, exiting.");
  std::exit(0);
}

void handBack(const ChargeGate& gate) {
  // A refused write cannot be helped: there is no later moment to try again.
  static_cast<void>(gate.setAdapterCut(false));
  static_cast<void>(gate.setCharging(false));
  handBackNative();
  if (gLedSupported) static_cast<void>(handBackLight());
  writeStats();
}

}  // namespace

void restoreOnExit() {
  if (gConn != 0 && gGate) handBack(*gGate);
  cancelScheduledWake();
}

void installExitHandling() {
  for (const int signal : {SIGINT, SIGTERM}) {
    if (gateIsMacOSLimit()) {
      platform::addSignalSource(signal, [signal] { exitOnSignal(signal); });
    } else {
      platform::installSignalHandler(signal, signalHandler);
    }
  }
  static_cast<void>(std::atexit(restoreOnExit));
}

}  // namespace brisko
