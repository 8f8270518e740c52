// The order and the timer grids of sim/seam/work_queue.h, with a clock that the test sets.

#include "sim/seam/work_queue.h"

#include <cmath>
#include <string>

#include "support/testing.h"

namespace brisko::virtual_mac::work_queue_test {
namespace {

double gUptime = 0;
double uptimeNow() { return gUptime; }

class WorkQueueTest : public ::testing::Test {
 protected:
  // Runs all work that is due until `uptime`, each piece at its time.
  void runUntil(double uptime) {
    while (queue.nextDue() <= uptime) {
      gUptime = std::max(gUptime, queue.nextDue());
      queue.runFirst(uptimeNow);
    }
    gUptime = uptime;
  }

  WorkQueue queue;
  std::string trace;
};

TEST_F(WorkQueueTest, isEmptyAtFirstAndAfterItsLastWork) {
  EXPECT_TRUE(std::isinf(queue.nextDue()));
  queue.add(5, [] {});
  EXPECT_EQ(queue.nextDue(), 5);
  queue.runFirst(uptimeNow);
  EXPECT_TRUE(std::isinf(queue.nextDue()));
}

TEST_F(WorkQueueTest, ordersByTimeAndThenByInsertion) {
  queue.add(2, [&] { trace += "c"; });
  queue.add(1, [&] { trace += "a"; });
  queue.add(1, [&] { trace += "b"; });
  queue.add(2, [&] { trace += "d"; });
  runUntil(2);
  EXPECT_EQ(trace, "abcd");
}

TEST_F(WorkQueueTest, ordersATimerAndDelayedWorkByInsertion) {
  queue.add(10, [&] { trace += "a"; });
  (void)queue.addTimer(0, 10, [&] { trace += "t"; });
  queue.add(20, [&] { trace += "b"; });
  runUntil(20);
  EXPECT_EQ(trace, "attb");
}

TEST_F(WorkQueueTest, keepsAFractionalGridForAYear) {
  constexpr double interval = 0.1;
  (void)queue.addTimer(0, interval, [] {});
  constexpr double year = 365 * 86'400.0;
  gUptime = year;
  queue.runFirst(uptimeNow);
  const double steps = queue.nextDue() / interval;
  EXPECT_NEAR(steps, std::round(steps), 1e-6);
  EXPECT_GT(queue.nextDue(), year);
  EXPECT_LE(queue.nextDue(), year + interval + 1e-6);
}

TEST_F(WorkQueueTest, firesATimerOncePerGridPointEvenIfTheClockRoundsDown) {
  int fired = 0;
  (void)queue.addTimer(0, 0.3, [&] { ++fired; });
  gUptime = std::nextafter(0.3, 0);  // just before the grid point
  queue.runFirst(uptimeNow);
  EXPECT_GT(queue.nextDue(), 0.5);
  EXPECT_EQ(fired, 1);
}

TEST_F(WorkQueueTest, firesALateTimerNextAtTheFollowingGridPoint) {
  (void)queue.addTimer(0, 12, [] {});
  gUptime = 36;
  queue.runFirst(uptimeNow);
  EXPECT_EQ(queue.nextDue(), 48);
}

TEST_F(WorkQueueTest, invalidatesOnlyTimers) {
  const std::uint64_t timer = queue.addTimer(0, 5, [] {});
  queue.add(1, [&] { trace += "a"; });
  queue.invalidateTimer(timer + 1);  // would be the token of the work above
  runUntil(2);
  EXPECT_EQ(trace, "a");
}

}  // namespace
}  // namespace brisko::virtual_mac::work_queue_test
