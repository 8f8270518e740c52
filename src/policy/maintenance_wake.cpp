#include "policy/maintenance_wake.h"

namespace brisko {

WakeDecision decideWake(const WakeInputs& inputs) {
  if (inputs.full) return {.dischargeNow = inputs.dischargeOn};
  const bool waits = inputs.dischargeOn && inputs.pct > inputs.target;
  return {.dischargeNow = false,
          .logWait = waits && !inputs.waitLogged,
          .waitLogged = waits || inputs.waitLogged};
}

}  // namespace brisko
