// tests/mutants/mutant.h
// Which rule is broken in this process.
#pragma once

#include <string_view>
#include <vector>

namespace brisko {

// True for the break that was chosen.
[[nodiscard]] bool isMutated(std::string_view name);

namespace test {

// The names of all breaks.
[[nodiscard]] const std::vector<std::string_view>& mutants();

// False when there is no such break.
[[nodiscard]] bool activateMutant(std::string_view name);

}  // namespace test
}  // namespace brisko
