#include <nlohmann/json.hpp>

#include "client/commands/command.h"
#include "client/setting_keys.h"

namespace brisko::client {
namespace {

std::string sentence(bool on) {
  return on ? "The light of the connector is green while the charge is held, and blinks green while it moves "
              "to its target."
            : "The light of the connector is left to macOS.";
}

}  // namespace

ExitStatus runLight(const Context& context) {
  const auto& words = context.invocation.words;
  if (words.empty()) {
    const State state = readState(context.volume);
    return showSettings(context, state, sentence(state.settings.led), {{"led", state.settings.led}});
  }
  const auto value = settingValue(*findSetting("led"), words.front());
  if (!value) return misuse(context, "write \"brisko light on\" or \"brisko light off\"");
  const State state = readState(context.volume);
  const bool on = value->get<bool>();
  if (on && state.status && !state.status->ledSupported) {
    context.output.complain("this Mac has no light that the daemon can drive");
    return ExitStatus::notDone;
  }
  return changeAndReport(context, state, {{"led", on}}, sentence(on));
}

}  // namespace brisko::client
