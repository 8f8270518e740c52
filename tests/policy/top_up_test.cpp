#include "policy/top_up.h"

#include <limits>

#include "support/testing.h"

namespace brisko::top_up_test {
namespace {

TEST(TopUp, continuesUntilItsHoursAreOver) {
  constexpr std::int64_t longest = std::numeric_limits<std::int64_t>::max();
  struct Case {
    double elapsed;
    std::int64_t hours;
    TopUpOutcome outcome;
  };
  for (const auto& [elapsed, hours, outcome] :
       {Case{3599, 1, TopUpOutcome::continues}, Case{3600, 1, TopUpOutcome::continues},
        Case{3600.1, 1, TopUpOutcome::expired}, Case{7200, 2, TopUpOutcome::continues},
        Case{7200.1, 2, TopUpOutcome::expired}, Case{1e9, 0, TopUpOutcome::continues},
        Case{1e9, -1, TopUpOutcome::continues}, Case{1e9, longest, TopUpOutcome::continues},
        Case{-3600, 1, TopUpOutcome::continues}}) {
    EXPECT_EQ(topUpOutcome({.elapsed = elapsed, .hours = hours, .adapterPresent = true}), outcome)
        << elapsed << ' ' << hours;
  }
}

TEST(TopUp, endsWithoutAnAdapterUnlessItsHoursAreOverToo) {
  EXPECT_EQ(topUpOutcome({.elapsed = 0, .hours = 0}), TopUpOutcome::unplugged);
  EXPECT_EQ(topUpOutcome({.elapsed = 3600, .hours = 1}), TopUpOutcome::unplugged);
  EXPECT_EQ(topUpOutcome({.elapsed = 3600.1, .hours = 1}), TopUpOutcome::expired);
}

TEST(TopUp, hasABandFrom99To100) { EXPECT_EQ(topUpBand, (Bounds{.upper = 100, .lower = 99})); }

}  // namespace
}  // namespace brisko::top_up_test
