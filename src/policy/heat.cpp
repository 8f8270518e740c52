#include "policy/heat.h"

namespace brisko {

bool pausedForHeat(const HeatInputs& inputs) {
  // Asymmetric on purpose: a battery that was too hot has to cool down properly.
  constexpr double coolerBy = 3.0;  // °C
  if (!inputs.wanted || !inputs.plugged || !inputs.temp) return false;
  const auto limit = static_cast<double>(inputs.limit);
  if (*inputs.temp >= limit) return true;
  if (*inputs.temp < limit - coolerBy) return false;
  return inputs.paused;
}

}  // namespace brisko
