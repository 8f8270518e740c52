// An entry of the registry whose properties the system does not hand out.

#include "platform/registry.h"

#include "fakes/system.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::platform::registry_test {
namespace {

TEST(MacRegistry, hasNoPropertiesIfTheSystemRefusesThem) {
  const test::VirtualMac mac;
  ASSERT_NE(registryProperties("AppleSmartBattery"), nullptr);
  fakes::gFailing = "IORegistryEntryCreateCFProperties";
  EXPECT_EQ(registryProperties("AppleSmartBattery"), nullptr);
}

}  // namespace
}  // namespace brisko::platform::registry_test
