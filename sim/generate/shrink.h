// sim/generate/shrink.h
// Shrinks a failing scenario to the few things that matter: whatever can be left out while the same failure
// remains is left out.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

#include "sim/scenario/generated_scenario.h"

namespace brisko::lab {

// The first of the candidates that fails in the same way as the scenario, and the seconds from its beginning
// to the failure; none when no candidate does.
struct StillFailing {
  std::size_t index = 0;
  double seconds = 0;
};
using TryOut = std::function<std::optional<StillFailing>(const std::vector<GeneratedScenario>& candidates)>;

struct ShrinkBounds {
  std::size_t tries = 600;  // the most candidates to try
  std::size_t atOnce = 2;   // … and how many run in parallel
};

struct Shrunk {
  GeneratedScenario scenario;
  std::size_t tries = 0;
};

// `seconds` is the time of the failure. The remaining actions keep their order. They keep their times too
// while actions are removed; at the end, pauses that do not matter are shortened.
[[nodiscard]] Shrunk shrink(const GeneratedScenario& scenario, double seconds, const ShrinkBounds& bounds,
                            const TryOut& tryOut);

}  // namespace brisko::lab
