// client/setting_keys.h
// The 16 keys of the settings, for people who change them: their types, ranges and meanings. The daemon
// itself checks no ranges, so they are checked here.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "base/json_file.h"

namespace brisko::client {

enum class SettingType : std::uint8_t { boolean, integer, number };

struct SettingKey {
  const char* name;
  SettingType type;
  double least;  // of numbers
  double most;
  const char* unit;
  const char* meaning;
  bool isRequest;  // the daemon serves it once and then clears it
};

// In the order of the document about the files.
[[nodiscard]] std::span<const SettingKey> settingKeys();
[[nodiscard]] const SettingKey* findSetting(std::string_view name);  // null if unknown

// "on or off", "a whole number from 20 to 100".
[[nodiscard]] std::string allowedValues(const SettingKey& key);

// The value in a text: "on", "off", "true", "false", or a number within the range. None when it is not one.
[[nodiscard]] std::optional<Json> settingValue(const SettingKey& key, std::string_view text);

// Why the value of a key in a settings file is invalid, as a clause; none if it is valid. A value of another
// type or out of range is not an error, because the daemon handles it. Only a number that does not fit 64
// bits is an error, because it ends the daemon.
[[nodiscard]] std::optional<std::string> whyFatal(const Json& settings);

// The value as text for people: "on", "80".
[[nodiscard]] std::string valueText(const Json& value);

}  // namespace brisko::client
