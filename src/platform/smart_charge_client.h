// platform/smart_charge_client.h
// The system's own charge limit, through its private client. Used only where the charge keys are closed.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace brisko::platform {

// Loads the framework and returns whether it has the client's class with the method that sets a limit.
[[nodiscard]] bool smartChargeClassPresent();

// Creates the process's one client under `name` on the first call and keeps it; false when that fails. The
// calls below may be made only after it returned true.
[[nodiscard]] bool makeSmartChargeClient(std::string_view name);

// Each returns no answer if the client reports an error, raises an exception, or does not understand the
// message. But when a limit is set, an error counts as a refusal.
[[nodiscard]] std::optional<bool> smartChargeLimitSupported();
[[nodiscard]] std::optional<bool> smartChargeLimitEnabled();
[[nodiscard]] std::optional<std::int64_t> smartChargeLimit();                 // percent
[[nodiscard]] std::optional<bool> setSmartChargeLimit(std::int64_t percent);  // true if accepted

}  // namespace brisko::platform
