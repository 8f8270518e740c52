// The lower bound of the daemon's cost: the same loop on the same machine with the same two timers, doing
// only the baseline I/O. With --no-io not even that, so what is left is the virtual Mac's own share.

#include <string_view>

#include "baseline_io.h"
#include "hardware/smc.h"
#include "platform/power_sources.h"
#include "platform/run_loop.h"

namespace {

bool gAsksMachine = true;

void work() {
  if (gAsksMachine) static_cast<void>(brisko::bench::doBaselineIo());
}
void askForAdapter() {
  if (gAsksMachine) static_cast<void>(brisko::adapterPresent());
}

}  // namespace

int main(int count, char** arguments) {
  gAsksMachine = count < 2 || std::string_view(arguments[1]) != "--no-io";
  if (brisko::SMCOpen(brisko::gConn) != brisko::platform::kernelSuccess) return 1;
  static_cast<void>(brisko::platform::addPowerSourceNotification(work));
  static_cast<void>(brisko::platform::addRepeatingTimer(12, work));
  static_cast<void>(brisko::platform::addRepeatingTimer(20, askForAdapter));
  brisko::platform::runMain();
  return 0;
}
