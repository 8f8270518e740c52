// diagnostics/self_test.h
// The daemon's check of its own rules on the Mac where it is installed. It calls the same functions that
// decide while the daemon runs. It touches neither the controller nor macOS's own limit, and no files except
// a few of its own below the temporary folder, which it removes at the end.
#pragma once

#include <cstdint>

namespace brisko {

// Runs every check and prints only the summary to standard output. Returns 1 when a check failed, else 0.
[[nodiscard]] std::int32_t runSelfTests();

}  // namespace brisko
