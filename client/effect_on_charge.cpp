#include "client/effect_on_charge.h"

#include <array>
#include <nlohmann/json.hpp>

#include "client/setting_keys.h"

namespace brisko::client {
namespace {

constexpr std::array withoutEffect{"led", "blinkSeconds", "history", "historyDays"};

}  // namespace

std::string whyNeverMatters(const std::string& key) {
  for (const char* each : withoutEffect) {
    if (key == each) return key + " cannot matter: it does not change the charge";
  }
  const SettingKey* known = findSetting(key);
  if (known != nullptr && known->isRequest)
    return key + " cannot be compared: it is a request that the daemon serves once";
  return "";
}

std::string whyDoesNotMatter(const Json& keys, const Settings& settings, bool lowerGiven) {
  Json whole = configObject(settings);
  whole.update(keys);
  const Settings after = parseConfig(whole);
  const auto asks = [&keys](const char* key) { return keys.contains(key); };
  for (const char* key : {"limit", "hysteresis", "discharge", "thermal", "thermalLimit"}) {
    if (asks(key) && !after.enabled)
      return std::string(key) + " cannot matter while the charge is not limited; add enabled=on";
  }
  if (asks("thermalLimit") && !after.thermal)
    return "thermalLimit cannot matter while charging does not pause for heat; add thermal=on";
  if (asks("hysteresis") && lowerGiven)
    return "hysteresis cannot matter: the daemon was started with --lower, which replaces it";
  return "";
}

}  // namespace brisko::client
