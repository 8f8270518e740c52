#include "native/system_lock.h"

#include <gtest/gtest.h>

#include "platform/virtual/simulated/driver.h"
#include "support/virtual_mac.h"

namespace brisko {
namespace {

virtual_mac::MachineOptions macOS(std::int64_t major) {
  virtual_mac::MachineOptions options;
  options.macOS = major;
  return options;
}

TEST(SystemLock, leavesTheKeysOpenUpToMacOS26) {
  const test::VirtualMac mac(macOS(26));
  EXPECT_EQ(SystemLock::macOSMajor(), 26);
  EXPECT_FALSE(SystemLock::closesKeys());
}

TEST(SystemLock, closesTheKeysFromMacOS27) {
  const test::VirtualMac mac(macOS(27));
  EXPECT_EQ(SystemLock::macOSMajor(), 27);
  EXPECT_TRUE(SystemLock::closesKeys());
}

TEST(SystemLock, canPretendANewerSystem) {
  const test::VirtualMac mac(macOS(26));
  virtual_mac::setEnvironment("BRISKO_PRETEND_MACOS", "27");
  EXPECT_EQ(SystemLock::macOSMajor(), 27);
  EXPECT_TRUE(SystemLock::closesKeys());
}

TEST(SystemLock, canPretendAnOlderSystem) {
  const test::VirtualMac mac(macOS(27));
  virtual_mac::setEnvironment("BRISKO_PRETEND_MACOS", "+26");
  EXPECT_FALSE(SystemLock::closesKeys());
}

TEST(SystemLock, ignoresAPretenceThatIsNoNumber) {
  const test::VirtualMac mac(macOS(26));
  virtual_mac::setEnvironment("BRISKO_PRETEND_MACOS", "abc");
  EXPECT_EQ(SystemLock::macOSMajor(), 26);
}

TEST(SystemLock, ignoresAnEmptyPretence) {
  const test::VirtualMac mac(macOS(27));
  virtual_mac::setEnvironment("BRISKO_PRETEND_MACOS", "");
  EXPECT_EQ(SystemLock::macOSMajor(), 27);
}

TEST(SystemLock, standsForTheLifeOfTheProcess) {
  test::VirtualMac mac(macOS(26));
  EXPECT_FALSE(SystemLock::closesKeys());
  virtual_mac::setEnvironment("BRISKO_PRETEND_MACOS", "27");
  mac.number(virtual_mac::ChangeKind::macOS, 27);
  EXPECT_FALSE(SystemLock::closesKeys());
}

}  // namespace
}  // namespace brisko
