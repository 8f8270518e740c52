#include "client/setting_assignment.h"

#include <nlohmann/json.hpp>
#include <vector>

#include "base/nearest_name.h"
#include "client/setting_keys.h"

namespace brisko::client {

std::string unknownKey(const std::string& name) {
  std::vector<std::string> names;
  for (const SettingKey& key : settingKeys()) names.emplace_back(key.name);
  const auto nearest = nearestName(name, names);
  return "unknown setting \"" + name + "\"" +
         (nearest ? "; did you mean \"" + *nearest + "\"?" : "; brisko get lists them all");
}

std::string takeAssignment(const std::string& word, const std::string& command, Json& keys) {
  const std::size_t equals = word.find('=');
  const std::string name = word.substr(0, equals);
  const SettingKey* key = findSetting(name);
  if (key == nullptr) return unknownKey(name);
  if (equals == std::string::npos)
    return "\"" + name + "\" needs a value; for example: brisko " + command + " " + name + "=…";
  const std::string text = word.substr(equals + 1);
  const auto value = settingValue(*key, text);
  if (!value) return name + " is " + allowedValues(*key) + ", not \"" + text + "\"";
  if (keys.contains(name)) return "\"" + name + "\" is set twice";
  keys[name] = *value;
  return "";
}

}  // namespace brisko::client
