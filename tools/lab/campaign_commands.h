// tools/lab/campaign_commands.h
// The commands that make scenarios up: "campaign" plays them, "description" prints one.
#pragma once

#include <functional>

namespace CLI {
class App;
}

namespace brisko::lab {

// Parsing one of them sets `chosen` to what it does, which returns the exit status.
void addCampaignCommands(CLI::App& program, std::function<int()>& chosen);

}  // namespace brisko::lab
