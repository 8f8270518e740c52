#include "sim/what_if/advice.h"

namespace brisko::lab {

std::vector<std::int64_t> limitsToTry() {
  std::vector<std::int64_t> limits;
  for (std::int64_t limit = 60; limit <= 100; limit += 5) limits.push_back(limit);
  return limits;
}

std::int64_t limitThatIsNoWorse(const std::vector<TriedLimit>& tried) {
  const std::size_t unavoidable = tried.back().figures.timesEmpty;
  std::int64_t lowest = tried.back().limit;
  for (auto each = tried.rbegin(); each != tried.rend() && each->figures.timesEmpty <= unavoidable; ++each)
    lowest = each->limit;
  return lowest;
}

std::optional<std::int64_t> advisedLimit(const std::vector<TriedLimit>& tried) {
  if (tried.back().figures.timesEmpty > 0) return std::nullopt;
  return limitThatIsNoWorse(tried);
}

}  // namespace brisko::lab
