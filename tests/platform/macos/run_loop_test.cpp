// What remains in the run loop, which its contract does not show.

#include "platform/run_loop.h"

#include "fakes/main_loop.h"
#include "support/testing.h"

namespace brisko::platform::run_loop_test {
namespace {

TEST(MacRunLoop, releasesATimerThatWasInvalidated) {
  const TimerToken one = addRepeatingTimer(12, [] {});
  const TimerToken other = addRepeatingTimer(60, [] {});
  EXPECT_EQ(fakes::timersScheduled(), 2U);
  invalidateTimer(one);
  EXPECT_EQ(fakes::timersScheduled(), 1U);
  invalidateTimer(other);
  EXPECT_EQ(fakes::timersScheduled(), 0U);
}

}  // namespace
}  // namespace brisko::platform::run_loop_test
