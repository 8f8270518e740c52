// The path of a program that was started through a link, and the version of the system that it detects.

#include "platform/host.h"

#include <array>
#include <cstdlib>
#include <string>

#include <sys/sysctl.h>

#include "fakes/system.h"
#include "sim/seam/simulated/driver.h"
#include "support/files.h"
#include "support/scratch_folder.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::platform::host_test {
namespace {

TEST(MacHost, namesTheProgramAndNotALinkToIt) {
  const test::ScratchFolder scratch;
  test::put(scratch.path("program"), "");
  test::makeLink(scratch.path("link"), scratch.path("program"));
  virtual_mac::setExecutablePath(scratch.path("link"));
  EXPECT_EQ(executablePath(), scratch.path("program"));
}

std::string productVersion() {
  std::array<char, 64> text{};
  std::size_t size = text.size();
  return ::sysctlbyname("kern.osproductversion", text.data(), &size, nullptr, 0) == 0 ? text.data() : "";
}

class MacVersion : public ::testing::TestWithParam<std::int64_t> {};

TEST_P(MacVersion, isFoundWithAnySdk) {
  const test::VirtualMac mac({.macOS = GetParam()});
  for (const std::int64_t sdk : {13, 15, 26, 27}) {
    fakes::gLinkedSdk = sdk;
    EXPECT_EQ(osMajor(), GetParam()) << "SDK " << sdk;
  }
}

INSTANTIATE_TEST_SUITE_P(Every, MacVersion, ::testing::Values(13, 14, 15, 26, 27, 28),
                         [](const auto& version) { return "MacOS" + std::to_string(version.param); });

TEST(MacHost, getsACompatibilityVersionIfBuiltWithAnOldSdk) {
  const test::VirtualMac mac({.macOS = 27});
  fakes::gLinkedSdk = 25;
  EXPECT_EQ(productVersion(), "16.4.1");
  fakes::gLinkedSdk = 26;
  EXPECT_EQ(productVersion(), "27.4.1");
}

TEST(MacHost, usesTheProductVersionWithoutABuild) {
  const test::VirtualMac mac({.macOS = 15});
  fakes::gUnreadableVariable = "kern.osversion";
  EXPECT_EQ(osMajor(), 15);
}

TEST(MacHost, needsNoProductVersion) {
  const test::VirtualMac mac({.macOS = 27});
  fakes::gUnreadableVariable = "kern.osproductversion";
  EXPECT_EQ(osMajor(), 27);
}

// On a Mac /tmp is a link to /private/tmp. Here there is no such folder, so the path is not resolved first.
TEST(MacHost, namesTheProgramByItsUsualPath) {
  const test::ScratchFolder scratch;
  const std::string program = scratch.path("program");
  virtual_mac::setExecutablePath("/private" + program);
  EXPECT_EQ(executablePath(), "/private" + program) << "no file is at the shorter path";
  test::put(program, "");
  EXPECT_EQ(executablePath(), program);
}

TEST(MacHost, keepsAPathThatOnlyBeginsLikeIt) {
  const test::ScratchFolder scratch;
  test::put(scratch.path("program"), "");
  for (const std::string& path : {"/privately" + scratch.path("program"), std::string("/private"),
                                  "/Private" + scratch.path("program")}) {
    virtual_mac::setExecutablePath(path);
    EXPECT_EQ(executablePath(), path);
  }
}

TEST(MacHost, hasATemporaryFolderWhateverTheSystemNames) {
  ::setenv("TMPDIR", "/", 1);
  EXPECT_EQ(temporaryDirectory(), "/");
  ::setenv("TMPDIR", ("/" + std::string(5000, 'x')).c_str(), 1);
  EXPECT_EQ(temporaryDirectory(), "/tmp") << "too long for a path";
  ::setenv("TMPDIR", "/var/folders", 1);
  EXPECT_EQ(temporaryDirectory(), "/var/folders");
  fakes::gFailing = "confstr";
  EXPECT_EQ(temporaryDirectory(), "/tmp");
}

TEST(MacHost, namesNoProgramIfTheSystemDoesNot) {
  virtual_mac::setExecutablePath(std::nullopt);
  EXPECT_EQ(executablePath(), std::nullopt);
}

}  // namespace
}  // namespace brisko::platform::host_test
