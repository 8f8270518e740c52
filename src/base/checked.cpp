#include "base/checked.h"

#include <cmath>
#include <limits>

namespace brisko {

std::optional<std::int64_t> fittingInteger(double value) {
  // 2^63 is a double, the largest 64-bit integer is not: hence the half-open range. NaN fails both sides.
  constexpr double beyond = 9223372036854775808.0;
  const double whole = std::trunc(value);
  if (!(whole >= -beyond && whole < beyond)) return std::nullopt;
  return static_cast<std::int64_t>(whole);
}

std::int64_t checkedInteger(double value) {
  const auto integer = fittingInteger(value);
  if (!integer) fatal("a number does not fit a 64-bit integer");
  return *integer;
}

std::int64_t checkedProduct(std::int64_t left, std::int64_t right) {
  std::int64_t product = 0;
  if (__builtin_mul_overflow(left, right, &product)) fatal("a product does not fit a 64-bit integer");
  return product;
}

std::uint32_t checkedUnsigned32(std::uint64_t value) {
  if (value > std::numeric_limits<std::uint32_t>::max()) fatal("a number does not fit 32 bits");
  return static_cast<std::uint32_t>(value);
}

}  // namespace brisko
