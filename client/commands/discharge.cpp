#include <nlohmann/json.hpp>

#include "client/commands/command.h"
#include "client/setting_keys.h"

namespace brisko::client {
namespace {

std::string sentence(bool on) {
  return on ? "Above the limit the Mac runs from its battery, also while it is plugged in."
            : "Discharging is off: above the limit the charge is held.";
}

}  // namespace

ExitStatus runDischarge(const Context& context) {
  const auto& words = context.invocation.words;
  if (words.empty()) {
    const State state = readState(context.volume);
    return showSettings(context, state, sentence(state.settings.discharge),
                        {{"discharge", state.settings.discharge}});
  }
  const auto value = settingValue(*findSetting("discharge"), words.front());
  if (!value) return misuse(context, "write \"brisko discharge on\" or \"brisko discharge off\"");
  const State state = readState(context.volume);
  const bool on = value->get<bool>();
  if (on && state.status && !state.status->dischargeSupported) {
    context.output.complain("this Mac cannot run from its battery while it is plugged in; unplug it instead");
    return ExitStatus::notDone;
  }
  return changeAndReport(context, state, {{"discharge", on}}, sentence(on));
}

}  // namespace brisko::client
