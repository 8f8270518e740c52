#include "policy/top_up.h"

namespace brisko {

TopUpOutcome topUpOutcome(const TopUpInputs& inputs) {
  constexpr double secondsPerHour = 3600.0;
  if (inputs.hours >= 1 && inputs.elapsed > static_cast<double>(inputs.hours) * secondsPerHour)
    return TopUpOutcome::expired;
  return inputs.adapterPresent ? TopUpOutcome::continues : TopUpOutcome::unplugged;
}

}  // namespace brisko
