// native/native_limit_state.h
// What is known of macOS's own charge limit, for others to read.
#pragma once

#include <cstdint>
#include <optional>

namespace brisko {

inline std::optional<std::int64_t> gNativeBefore;  // percent, as found before it was first changed
inline std::optional<std::int64_t> gNativeFloor;   // percent, the lowest limit that macOS takes

}  // namespace brisko
