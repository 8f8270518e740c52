// For programs with their own arguments: BRISKO_MUTANT names the active mutant.

#include <cstdio>
#include <cstdlib>

#include "mutants/mutant.h"

namespace brisko::test {
namespace {

[[maybe_unused]] const bool gActivated = [] {
  const char* name = std::getenv("BRISKO_MUTANT");
  if (name == nullptr || activateMutant(name)) return true;
  std::fprintf(stderr, "unknown mutant %s\n", name);
  std::_Exit(64);
}();

}  // namespace
}  // namespace brisko::test
