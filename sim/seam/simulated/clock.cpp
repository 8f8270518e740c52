#include "platform/clock.h"

#include "sim/seam/simulated/virtual_time.h"

namespace brisko::platform {

double wallNow() { return virtual_mac::virtualWallClock(); }

double uptime() { return virtual_mac::virtualUptime(); }

void pause(double seconds) {
  const double end = uptime() + seconds;
  virtual_mac::raiseMachineSignals();
  // The end is computed again each time, because it moves later while the machine sleeps.
  while (virtual_mac::virtualNow() < virtual_mac::timeAtUptime(end)) {
    (void)virtual_mac::passToward(
        virtual_mac::timeAtUptime(end));  // the pause continues whatever interrupted it
    virtual_mac::raiseMachineSignals();
  }
}

}  // namespace brisko::platform
