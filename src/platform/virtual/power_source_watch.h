// platform/virtual/power_source_watch.h
// Between the run loops and power_sources.cpp: who waits to hear of published changes.
#pragma once

#include "platform/virtual/machine.h"

namespace brisko::virtual_mac {

// True when the power source was published anew since the last call and somebody wants to hear of it. Of very
// many changes at one moment the later ones are heard of once time has moved on.
[[nodiscard]] bool powerSourceChanged(const Machine& machine);

// Calls everybody who asked to hear of it.
void tellPowerSourceChange();

}  // namespace brisko::virtual_mac
