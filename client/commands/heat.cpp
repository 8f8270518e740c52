#include "policy/heat.h"

#include <nlohmann/json.hpp>

#include "client/commands/command.h"
#include "client/local_time.h"
#include "client/setting_keys.h"

namespace brisko::client {
namespace {

std::string sentence(bool on, std::int64_t degrees) {
  if (!on) return "Charging is not paused for heat.";
  return "Charging pauses from " + std::to_string(degrees) + " °C on and resumes below " +
         degreesText(static_cast<double>(degrees) - heatRecovery) + ".";
}

}  // namespace

ExitStatus runHeat(const Context& context) {
  const auto& words = context.invocation.words;
  if (words.empty()) {
    const State state = readState(context.volume);
    return showSettings(context, state, sentence(state.settings.thermal, state.settings.thermalLimit),
                        {{"thermal", state.settings.thermal}, {"thermalLimit", state.settings.thermalLimit}});
  }
  if (words.front() == "off")
    return changeAndReport(context, readState(context.volume), {{"thermal", false}}, sentence(false, 0));
  const SettingKey& key = *findSetting("thermalLimit");
  const auto degrees = settingValue(key, words.front());
  if (!degrees) {
    return misuse(context, "heat takes \"off\" or " + allowedValues(key) + " °C, not \"" + words.front() +
                               "\"; for example: brisko heat 38");
  }
  return changeAndReport(context, readState(context.volume), {{"thermal", true}, {"thermalLimit", *degrees}},
                         sentence(true, degrees->get<std::int64_t>()));
}

}  // namespace brisko::client
