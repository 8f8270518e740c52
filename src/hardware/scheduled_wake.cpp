#include "hardware/scheduled_wake.h"

#include <string>

#include "base/log.h"
#include "platform/clock.h"
#include "platform/system_power.h"

namespace brisko {

void scheduleWake(std::int64_t minutes) {
  cancelScheduledWake();
  const double date = platform::wallNow() + static_cast<double>(minutes) * 60;
  if (platform::schedulePowerEvent(date, wakeEventID, wakeEventType) != platform::kernelSuccess) {
    log("⚠️ impossible de programmer un réveil — la limite sera réappliquée au prochain réveil");
    return;
  }
  gScheduledWake = date;
  log("réveil programmé dans " + std::to_string(minutes) + " min pour reprendre la charge en main");
}

void cancelScheduledWake() {
  if (!gScheduledWake) return;
  // The system does not know a wake that has already happened; that failure is harmless.
  static_cast<void>(platform::cancelPowerEvent(*gScheduledWake, wakeEventID, wakeEventType));
  gScheduledWake.reset();
}

}  // namespace brisko
