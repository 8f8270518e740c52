// sim/generate/fault_generator.h
// What goes wrong in a generated scenario: faults from the virtual Mac's list, damage to the daemon's files,
// and the repair of most of it after a while.
#pragma once

#include <cstdint>

#include "sim/generate/rng.h"
#include "sim/generate/timeline.h"
#include "sim/scenario/generated_scenario.h"

namespace brisko::lab {

// The traits of the Mac that decide which faults fit it.
struct MacTraits {
  std::string charge;  // "chte", "ch0b0c", "firmware-band" or "none"
  std::string cut;     // "chie", "ch0i", "ch0j" or "none"
  std::int64_t macOS = 0;
};

// Adds common faults, a few a month.
void addCommonFaults(const MacTraits& mac, const ScenarioJson& settings, Rng& rng, Timeline& timeline);
// Adds faults of every kind, from one now and then to many a day.
void addAllFaults(const MacTraits& mac, const ScenarioJson& settings, Rng& rng, Timeline& timeline);

// Ways of macOS that a Mac has from the beginning, as actions.
[[nodiscard]] std::vector<ScenarioJson> randomQuirks(Rng& rng);

// A settings file that no app would write.
[[nodiscard]] ScenarioJson oddSettings(Rng& rng);

}  // namespace brisko::lab
