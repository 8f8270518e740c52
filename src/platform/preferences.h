// platform/preferences.h
// Preferences of the current user on any host, by domain.
#pragma once

#include <optional>
#include <string_view>

#include "platform/value.h"

namespace brisko::platform {

[[nodiscard]] std::optional<Value> preference(std::string_view domain, std::string_view key);

// Takes effect for others only after synchronizePreferences(). No value removes the key.
void setPreference(std::string_view domain, std::string_view key, std::optional<Value> value);
[[nodiscard]] bool synchronizePreferences(std::string_view domain);

// Posts a notification to the whole system.
void postNotification(std::string_view name);

}  // namespace brisko::platform
