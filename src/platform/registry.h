// platform/registry.h
// The properties of the system's registry entries.
#pragma once

#include <optional>
#include <string_view>

#include "platform/value.h"

namespace brisko::platform {

// All properties of the first service named `entry` ("AppleSmartBattery"); null when there is no such service
// or its properties cannot be read.
[[nodiscard]] SharedDictionary registryProperties(std::string_view entry);

// One property of the first service named `entry`; none when service or property is missing.
[[nodiscard]] std::optional<Value> registryProperty(std::string_view entry, std::string_view key);

}  // namespace brisko::platform
