// base/checked.h
// Conversions that must not fail silently. A fatal failure ends the process at once, also in release builds:
// one line on standard error, then abort. No exit hook runs and nothing can catch it.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace brisko {

[[noreturn]] void fatal(std::string_view message);

// Truncated toward zero. None unless `value` is finite and the result fits.
[[nodiscard]] std::optional<std::int64_t> fittingInteger(double value);

// The same, where none is fatal.
[[nodiscard]] std::int64_t checkedInteger(double value);

// Fatal on overflow.
[[nodiscard]] std::int64_t checkedProduct(std::int64_t left, std::int64_t right);

// Fatal when `value` needs more than 32 bits.
[[nodiscard]] std::uint32_t checkedUnsigned32(std::uint64_t value);

}  // namespace brisko
