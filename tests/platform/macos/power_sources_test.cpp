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

TEST(PowerSources, areUnknownWithoutTheirList) {
  const test::VirtualMac mac;
  ASSERT_EQ(platform::powerSources()->size(), 1U);
  fakes::gFailing = "IOPSCopyPowerSourcesList";
  EXPECT_EQ(platform::powerSources(), std::nullopt);
}

TEST(PowerSources, areLeftOutIfTheyAreNotDescribed) {
  const test::VirtualMac mac;
  fakes::gFailing = "IOPSGetPowerSourceDescription";
  ASSERT_TRUE(platform::powerSources().has_value());
  EXPECT_THAT(*platform::powerSources(), IsEmpty());
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
