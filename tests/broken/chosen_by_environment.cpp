// For programs that have words of their own: BRISKO_BREAK names the rule that is broken.

#include <cstdio>
#include <cstdlib>

#include "broken/broken.h"

namespace brisko::test {
namespace {

[[maybe_unused]] const bool gChosen = [] {
  const char* name = std::getenv("BRISKO_BREAK");
  if (name == nullptr || chooseBreak(name)) return true;
  std::fprintf(stderr, "there is no break named %s\n", name);
  std::_Exit(64);
}();

}  // namespace
}  // namespace brisko::test
