// tools/lab/merge_command.h
// The lab's command that adds up the summaries of a campaign's shards.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace brisko::lab {

// Adds it. If it is on the command line, `chosen` runs it and returns the exit status.
void addMergeCommand(CLI::App& program, std::function<int()>& chosen);

}  // namespace brisko::lab
