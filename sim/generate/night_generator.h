// sim/generate/night_generator.h
// What nobody can know of a Mac's sleep from the outside, chosen anew for each generated Mac: what a
// scheduled wake with the lid closed becomes, how long dark wakes last, and what wakes the Mac at night.
#pragma once

#include <vector>

#include "sim/generate/rng.h"
#include "sim/scenario/generated_scenario.h"

namespace brisko::lab {

// The actions that make a Mac such a one.
[[nodiscard]] std::vector<ScenarioJson> randomNights(Rng& rng);

}  // namespace brisko::lab
