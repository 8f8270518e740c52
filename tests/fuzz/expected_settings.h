// tests/fuzz/expected_settings.h
// The settings in an object, computed in another way than the daemon does.
#pragma once

#include <optional>

#include "base/settings.h"

namespace brisko {

// Missing if a number under an integer key must end the process.
[[nodiscard]] std::optional<Settings> expectedSettings(const Json& object);

}  // namespace brisko
