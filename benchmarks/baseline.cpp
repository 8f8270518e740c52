// The lower bound of the daemon's cost: the same loop on the same machine with the same two timers, doing
// only the baseline I/O.

#include "baseline_io.h"
#include "hardware/smc.h"
#include "platform/power_sources.h"
#include "platform/run_loop.h"

namespace {

void work() { static_cast<void>(brisko::bench::doBaselineIo()); }
void askForAdapter() { static_cast<void>(brisko::adapterPresent()); }

}  // namespace

int main() {
  if (brisko::SMCOpen(brisko::gConn) != brisko::platform::kernelSuccess) return 1;
  static_cast<void>(brisko::platform::addPowerSourceNotification(work));
  static_cast<void>(brisko::platform::addRepeatingTimer(12, work));
  static_cast<void>(brisko::platform::addRepeatingTimer(20, askForAdapter));
  brisko::platform::runMain();
  return 0;
}
