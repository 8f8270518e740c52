// hardware/adapter.h
#pragma once

#include <optional>

namespace brisko {

// Whether an adapter is plugged in, cut or not: the controller's "AC-W" is 0xFF without one. If the key
// cannot be read, the last power reading decides. Reads the key again at every call.
[[nodiscard]] bool adapterPresent();

// The same by the controller alone; none when the key cannot be read.
[[nodiscard]] std::optional<bool> adapterSeen();

}  // namespace brisko
