#include "mutants/mutant.h"

#include <algorithm>

namespace brisko {
namespace {

std::string_view gActiveMutant;  // empty: none

}  // namespace

bool isMutated(std::string_view name) { return name == gActiveMutant; }

namespace test {

const std::vector<std::string_view>& mutants() {
  static const std::vector<std::string_view> names{BRISKO_MUTANTS};
  return names;
}

bool activateMutant(std::string_view name) {
  const auto found = std::find(mutants().begin(), mutants().end(), name);
  if (found == mutants().end()) return false;
  gActiveMutant = *found;
  return true;
}

}  // namespace test
}  // namespace brisko
