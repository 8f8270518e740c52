// daemon/entry.h
// Chooses the mode from the command line.
#pragma once

#include <string>
#include <vector>

namespace brisko {

// Scans the arguments, selects the mode and runs it. Returns the exit status for main(); several modes end
// the process themselves.
[[nodiscard]] int enter(const std::vector<std::string>& arguments);

}  // namespace brisko
