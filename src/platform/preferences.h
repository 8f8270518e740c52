// platform/preferences.h
// Preferences of the current user on any host, by domain.
#pragma once

#include <optional>
#include <string_view>

#include "platform/value.h"

namespace brisko::platform {

[[nodiscard]] std::optional<Value> preference(std::string_view domain, std::string_view key);

// Others see it only after synchronizePreferences(). No value removes the key.
void setPreference(std::string_view domain, std::string_view key, std::optional<Value> value);
[[nodiscard]] bool synchronizePreferences(std::string_view domain);

// Posts a system-wide notification.
void postNotification(std::string_view name);

}  // namespace brisko::platform
