#include "policy/charge_bounds.h"

#include <algorithm>

namespace brisko {

Bounds bounds(std::int64_t limit, std::int64_t cliLower, std::int64_t hysteresis) {
  constexpr std::int64_t lowest = 20;
  constexpr std::int64_t highest = 100;
  constexpr std::int64_t widestMargin = 20;
  const std::int64_t upper = std::clamp(limit, lowest, highest);
  const std::int64_t margin = std::clamp<std::int64_t>(hysteresis, 1, widestMargin);
  const std::int64_t lower = cliLower >= 0 ? cliLower : std::max(upper - margin, lowest);
  // Last, so that the band is never empty: even the lowest limit leaves one point.
  return {upper, std::min(lower, upper - 1)};
}

}  // namespace brisko
