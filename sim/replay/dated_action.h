// sim/replay/dated_action.h
#pragma once

#include <algorithm>
#include <cmath>

#include "sim/machine/changes.h"
#include "sim/scenario/generated_scenario.h"

namespace brisko::lab {

// An action of a scenario, and the wall clock when it happens.
struct DatedAction {
  double time = 0;
  ScenarioJson action = {};
};

// A change of the machine as an action, with a number in tenths that lies within what the change allows.
[[nodiscard]] inline ScenarioJson measured(const char* name, virtual_mac::ChangeKind kind, double value) {
  const virtual_mac::Range& range = virtual_mac::rangeOf(kind);
  return actionOf(name, std::clamp(std::round(value * 10) / 10, range.least, range.most));
}

}  // namespace brisko::lab
