// sim/machine/properties.h
// The machine as macOS presents it.
#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "platform/value.h"
#include "sim/machine/machine.h"

namespace brisko::virtual_mac {

// The descriptions of the power sources; none when the system returns no snapshot.
[[nodiscard]] std::optional<std::vector<platform::SharedDictionary>> powerSourceList(const Machine& machine);

// All properties of the registry entry "AppleSmartBattery", "AppleSmartBatteryPack" (nested layout) or
// "IOPMrootDomain"; null when the machine has no such entry.
[[nodiscard]] platform::SharedDictionary entryProperties(const Machine& machine, std::string_view entry);

}  // namespace brisko::virtual_mac
