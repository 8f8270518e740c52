#include "policy/decision.h"

namespace brisko {
namespace {

ChargeState decideDrain(const DecisionInputs& inputs) {
  if (inputs.pct <= inputs.calDrive->target) return ChargeState::hold;
  if (inputs.drainWaits && inputs.adapterPresent) return ChargeState::hold;
  // Without an adapter there is nothing to cut: the battery drains by itself.
  return inputs.canDischarge && inputs.adapterPresent ? ChargeState::discharge : ChargeState::allow;
}

}  // namespace

ChargeState decideState(const DecisionInputs& inputs) {
  if (!inputs.calDrive && !inputs.enabled) return ChargeState::allow;
  if (inputs.thermalPaused) return ChargeState::hold;
  if (inputs.calDrive) return inputs.calDrive->toFull ? ChargeState::allow : decideDrain(inputs);
  if (!inputs.adapterPresent) return ChargeState::allow;

  const bool mayDischarge = inputs.dischargeNow && inputs.pct > inputs.target;
  if (inputs.state == ChargeState::discharge)
    return mayDischarge ? ChargeState::discharge : ChargeState::hold;
  if (!inputs.plugged || inputs.pct <= inputs.floor) return ChargeState::allow;
  if (inputs.pct >= inputs.target) return mayDischarge ? ChargeState::discharge : ChargeState::hold;
  // Inside the band: once the limit was reached, charging stays stopped down to the floor.
  return inputs.atLimit ? ChargeState::hold : ChargeState::allow;
}

}  // namespace brisko
