// tools/lab/log_kinds.h
#pragma once

#include "sim/generate/coverage.h"

namespace brisko::lab {

// The kinds of lines that docs/log.md explains, by their names in "brisko log --json".
[[nodiscard]] LogKinds documentedLogKinds();

}  // namespace brisko::lab
