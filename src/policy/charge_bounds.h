// policy/charge_bounds.h
#pragma once

#include <cstdint>

namespace brisko {

// The band in which the charge is kept, percent: charging stops at `upper` and starts again at `lower`.
struct Bounds {
  std::int64_t upper = 80;  // 20 … 100
  std::int64_t lower = 75;  // always below upper
  bool operator==(const Bounds&) const = default;
};

// The band for a limit; any number is allowed. If `cliLower` is 0 or above, it is a lower bound from the
// command line and overrides the hysteresis.
[[nodiscard]] Bounds bounds(std::int64_t limit, std::int64_t cliLower, std::int64_t hysteresis);

}  // namespace brisko
