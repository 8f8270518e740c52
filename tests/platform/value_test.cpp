#include "platform/value.h"

#include <cstdint>
#include <limits>

#include "support/testing.h"

namespace brisko::platform::value_test {
namespace {

TEST(PropertyValue, isAnIntegerUpTo63Bits) {
  constexpr auto largest = std::numeric_limits<std::int64_t>::max();
  EXPECT_EQ(Value(static_cast<std::uint64_t>(largest)).asInteger(), largest);
  EXPECT_EQ(Value(static_cast<std::uint64_t>(largest) + 1).asInteger(), std::nullopt);
}

}  // namespace
}  // namespace brisko::platform::value_test
