// sim/generate/scenario_generator.h
// Generates a scenario from a seed: the Mac, its user's habits and daily routine, and faults. The same seed
// gives the same bytes everywhere.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "sim/scenario/generated_scenario.h"

namespace brisko::lab {

enum class Faults : std::uint8_t {
  none,  // a Mac without faults and an ordinary user
  some,  // common faults now and then
  all,   // everything in the virtual Mac's list of faults, and damage to files
};
[[nodiscard]] std::string_view nameOf(Faults faults);

// `guard` is passed on to the daemon; empty: without that option.
[[nodiscard]] GeneratedScenario generateScenario(std::uint64_t seed, std::int64_t days, Faults faults,
                                                 const std::string& guard = "");

// The entries of the virtual Mac's list of faults that people cause by ordinary use of an obedient Mac.
[[nodiscard]] std::span<const std::string_view> everydayActions();

}  // namespace brisko::lab
