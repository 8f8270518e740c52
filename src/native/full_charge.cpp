#include "native/full_charge.h"

namespace brisko {

FullCharge fullCharge(const FullChargeInputs& inputs) {
  if (!inputs.until || *inputs.until <= inputs.now || inputs.settingsChanged) return FullCharge::none;
  if (inputs.hot) return FullCharge::tooHot;
  const double since = inputs.now - inputs.seenAt.value_or(inputs.now);
  return since < longestFullCharge ? FullCharge::waits : FullCharge::overdue;
}

}  // namespace brisko
