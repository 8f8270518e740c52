// tools/lab/campaign_commands.h
// The commands for generated scenarios: "campaign" runs them, "description" prints one.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace brisko::lab {

// The exit status for a wrong command line.
inline constexpr int usageError = 2;

// Parsing one of them sets `chosen` to its action, which returns the exit status.
void addCampaignCommands(CLI::App& program, std::function<int()>& chosen);

}  // namespace brisko::lab
