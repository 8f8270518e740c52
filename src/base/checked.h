// base/checked.h
// Conversions that must not go wrong quietly. A value outside the range ends the process at once, also in
// release builds: one line on standard error, then abort. No exit hook runs and nothing can catch it.
#pragma once

#include <cstdint>
#include <string_view>

namespace brisko {

[[noreturn]] void fatal(std::string_view message);

// Truncated toward zero. Fatal unless `value` is finite and the result fits.
[[nodiscard]] std::int64_t checkedInteger(double value);

// Fatal on overflow.
[[nodiscard]] std::int64_t checkedProduct(std::int64_t left, std::int64_t right);

// Fatal when `value` needs more than 32 bits.
[[nodiscard]] std::uint32_t checkedUnsigned32(std::uint64_t value);

}  // namespace brisko
