#include "policy/limit_latch.h"

#include "support/testing.h"

namespace brisko::limit_latch_test {
namespace {

// In the band from 75 to 80 %.
constexpr LimitLatchInputs at(std::int64_t pct, std::optional<bool> before) {
  return {.pct = pct, .target = 80, .floor = 75, .before = before};
}

TEST(LimitLatch, closesAtTheLimitAndOpensAtTheFloor) {
  struct Case {
    std::int64_t pct;
    bool whenReached;
    bool whenNot;
    bool whenUnknown;
  };
  for (const auto& [pct, whenReached, whenNot, whenUnknown] :
       {Case{81, true, true, true}, Case{80, true, true, true}, Case{79, true, false, true},
        Case{76, true, false, true}, Case{75, false, false, false}, Case{74, false, false, false}}) {
    EXPECT_EQ(limitLatch(at(pct, true)), whenReached) << pct;
    EXPECT_EQ(limitLatch(at(pct, false)), whenNot) << pct;
    EXPECT_EQ(limitLatch(at(pct, std::nullopt)), whenUnknown) << pct;
  }
}

TEST(LimitLatch, isOpenAfterAChangeAndWithTheLimitOff) {
  for (const std::int64_t pct : {90, 77}) {
    LimitLatchInputs changed = at(pct, true);
    changed.changed = true;
    EXPECT_FALSE(limitLatch(changed)) << pct;
    LimitLatchInputs off = at(pct, true);
    off.enabled = false;
    EXPECT_FALSE(limitLatch(off)) << pct;
  }
}

}  // namespace
}  // namespace brisko::limit_latch_test
