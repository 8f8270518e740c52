// platform/macos/smart_charge_calls.h
// The messages to the private client of macOS's own limit, sent by name and nothing more. An exception that
// one of them raises ends there; the answer is none then. A message that the class does not understand must
// not be sent.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace brisko::platform::smart_charge {

inline constexpr const char* className = "PowerUISmartChargeClient";

// Makes the client that the others ask, and keeps it for ever; the class must be there. False when it cannot
// be initialised.
[[nodiscard]] bool initWithClientName(const std::string& name);

[[nodiscard]] std::optional<bool> isMCLSupported();
// None also when the client reports an error.
[[nodiscard]] std::optional<bool> isMCLCurrentlyEnabled();
[[nodiscard]] std::optional<std::int64_t> getMCLLimit();  // percent
// An error that the client reports is a no.
[[nodiscard]] std::optional<bool> setMCLLimit(std::int64_t percent);

}  // namespace brisko::platform::smart_charge
