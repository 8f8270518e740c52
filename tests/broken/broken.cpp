#include "broken/broken.h"

#include <algorithm>

namespace brisko {
namespace {

std::string_view gBroken;  // empty: none

}  // namespace

bool isBroken(std::string_view name) { return name == gBroken; }

namespace test {

const std::vector<std::string_view>& breaks() {
  static const std::vector<std::string_view> names{BRISKO_BREAKS};
  return names;
}

bool chooseBreak(std::string_view name) {
  const auto found = std::find(breaks().begin(), breaks().end(), name);
  if (found == breaks().end()) return false;
  gBroken = *found;
  return true;
}

}  // namespace test
}  // namespace brisko
