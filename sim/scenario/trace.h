// Everything that a run left behind as one text, to compare two runs to the byte.
#pragma once

#include <string>

#include "sim/process/simulation.h"

namespace brisko::lab {

// The log, the files of the Mac's volume by path, and the journal since the checkpoint: each key write,
// request and change of macOS's limit with its machine time.
[[nodiscard]] std::string traceOf(const sim::Simulation& simulation);

}  // namespace brisko::lab
