#include "fuzz/fatal.h"

#include <cmath>

#include "base/checked.h"

namespace brisko {

void fatal(std::string_view message) { throw Fatal{std::string(message)}; }

bool fitsInteger(double value) {
  if (!std::isfinite(value)) return false;
  int exponent = 0;
  const double fraction = std::frexp(value, &exponent);  // in ±[0.5, 1)
  if (exponent < 64) return true;
  return exponent == 64 && fraction == -0.5;  // -2^63 itself
}

}  // namespace brisko
