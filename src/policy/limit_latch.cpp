#include "policy/limit_latch.h"

namespace brisko {

bool limitLatch(const LimitLatchInputs& inputs) {
  if (inputs.changed || !inputs.enabled) return false;
  if (inputs.pct >= inputs.target) return true;
  return inputs.pct > inputs.floor && inputs.before.value_or(true);
}

}  // namespace brisko
