#include "records/statistics.h"

#include <algorithm>

#include "platform/clock.h"
#include "policy/charge_state.h"

namespace brisko {

void statisticsTick() {
  constexpr double mostPerTick = 60.0;  // seconds
  const double now = platform::wallNow();
  const double elapsed = now - gLastStatsTick;
  gLastStatsTick = now;
  if (isProtecting()) gProtectedSeconds += std::min(elapsed, mostPerTick);
}

}  // namespace brisko
