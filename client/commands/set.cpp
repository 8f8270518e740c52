#include <nlohmann/json.hpp>

#include "client/commands/command.h"
#include "client/setting_keys.h"

namespace brisko::client {
namespace {

// Adds one assignment; the reason when it is invalid.
std::string take(const std::string& word, Json& keys) {
  const std::size_t equals = word.find('=');
  const std::string name = word.substr(0, equals);
  const SettingKey* key = findSetting(name);
  if (key == nullptr) return unknownKey(name);
  if (equals == std::string::npos)
    return "\"" + name + "\" needs a value; for example: brisko set " + name + "=…";
  const std::string text = word.substr(equals + 1);
  const auto value = settingValue(*key, text);
  if (!value) return name + " is " + allowedValues(*key) + ", not \"" + text + "\"";
  if (keys.contains(name)) return "\"" + name + "\" is set twice";
  keys[name] = *value;
  return "";
}

}  // namespace

ExitStatus runSet(const Context& context) {
  Json keys = Json::object();
  for (const std::string& word : context.invocation.words) {
    if (const std::string reason = take(word, keys); !reason.empty()) return misuse(context, reason);
  }
  std::string sentence;
  for (const auto& [name, value] : keys.items())
    sentence += (sentence.empty() ? "" : ", ") + name + " is " + valueText(value);
  return changeAndReport(context, readState(context.volume), keys, sentence + ".");
}

}  // namespace brisko::client
