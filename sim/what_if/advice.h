// sim/what_if/advice.h
// The choice of a limit: how much the battery ages with each, against how often it would have run out.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "sim/what_if/figures.h"

namespace brisko::lab {

// 60 to 100 %, in steps of 5.
[[nodiscard]] std::vector<std::int64_t> limitsToTry();

struct TriedLimit {
  std::int64_t limit = 0;
  Figures figures = {};
};

// The lowest limit with which, and with every higher one, the battery would never have run out; none if it
// would have even with the highest. `tried` is in order of the limits.
[[nodiscard]] std::optional<std::int64_t> advisedLimit(const std::vector<TriedLimit>& tried);

// The lowest limit with which, and with every higher one, it would have run out no more often than with the
// highest.
[[nodiscard]] std::int64_t limitThatIsNoWorse(const std::vector<TriedLimit>& tried);

}  // namespace brisko::lab
