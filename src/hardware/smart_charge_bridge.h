// hardware/smart_charge_bridge.h
// macOS's own charge limit, through its private client and its preferences. Percentages; 100 means no limit.
#pragma once

#include <cstdint>
#include <optional>

namespace brisko {

// The four calls of the client, which is created on first use and kept. Each returns 1 for yes or success, 0
// for no or failure, and -1 without a client or if the client reports an error, does not understand the call
// or raises an exception.
[[nodiscard]] std::int32_t CKMCLSupported();
[[nodiscard]] std::int32_t CKMCLEnabled();
// The limit itself, or -1.
[[nodiscard]] std::int32_t CKMCLLimit();
// The client accepts 80 to 100 in steps of 5. Any other value fails without a call, and an error that the
// client reports is a failure too.
[[nodiscard]] std::int32_t CKMCLSetLimit(std::int32_t pct);

namespace NativeLimit {

// The preferences that store the limit, for the current user on any host.
inline constexpr const char* domain = "com.apple.smartcharging.topoffprotection";

// Sets the limit, clamped to 1…100. A value that the client does not accept is written to the preferences,
// after the feature is switched on through the client; `prime` first sets 80 there in any case. True when the
// client agreed, or when the preferences could be stored. Accepted is not held: macOS shows what it enforces
// in the key "bfG0".
[[nodiscard]] bool write(std::int64_t pct, bool prime);

// The end of a full charge that the user requested from macOS, seconds since 1970; may be in the past. None
// without a request.
[[nodiscard]] std::optional<double> tempDisabledUntil();

// Ends that full charge. True when the preferences could be stored.
[[nodiscard]] bool endFullCharge();

}  // namespace NativeLimit
}  // namespace brisko
