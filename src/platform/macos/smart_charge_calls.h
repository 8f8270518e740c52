// platform/macos/smart_charge_calls.h
// The messages to the private client of macOS's own limit. An exception that one of them raises is caught,
// and the call then returns no answer. A message that the class does not understand must not be sent.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace brisko::platform::smart_charge {

inline constexpr const char* className = "PowerUISmartChargeClient";

// Creates the client that the other functions use, and keeps it until the process ends; the class must exist.
// False if it cannot be initialised.
[[nodiscard]] bool initWithClientName(const std::string& name);

[[nodiscard]] std::optional<bool> isMCLSupported();
// None also when the client reports an error.
[[nodiscard]] std::optional<bool> isMCLCurrentlyEnabled();
[[nodiscard]] std::optional<std::int64_t> getMCLLimit();  // percent
// An error that the client reports counts as a refusal.
[[nodiscard]] std::optional<bool> setMCLLimit(std::int64_t percent);

}  // namespace brisko::platform::smart_charge
