// tools/lab/what_if_command.h
// The commands "what-if" and "advise": what brisko starts for its commands of these names.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace brisko::lab {

// Parsing one of them sets `chosen` to its action, which returns the exit status.
void addWhatIfCommands(CLI::App& program, std::function<int()>& chosen);

}  // namespace brisko::lab
