// sim/generate/scenario_generator.h
// Somebody with a Mac, generated from a seed: what Mac it is, what its user is like and does all day, and
// what goes wrong meanwhile. The same seed gives the same bytes everywhere.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "sim/generate/generated_scenario.h"

namespace brisko::lab {

enum class Faults : std::uint8_t {
  none,  // an obedient Mac and a human user
  some,  // now and then what is common
  all,   // whatever the virtual Mac's list of faults has, and what can happen to files
};
[[nodiscard]] std::string_view nameOf(Faults faults);

[[nodiscard]] GeneratedScenario generateScenario(std::uint64_t seed, std::int64_t days, Faults faults);

// The faults of the virtual Mac's list that are no more than what people do with an obedient one.
[[nodiscard]] std::span<const std::string_view> everydayActions();

}  // namespace brisko::lab
