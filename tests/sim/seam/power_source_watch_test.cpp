// How a process is notified of changes of the power source that the process itself causes.

#include "platform/power_sources.h"
#include "platform/run_loop.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::virtual_mac::power_source_watch_test {
namespace {

TEST(PowerSourceWatch, letsTimeAdvanceIfEveryNotificationCausesAChange) {
  test::VirtualMac mac;
  int notified = 0;
  int notifiedAtOnce = 0;
  const double begin = mac.machine().now;
  ASSERT_TRUE(platform::addPowerSourceNotification([&] {
    ++notified;
    if (mac.machine().now == begin) ++notifiedAtOnce;
    if (mac.machine().adapter.present) {
      mac.unplug();
    } else {
      mac.plugIn();
    }
  }));
  mac.unplug();
  const platform::TimerToken timer = platform::addRepeatingTimer(10, [] {});
  platform::postMainAfter(35, platform::stopMain);
  platform::runMain();
  platform::invalidateTimer(timer);

  EXPECT_EQ(notifiedAtOnce, 16);
  EXPECT_GT(notified, 2 * 16);  // the rest with the next events
}

}  // namespace
}  // namespace brisko::virtual_mac::power_source_watch_test
