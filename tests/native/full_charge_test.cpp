#include "native/full_charge.h"

#include "support/testing.h"

namespace brisko::full_charge_test {
namespace {

constexpr double now = 1'772'352'000;

TEST(FullCharge, isWaitedForWhileItsDateLiesAhead) {
  EXPECT_EQ(fullCharge({.until = now + 1, .now = now}), FullCharge::waits);
  EXPECT_EQ(fullCharge({.until = now, .now = now}), FullCharge::none);
  EXPECT_EQ(fullCharge({.until = now - 1, .now = now}), FullCharge::none);
  EXPECT_EQ(fullCharge({.now = now}), FullCharge::none);
}

TEST(FullCharge, isOverdueAfterADay) {
  const auto seenAt = [](double seconds) {
    return fullCharge({.until = now + 1e6, .now = now, .seenAt = now - seconds});
  };
  EXPECT_EQ(seenAt(86'399), FullCharge::waits);
  EXPECT_EQ(seenAt(86'400), FullCharge::overdue);
}

TEST(FullCharge, givesWayToHeatAndChangedSettings) {
  EXPECT_EQ(fullCharge({.until = now + 60, .now = now, .hot = true}), FullCharge::tooHot);
  EXPECT_EQ(fullCharge({.until = now + 60, .now = now, .settingsChanged = true}), FullCharge::none);
  EXPECT_EQ(fullCharge({.until = now - 60, .now = now, .hot = true}), FullCharge::none);
}

}  // namespace
}  // namespace brisko::full_charge_test
