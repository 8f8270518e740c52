// diagnostics/self_test.h
// The daemon's check of its own rules on the Mac where it is installed. It calls the very functions that
// decide while the daemon runs, and touches neither the controller nor macOS's own limit nor any file but a
// few of its own below the temporary folder, which are gone at the end.
#pragma once

#include <cstdint>

namespace brisko {

// Runs every check, prints the summary to standard output and nothing else. 1 when a check failed, else 0.
[[nodiscard]] std::int32_t runSelfTests();

}  // namespace brisko
