#include "hardware/system_lock.h"

#include "sim/seam/simulated/driver.h"
#include "support/child.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::system_lock_test {
namespace {

using namespace test;

virtual_mac::MachineOptions macOS(std::int64_t major) { return {.macOS = major}; }

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

TEST(SystemLock, ignoresAPretendedVersionThatIsNoNumber) {
  const test::VirtualMac mac(macOS(26));
  virtual_mac::setEnvironment("BRISKO_PRETEND_MACOS", "abc");
  EXPECT_EQ(SystemLock::macOSMajor(), 26);
}

TEST(SystemLock, ignoresAnEmptyPretendedVersion) {
  const test::VirtualMac mac(macOS(27));
  virtual_mac::setEnvironment("BRISKO_PRETEND_MACOS", "");
  EXPECT_EQ(SystemLock::macOSMajor(), 27);
}

TEST(SystemLock, isDecidedOncePerProcess) {
  test::VirtualMac mac(macOS(26));
  EXPECT_FALSE(SystemLock::closesKeys());
  virtual_mac::setEnvironment("BRISKO_PRETEND_MACOS", "27");
  mac.number(virtual_mac::ChangeKind::macOS, 27);
  EXPECT_FALSE(SystemLock::closesKeys());
}

// -- The client

std::uint64_t loads(const test::VirtualMac& mac) { return mac.machine().limit.calls.loads; }

TEST(SystemLock, findsTheClientOfMacOSsOwnLimit) {
  const test::VirtualMac mac(macOS(27));
  EXPECT_EQ(loads(mac), 0U) << "not before it is asked";
  EXPECT_TRUE(SystemLock::nativeAvailable());
  EXPECT_EQ(loads(mac), 1U);
}

TEST(SystemLock, findsNoClientThatIsMissingOrCannotSetALimit) {
  for (const LimitClient absence :
       {LimitClient::noFramework, LimitClient::noClass, LimitClient::noSelector}) {
    test::VirtualMac mac(macOS(27));
    mac.number(ChangeKind::limitClient, static_cast<double>(absence));
    const auto ended = test::inChild([] { test::tell(SystemLock::nativeAvailable() ? "there" : "missing"); });
    EXPECT_EQ(ended.output, "missing");
    EXPECT_EQ(loads(mac), 1U);
  }
}

TEST(SystemLock, findsNoClientOnAMacWithoutTheLimit) {
  virtual_mac::MachineOptions options = macOS(27);
  options.chargeLimit = false;
  const test::VirtualMac mac(options);
  EXPECT_FALSE(SystemLock::nativeAvailable());
}

TEST(SystemLock, canPretendThatThereIsNoClientAndLoadsNothingThen) {
  const test::VirtualMac mac(macOS(27));
  virtual_mac::setEnvironment("BRISKO_PRETEND_NO_NATIVE", "1");
  EXPECT_FALSE(SystemLock::nativeAvailable());
  EXPECT_EQ(loads(mac), 0U);
}

TEST(SystemLock, pretendsThatOnlyForTheValue1) {
  for (const char* value : {"", "0", "01", "1 ", " 1", "11", "+1", "true", "yes"}) {
    const test::VirtualMac mac(macOS(27));
    const auto ended = test::inChild([value] {
      virtual_mac::setEnvironment("BRISKO_PRETEND_NO_NATIVE", value);
      test::tell(SystemLock::nativeAvailable() ? "there" : "missing");
    });
    EXPECT_EQ(ended.output, "there") << '"' << value << '"';
  }
}

TEST(SystemLock, looksForTheClientOnce) {
  test::VirtualMac mac(macOS(27));
  EXPECT_TRUE(SystemLock::nativeAvailable());
  mac.number(ChangeKind::limitClient, static_cast<double>(LimitClient::noFramework));
  virtual_mac::setEnvironment("BRISKO_PRETEND_NO_NATIVE", "1");
  EXPECT_TRUE(SystemLock::nativeAvailable());
  EXPECT_EQ(loads(mac), 1U);
}

TEST(SystemLock, loadsNothingToPrintTheVersion) {
  const test::VirtualMac mac(macOS(27));
  EXPECT_TRUE(SystemLock::closesKeys());
  EXPECT_EQ(loads(mac), 0U);
}

}  // namespace
}  // namespace brisko::system_lock_test
