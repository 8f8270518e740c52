// sim/seam/power_source_watch.h
// Connects the run loops with power_sources.cpp: the listeners for published changes.
#pragma once

#include "sim/machine/machine.h"

namespace brisko::virtual_mac {

// The changes that a process was notified of. A process is also notified of changes that it caused itself. On
// a Mac that takes time, so a process that reacts to each notification must not stop virtual time from
// advancing. Therefore, if there are very many changes at one moment, the later ones are delivered when time
// has advanced.
struct DeliveredChanges {
  std::uint64_t count = 0;  // number of published changes, as the machine counts them
  double at = 0;            // machine time of the last one
  int then = 0;             // how many were delivered at that moment

  // True when there is a change to deliver; it then counts as delivered.
  bool takeNew(const Machine& machine) {
    constexpr int mostAtOnce = 16;
    if (count == machine.powerSource.changes) return false;
    if (at != machine.now) then = 0;
    if (then == mostAtOnce) return false;
    *this = {machine.powerSource.changes, machine.now, then + 1};
    return true;
  }
};

// True when the power source was published since the last call and has listeners.
[[nodiscard]] bool powerSourceChanged(const Machine& machine);

// Calls all listeners.
void notifyPowerSourceChange();

}  // namespace brisko::virtual_mac
