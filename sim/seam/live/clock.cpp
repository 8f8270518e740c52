#include "platform/clock.h"

#include <algorithm>
#include <atomic>

#include <time.h>

#include "sim/machine/machine_store.h"
#include "sim/seam/live/real_time.h"
#include "sim/seam/moment.h"

namespace brisko::platform {

using virtual_mac::Machine;

double wallNow() {
  virtual_mac::MachineStore* store = virtual_mac::attachedMachine();
  if (store == nullptr) return virtual_mac::realNow();
  return virtual_mac::readNow(*store, [](const Machine& machine) {
    return virtual_mac::wallClockAt(machine, virtual_mac::machineTime(machine));
  });
}

double uptime() {
  virtual_mac::MachineStore* store = virtual_mac::attachedMachine();
  if (store == nullptr) return virtual_mac::hostUptime();
  const double now = virtual_mac::readNow(*store, [](const Machine& machine) {
    return virtual_mac::uptimeAt(machine, virtual_mac::machineTime(machine));
  });
  // When the real clock steps back, the machine's time is paused at its last update, which may be up to a
  // second before the uptime returned here last.
  static std::atomic<double> latest{0};
  double known = latest.load();
  while (known < now && !latest.compare_exchange_weak(known, now)) continue;
  return std::max(known, now);
}

void pause(double seconds) {
  // In slices, because the machine's speed may change meanwhile.
  constexpr double longestSlice = 1;
  const double end = uptime() + seconds;
  for (double left = virtual_mac::realSecondsUntilUptime(end); left > 0;
       left = virtual_mac::realSecondsUntilUptime(end)) {
    const timespec wait = virtual_mac::realWait(std::min(left, longestSlice));
    ::clock_nanosleep(CLOCK_MONOTONIC, 0, &wait, nullptr);
    virtual_mac::raiseMachineSignals();
  }
}

}  // namespace brisko::platform
