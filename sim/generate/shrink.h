// sim/generate/shrink.h
// Cuts a scenario down to the few things that matter: what can be left out so that the same still goes wrong,
// is.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

#include "sim/generate/generated_scenario.h"

namespace brisko::lab {

// The first of the candidates that goes wrong in the same way as the scenario, and the seconds from its
// beginning until then; none when none does.
struct StillFailing {
  std::size_t index = 0;
  double seconds = 0;
};
using TryOut = std::function<std::optional<StillFailing>(const std::vector<GeneratedScenario>& candidates)>;

struct ShrinkBounds {
  std::size_t tries = 600;  // scenarios that are tried out at most
  std::size_t atOnce = 2;   // … side by side
};

struct Shrunk {
  GeneratedScenario scenario;
  std::size_t tries = 0;
};

// `seconds` is when the scenario goes wrong. What is left keeps its order, and its times while things are
// left out; in the end the pauses in which nothing matters are made shorter.
[[nodiscard]] Shrunk shrink(const GeneratedScenario& scenario, double seconds, const ShrinkBounds& bounds,
                            const TryOut& tryOut);

}  // namespace brisko::lab
