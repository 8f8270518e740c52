// hardware/smart_charge_bridge.h
// macOS's own charge limit, as its private client and its preferences offer it. Percentages; 100 is no limit.
#pragma once

#include <cstdint>
#include <optional>

namespace brisko {

// The four calls of the client, which is made on first use and kept. Each gives 1 for yes or success, 0 for
// no or failure, and -1 without a client, when the client reports an error, and when it does not know the
// call or raises an exception.
[[nodiscard]] std::int32_t CKMCLSupported();
[[nodiscard]] std::int32_t CKMCLEnabled();
// The limit itself, or -1.
[[nodiscard]] std::int32_t CKMCLLimit();
// The client takes 80 to 100 in steps of 5; it is not asked for anything else, and that is a failure. So is
// an error that it reports.
[[nodiscard]] std::int32_t CKMCLSetLimit(std::int32_t pct);

namespace NativeLimit {

// Of the preferences that hold the limit, for the current user on any host.
inline constexpr const char* domain = "com.apple.smartcharging.topoffprotection";

// Sets the limit, bounded to 1…100. What the client does not take is written into the preferences, once the
// feature is switched on through the client; `prime` has it set to 80 there in any case. True when the client
// agreed, or when the preferences could be stored. Accepted is not held: macOS shows what it enforces in the
// key "bfG0".
[[nodiscard]] bool write(std::int64_t pct, bool prime);

// Until when the user has asked macOS to charge to full, seconds since 1970; may be over. None when they have
// not.
[[nodiscard]] std::optional<double> tempDisabledUntil();

}  // namespace NativeLimit
}  // namespace brisko
