// tools/lab/replay_command.h
// The lab's command that plays the days of a bug report again.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace brisko::lab {

// Adds it. If it is on the command line, `chosen` runs it and returns the exit status.
void addReplayCommand(CLI::App& program, std::function<int()>& chosen);

}  // namespace brisko::lab
