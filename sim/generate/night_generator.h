// sim/generate/night_generator.h
// The traits of a Mac's sleep that cannot be learned from the outside, chosen at random for each generated
// Mac: what a scheduled wake with the lid closed becomes, how long dark wakes last, and what wakes the Mac at
// night.
#pragma once

#include <vector>

#include "sim/generate/rng.h"
#include "sim/scenario/generated_scenario.h"

namespace brisko::lab {

// The actions that give a Mac these traits.
[[nodiscard]] std::vector<ScenarioJson> randomNights(Rng& rng);

}  // namespace brisko::lab
