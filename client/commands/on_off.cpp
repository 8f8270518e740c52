#include <nlohmann/json.hpp>

#include "client/commands/command.h"

namespace brisko::client {

ExitStatus runOn(const Context& context) {
  const State state = readState(context.volume);
  return changeAndReport(context, state, {{"enabled", true}},
                         "Limiting is on, at " + std::to_string(state.settings.limit) + " %.");
}

ExitStatus runOff(const Context& context) {
  return changeAndReport(context, readState(context.volume), {{"enabled", false}},
                         "Limiting is off: the Mac charges as macOS decides.");
}

}  // namespace brisko::client
