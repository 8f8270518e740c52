#include "base/nearest_name.h"

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <utility>

namespace brisko {
namespace {

std::size_t distanceBetween(std::string_view one, std::string_view other) {
  std::vector<std::size_t> row(other.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t from = 0; from < one.size(); ++from) {
    std::size_t diagonal = std::exchange(row[0], from + 1);
    for (std::size_t to = 0; to < other.size(); ++to) {
      const std::size_t replaced = diagonal + (one[from] == other[to] ? 0 : 1);
      diagonal = row[to + 1];
      row[to + 1] = std::min({replaced, row[to] + 1, row[to + 1] + 1});
    }
  }
  return row.back();
}

}  // namespace

std::optional<std::string> nearestName(std::string_view name, const std::vector<std::string>& names) {
  std::optional<std::string> nearest;
  std::size_t fewest = std::max<std::size_t>(name.size() / 3, 1) + 1;
  for (const std::string& known : names) {
    const std::size_t count = distanceBetween(name, known);
    if (count >= fewest) continue;
    fewest = count;
    nearest = known;
  }
  return nearest;
}

}  // namespace brisko
