// A Mac that does not notify of changes of the power source.

#include "platform/power_sources.h"

#include "fakes/system.h"
#include "support/daemon_process.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::power_sources_test {
namespace {

using namespace test;

TEST(PowerSourcesWithoutNotification, reportTheMissingNotification) {
  const test::VirtualMac mac;
  fakes::gNotifiesOfPowerSources = false;
  EXPECT_FALSE(platform::addPowerSourceNotification([] {}));
}

TEST(PowerSourcesWithoutNotification, areReadByTheHeartbeat) {
  test::VirtualMac mac;
  fakes::gNotifiesOfPowerSources = false;
  test::DaemonProcess daemon(mac);
  daemon.run(1);
  ASSERT_TRUE(daemon.alive());
  mac.unplug();
  daemon.run(5);
  EXPECT_THAT(mac.logLines().back(), HasSubstr("  ac  "));
  daemon.run(7);
  EXPECT_THAT(mac.logLines().back(), HasSubstr("  battery  "));
}

}  // namespace
}  // namespace brisko::power_sources_test
