// tests/mutants/mutant.h
// The active mutant of this process.
#pragma once

#include <string_view>
#include <vector>

namespace brisko {

// True for the active mutant.
[[nodiscard]] bool isMutated(std::string_view name);

namespace test {

// The names of all mutants.
[[nodiscard]] const std::vector<std::string_view>& mutants();

// False if there is no such mutant.
[[nodiscard]] bool activateMutant(std::string_view name);

}  // namespace test
}  // namespace brisko
