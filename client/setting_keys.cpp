#include "client/setting_keys.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <nlohmann/json.hpp>

#include "base/checked.h"
#include "base/options.h"

namespace brisko::client {
namespace {

constexpr SettingType boolean = SettingType::boolean;
constexpr SettingType integer = SettingType::integer;
constexpr SettingType number = SettingType::number;

constexpr std::array<SettingKey, 16> allKeys{{
    {"enabled", boolean, 0, 1, "", "limit the charge", false},
    {"limit", integer, 20, 100, "%", "charging stops here; 100 means no limit", false},
    {"hysteresis", integer, 1, 20, "points", "width of the band below the limit", false},
    {"discharge", boolean, 0, 1, "", "discharge to the limit while plugged in", false},
    {"led", boolean, 0, 1, "", "drive the MagSafe light", false},
    {"blinkSeconds", number, 0.3, 60, "s", "half the period of the blinking light", false},
    {"thermal", boolean, 0, 1, "", "pause charging while the battery is hot", false},
    {"thermalLimit", integer, 25, 60, "°C", "the battery is hot from here on", false},
    {"topUp", boolean, 0, 1, "", "request: charge to full once", true},
    {"topUpHours", integer, 0, 168, "h", "how long that may last; 0 means until unplugged", false},
    {"history", boolean, 0, 1, "", "record the charge history", false},
    {"historyDays", integer, 7, 3650, "days", "how long to keep it", false},
    {"calibrate", boolean, 0, 1, "", "request: run a calibration", true},
    {"calDrain", integer, 5, 90, "%", "how far a calibration drains", false},
    {"calSoakMinutes", integer, 0, 1440, "min", "how long a calibration rests at full charge", false},
    {"resetStats", boolean, 0, 1, "", "request: reset the statistics", true},
}};

std::string numberText(double value) {
  std::array<char, 40> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), "%g", value));
  return text.data();
}

std::optional<bool> truthIn(std::string_view text) {
  if (text == "on" || text == "true" || text == "yes") return true;
  if (text == "off" || text == "false" || text == "no") return false;
  return std::nullopt;
}

bool isWithin(const SettingKey& key, double value) { return value >= key.least && value <= key.most; }

// The daemon counts the rest of a calibration in seconds.
bool isCountable(std::int64_t minutes) {
  constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max() / 60;
  return minutes <= most && minutes >= -most;
}

// Digits and a point only: no "inf", no exponent, no blank.
std::optional<double> decimalIn(std::string_view text) {
  if (text.empty() || text.find_first_not_of("0123456789.") != std::string_view::npos) return std::nullopt;
  const std::string copy(text);
  char* end = nullptr;
  const double value = std::strtod(copy.c_str(), &end);
  if (end != copy.c_str() + copy.size()) return std::nullopt;
  return value;
}

}  // namespace

std::span<const SettingKey> settingKeys() { return allKeys; }

const SettingKey* findSetting(std::string_view name) {
  const auto found = std::find_if(allKeys.begin(), allKeys.end(),
                                  [name](const SettingKey& key) { return key.name == name; });
  return found == allKeys.end() ? nullptr : &*found;
}

std::string allowedValues(const SettingKey& key) {
  if (key.type == boolean) return "on or off";
  return std::string(key.type == integer ? "a whole number" : "a number") + " from " + numberText(key.least) +
         " to " + numberText(key.most);
}

std::optional<Json> settingValue(const SettingKey& key, std::string_view text) {
  if (key.type == boolean) {
    const auto truth = truthIn(text);
    return truth ? std::optional<Json>(*truth) : std::nullopt;
  }
  if (key.type == number) {
    const auto value = decimalIn(text);
    return value && isWithin(key, *value) ? std::optional<Json>(*value) : std::nullopt;
  }
  const auto value = parseInteger(text);
  return value && isWithin(key, static_cast<double>(*value)) ? std::optional<Json>(*value) : std::nullopt;
}

std::optional<std::string> whyFatal(const Json& settings) {
  for (const SettingKey& key : allKeys) {
    if (key.type != integer) continue;
    const auto real = numberAt(settings, key.name);
    if (!real) continue;
    auto value = integerAt(settings, key.name);
    if (!value) value = fittingInteger(*real);
    if (!value || (std::string_view(key.name) == "calSoakMinutes" && !isCountable(*value)))
      return std::string(key.name) + " is too large for any number";
  }
  return std::nullopt;
}

std::string valueText(const Json& value) {
  if (value.is_boolean()) return value.get<bool>() ? "on" : "off";
  if (value.is_number_float()) return numberText(value.get<double>());
  return value.dump();
}

}  // namespace brisko::client
