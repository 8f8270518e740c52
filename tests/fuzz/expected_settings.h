// tests/fuzz/expected_settings.h
// What the settings of an object are, worked out by other means than the daemon's.
#pragma once

#include <optional>

#include "base/settings.h"

namespace brisko {

// None when a number under an integer key is meant to end the process.
[[nodiscard]] std::optional<Settings> expectedSettings(const Json& object);

}  // namespace brisko
