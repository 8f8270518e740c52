// What the run loop is left with, which its contract does not show.

#include "platform/run_loop.h"

#include <gtest/gtest.h>

#include "stand_ins/main_loop.h"

namespace brisko::platform {
namespace {

TEST(MacRunLoop, isFreeOfATimerThatWasInvalidated) {
  const TimerToken one = addRepeatingTimer(12, [] {});
  const TimerToken other = addRepeatingTimer(60, [] {});
  EXPECT_EQ(stand_ins::timersScheduled(), 2U);
  invalidateTimer(one);
  EXPECT_EQ(stand_ins::timersScheduled(), 1U);
  invalidateTimer(other);
  EXPECT_EQ(stand_ins::timersScheduled(), 0U);
}

}  // namespace
}  // namespace brisko::platform
