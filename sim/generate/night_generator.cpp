#include "sim/generate/night_generator.h"

#include <array>

namespace brisko::lab {

std::vector<ScenarioJson> randomNights(Rng& rng) {
  std::vector<ScenarioJson> actions;
  actions.push_back(actionOf("scheduled-wakes", rng.between(0, 1)));
  constexpr std::array nights{"upkeep-nights", "upkeep-nights", "busy-nights", "quiet-nights"};
  actions.emplace_back(rng.oneOf(nights));
  actions.push_back(actionOf("battery-wakes", rng.between(5, 45)));
  actions.push_back(actionOf("adapter-wakes", rng.percent(75) ? 1 : 0));
  actions.push_back(actionOf("cut-keeps-external", rng.oneIn(3) ? 1 : 0));
  actions.push_back(actionOf("late-capabilities", rng.oneIn(4) ? 1 : 0));
  return actions;
}

}  // namespace brisko::lab
