// tools/lab/nights_command.h
// The lab's command that spends generated nights and prints what they come to.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace brisko::lab {

// Adds it. If it is on the command line, `chosen` runs it and returns the exit status.
void addNightsCommand(CLI::App& program, std::function<int()>& chosen);

}  // namespace brisko::lab
