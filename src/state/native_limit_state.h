// state/native_limit_state.h
// What is known about macOS's own charge limit, for other layers to read. Percentages; 100 means no limit.
#pragma once

#include <cstdint>
#include <optional>

namespace brisko {

// As found before it was first changed; restored when the daemon leaves.
inline std::optional<std::int64_t> gNativeBefore;
// The end of a full charge that the user asked macOS for and that is waited for; seconds since 1970.
inline std::optional<double> gNativeFullUntil;
// 80 when the configured limit is below what this Mac will hold.
inline std::optional<std::int64_t> gNativeFloor;

}  // namespace brisko
