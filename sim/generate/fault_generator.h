// sim/generate/fault_generator.h
// What goes wrong in a generated scenario: the virtual Mac's list of faults, what can happen to the daemon's
// files, and how most of it is mended after a while.
#pragma once

#include <cstdint>

#include "sim/generate/generated_scenario.h"
#include "sim/generate/rng.h"
#include "sim/generate/timeline.h"

namespace brisko::lab {

// The Mac that it happens to.
struct MacTraits {
  std::string charge;  // "chte", "ch0b0c", "firmware-band" or "none"
  std::string cut;     // "chie", "ch0i", "ch0j" or "none"
  std::int64_t macOS = 0;
};

// What is common, a few times a month.
void addCommonFaults(const MacTraits& mac, const ScenarioJson& settings, Rng& rng, Timeline& timeline);
// Everything, from now and then to many times a day.
void addAllFaults(const MacTraits& mac, const ScenarioJson& settings, Rng& rng, Timeline& timeline);

// Ways of macOS that a Mac has from the beginning on, as actions.
[[nodiscard]] std::vector<ScenarioJson> randomQuirks(Rng& rng);

// A file of settings that no app writes.
[[nodiscard]] ScenarioJson oddSettings(Rng& rng);

}  // namespace brisko::lab
