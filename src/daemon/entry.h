// daemon/entry.h
// From the command line to a mode.
#pragma once

#include <string>
#include <vector>

namespace brisko {

// Scans the arguments, picks the mode and runs it. Returns the status for main() to return; several modes end
// the process themselves.
[[nodiscard]] int enter(const std::vector<std::string>& arguments);

}  // namespace brisko
