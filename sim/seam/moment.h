// sim/seam/moment.h
// How the seam reads and changes the machine at the present moment. In virtual time the machine is always up
// to date; live it is advanced first if its last update is a second or more ago.
#pragma once

#include <utility>

#include "sim/machine/machine_store.h"

namespace brisko::virtual_mac {

template <class Change>
auto changeNow(MachineStore& store, Change change) {
  const auto update = store.update();
  const double now = machineTime(update.machine());
  if (now - update.machine().now >= 1) advance(update.machine(), now);
  return change(update.machine(), update.journal());
}

template <class Reading>
auto readNow(MachineStore& store, Reading reading) {
  {
    const auto view = store.view();
    if (machineTime(view.machine()) - view.machine().now < 1) return reading(view.machine());
  }
  return changeNow(store, [&reading](const Machine& machine, const Journal&) { return reading(machine); });
}

// Uptime and wall clock at a machine time not before the last update.
[[nodiscard]] inline double uptimeAt(const Machine& machine, double time) {
  return machine.system.asleep ? uptimeOf(machine) : uptimeOf(machine) + (time - machine.now);
}
[[nodiscard]] inline double wallClockAt(const Machine& machine, double time) {
  return wallClock(machine) + (time - machine.now);
}

}  // namespace brisko::virtual_mac
