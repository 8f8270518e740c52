#include "sim/seam/live/real_time.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include <time.h>

#include "platform/clock.h"
#include "sim/seam/moment.h"
#include "sim/seam/signals.h"

namespace brisko::virtual_mac {

namespace {

double read(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

}  // namespace

double realNow() { return read(CLOCK_REALTIME); }

double hostUptime() { return read(CLOCK_MONOTONIC); }

// The real clock may step back; the machine's never does.
double machineTime(const Machine& machine) {
  const double time = machine.machineAnchor + (realNow() - machine.realAnchor) * machine.speed;
  return std::max(time, machine.now);
}

double realSecondsUntilUptime(double uptime) {
  MachineStore* store = attachedMachine();
  if (store == nullptr) return std::max(uptime - hostUptime(), 0.0);
  return readNow(*store, [uptime](const Machine& machine) {
    if (machine.system.asleep) return never;
    const double missing = uptime - uptimeAt(machine, machineTime(machine));
    if (missing <= 0) return 0.0;
    return machine.speed > 0 ? missing / machine.speed : never;
  });
}

timespec realWait(double seconds) {
  constexpr double longest = 1e8;
  if (seconds <= 0) return {};
  const double nanoseconds = std::ceil(std::min(seconds, longest) * 1e9) + 1000;
  const double whole = std::floor(nanoseconds / 1e9);
  return {static_cast<time_t>(whole), static_cast<long>(nanoseconds - whole * 1e9)};
}

void raiseMachineSignals() {
  MachineStore* store = attachedMachine();
  if (store == nullptr) return;
  const bool any = readNow(*store, [](const Machine& machine) { return machine.pendingSignals != 0; });
  if (!any) return;
  raiseSignals(changeNow(
      *store, [](Machine& machine, const Journal&) { return std::exchange(machine.pendingSignals, 0); }));
}

}  // namespace brisko::virtual_mac
