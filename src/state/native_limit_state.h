// state/native_limit_state.h
// What is known of macOS's own charge limit, for others to read. Percentages; 100 is no limit.
#pragma once

#include <cstdint>
#include <optional>

namespace brisko {

// As found before it was first changed; given back when the daemon leaves.
inline std::optional<std::int64_t> gNativeBefore;
// 80 when the limit of the settings is below what this Mac will hold.
inline std::optional<std::int64_t> gNativeFloor;

}  // namespace brisko
