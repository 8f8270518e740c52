// tools/lab/fail_calls_command.h
// The lab's command that runs scenarios in which one call of the daemon fails.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace brisko::lab {

// Adds it. If it is on the command line, `chosen` runs it and returns the exit status.
void addFailCallsCommand(CLI::App& program, std::function<int()>& chosen);

}  // namespace brisko::lab
