#include "policy/heat.h"

namespace brisko {

bool pausedForHeat(const HeatInputs& inputs) {
  if (!inputs.wanted || !inputs.plugged || !inputs.temp) return false;
  const auto limit = static_cast<double>(inputs.limit);
  if (*inputs.temp >= limit) return true;
  if (*inputs.temp < limit - heatRecovery) return false;
  return inputs.paused;
}

}  // namespace brisko
