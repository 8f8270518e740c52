// platform/power_sources.h
// The system's published list of power sources: battery, UPS.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "platform/value.h"

namespace brisko::platform {

// The descriptions of the power sources in the system's order, each a dictionary with the system's keys
// ("Type", "Power Source State", "Current Capacity", …). None when there is no snapshot or no list; an empty
// list is returned as one.
[[nodiscard]] std::optional<std::vector<SharedDictionary>> powerSources();

// Calls `changed` on the main thread from the run loop after every published change of a source, until the
// process ends. False when the system offers no such notification; start-up continues then.
[[nodiscard]] bool addPowerSourceNotification(std::function<void()> changed);

}  // namespace brisko::platform
