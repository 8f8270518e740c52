// sim/seam/power_source_watch.h
// Between the run loops and power_sources.cpp: who waits to hear of published changes.
#pragma once

#include "sim/machine/machine.h"

namespace brisko::virtual_mac {

// What a process heard of. Where what it does changes the power source, it hears of its own doing. On a Mac
// that takes time; a process that answers each time must not keep the clock from moving on. So of very many
// changes at one moment the later ones are heard of once time has moved on.
struct HeardChanges {
  std::uint64_t count = 0;  // of published changes, as the machine counts them
  double at = 0;            // machine time of the last one
  int then = 0;             // how many there were at that moment

  // True when there is one to hear of; it counts as heard.
  bool hear(const Machine& machine) {
    constexpr int mostAtOnce = 16;
    if (count == machine.powerSource.changes) return false;
    if (at != machine.now) then = 0;
    if (then == mostAtOnce) return false;
    *this = {machine.powerSource.changes, machine.now, then + 1};
    return true;
  }
};

// True when the power source was published anew since the last call and somebody wants to hear of it.
[[nodiscard]] bool powerSourceChanged(const Machine& machine);

// Calls everybody who asked to hear of it.
void notifyPowerSourceChange();

}  // namespace brisko::virtual_mac
