// platform/smart_charge_client.h
// The system's own charge limit as its private client offers it. Used only where the charge keys are closed.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace brisko::platform {

// Loads the framework and says whether the client's class is there and knows how to set a limit.
[[nodiscard]] bool smartChargeClassPresent();

// The one client of the process under `name`, made on the first call and kept for ever; false when it cannot
// be had. The calls below are made only after it gave true.
[[nodiscard]] bool makeSmartChargeClient(std::string_view name);

// Each answer is none when it cannot be had: the client reports an error, raises an exception, or does not
// know the question. Of these an error alone is a no when a limit is set.
[[nodiscard]] std::optional<bool> smartChargeLimitSupported();
[[nodiscard]] std::optional<bool> smartChargeLimitEnabled();
[[nodiscard]] std::optional<std::int64_t> smartChargeLimit();                 // percent
[[nodiscard]] std::optional<bool> setSmartChargeLimit(std::int64_t percent);  // the system's yes or no

}  // namespace brisko::platform
