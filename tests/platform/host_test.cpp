// The contract of platform/host.h.

#include "platform/host.h"

#include <filesystem>

#include "support/contract_machine.h"
#include "support/testing.h"

namespace brisko::platform::host_test {
namespace {

using namespace test;

TEST(HostContract, reportsTheSystemVersionOfTheMachine) {
  const ContractMachine mac({.macOS = 15});
  EXPECT_EQ(osMajor(), 15);
}

TEST(HostContract, isRootOnAVirtualMac) {
  const ContractMachine mac;
  EXPECT_EQ(effectiveUserId(), 0U);
}

TEST(HostContract, distinguishesAnUnsetVariableFromAnEmptyOne) {
  ContractMachine mac;
  mac.setEnvironment("BRISKO_TEST_EMPTY", "");
  mac.setEnvironment("BRISKO_TEST_VALUE", "26");
  EXPECT_EQ(environment("BRISKO_TEST_EMPTY"), "");
  EXPECT_EQ(environment("BRISKO_TEST_VALUE"), "26");
  EXPECT_FALSE(environment("BRISKO_TEST_UNSET").has_value());
}

TEST(HostContract, returnsThePretendedSystemVersion) {
  ContractMachine mac;
  EXPECT_FALSE(environment("BRISKO_PRETEND_MACOS").has_value());
  EXPECT_FALSE(environment("BRISKO_PRETEND_NO_NATIVE").has_value());
  mac.setEnvironment("BRISKO_PRETEND_MACOS", "27");
  mac.setEnvironment("BRISKO_PRETEND_NO_NATIVE", "1");
  EXPECT_EQ(environment("BRISKO_PRETEND_MACOS"), "27");
  EXPECT_EQ(environment("BRISKO_PRETEND_NO_NATIVE"), "1");
  EXPECT_EQ(osMajor(), 26) << "the machine itself has the real version";
}

TEST(HostContract, namesTheRunningProgram) {
  const ContractMachine mac;
  const auto path = executablePath();
  ASSERT_TRUE(path.has_value());
  EXPECT_TRUE(std::filesystem::path(*path).is_absolute()) << *path;
  EXPECT_GT(processId(), 0);
}

TEST(HostContract, runsAsTheUserOfTheMachine) {
  ContractMachine mac;
  EXPECT_EQ(effectiveUserId(), 0U);
  mac.change({.kind = virtual_mac::ChangeKind::userId, .number = 501});
  EXPECT_EQ(effectiveUserId(), 501U);
  mac.change({.kind = virtual_mac::ChangeKind::userId, .number = 0});
  EXPECT_EQ(effectiveUserId(), 0U);
}

TEST(HostContract, hasAFolderForTemporaryFiles) {
  const ContractMachine mac;
  const std::string folder = temporaryDirectory();
  EXPECT_TRUE(std::filesystem::is_directory(folder)) << folder;
  EXPECT_NE(folder.back(), '/');
}

TEST(HostContract, hasTheVolumeOfANewMac) {
  const ContractMachine mac;
  const std::string& root = volumeRoot();
  EXPECT_NE(root.back(), '/');
  EXPECT_TRUE(std::filesystem::is_directory(root + "/Library/Application Support"));
  EXPECT_TRUE(std::filesystem::is_directory(root + "/Library/Logs"));
  EXPECT_TRUE(std::filesystem::is_directory(root + "/Applications/Brisko.app"));
  EXPECT_FALSE(std::filesystem::exists(root + "/Library/Application Support/Brisko"));
  EXPECT_EQ(&volumeRoot(), &root);
}

TEST(HostContract, hasNoVolumeOfItsOwnWithoutAMachine) { EXPECT_EQ(volumeRoot(), ""); }

}  // namespace
}  // namespace brisko::platform::host_test
