#include <nlohmann/json.hpp>

#include "client/commands/command.h"
#include "client/setting_assignment.h"
#include "client/setting_keys.h"

namespace brisko::client {

ExitStatus runGet(const Context& context) {
  const auto& words = context.invocation.words;
  if (!words.empty() && findSetting(words.front()) == nullptr)
    return misuse(context, unknownKey(words.front()));
  const State state = readState(context.volume);
  const Json all = configObject(state.settings);
  if (!words.empty()) {
    const Json& value = all.at(words.front());
    return showSettings(context, state, valueText(value), {{words.front(), value}});
  }
  std::string text;
  for (const SettingKey& key : settingKeys()) {
    std::string line = std::string(key.name) + "=" + valueText(all.at(key.name));
    line.resize(std::max<std::size_t>(line.size() + 1, 24), ' ');
    text += (text.empty() ? "" : "\n") + line + key.meaning;
    if (*key.unit != '\0') text += std::string(" (") + key.unit + ")";
  }
  return showSettings(context, state, text, all);
}

}  // namespace brisko::client
