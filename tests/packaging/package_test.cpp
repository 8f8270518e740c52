#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "packaging/scratch_mac.h"

namespace brisko::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// A Mac with the tools that sign and pack, and a program.
class Package : public ::testing::Test {
 protected:
  void SetUp() override { mac.put("/build/brisko-daemon", "the program"); }

  [[nodiscard]] Finished make(const Words& arguments, const Environment& environment = {}) const {
    Words words{"-c",
                R"(exec make --no-print-directory -C "$@")",
                "sh",
                BRISKO_PACKAGING,
                "PROGRAM=" + mac.at("/build/brisko-daemon"),
                "OUT=" + mac.at("/build")};
    words.insert(words.end(), arguments.begin(), arguments.end());
    Environment all = environment;
    all.merge(Environment{{"BRISKO_ROOT", mac.at("")},
                          {"STAND_IN_MAC", mac.at("/tmp")},
                          {"MAKEFLAGS", ""},
                          {"PATH", std::string(BRISKO_STAND_INS) + ":/usr/bin:/bin"}});
    return run("/bin/sh", words, all);
  }

  [[nodiscard]] std::string calls() const { return contents(mac.at("/tmp/journal")); }

  ScratchMac mac;
};

const Environment plainLinux{{"PATH", "/usr/bin:/bin"}};

TEST_F(Package, signsWithTheHardenedRuntimeAndNoEntitlements) {
  const Finished run = make({"sign", "IDENTITY=Developer ID Application: Some One (TEAM123456)"});

  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(calls(),
            "codesign --force --options runtime --timestamp --identifier com.brisko.daemon --sign "
            "Developer ID Application: Some One (TEAM123456) /build/brisko-daemon\n"
            "codesign --verify --strict /build/brisko-daemon\n");
}

TEST_F(Package, asksForNoTimeStampWithoutATeam) {
  EXPECT_EQ(make({"sign", "IDENTITY=-"}).status, 0);

  EXPECT_THAT(calls(), HasSubstr("--timestamp=none --identifier com.brisko.daemon --sign - "));
}

TEST_F(Package, packsTheInstallerWithTheProgram) {
  const Finished run = make({"package", "INSTALLER_IDENTITY=Developer ID Installer: Some One (TEAM123456)"});

  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(
      calls(),
      "codesign --verify --strict /build/brisko-daemon\n"
      "rm -rf /build/parts\n"
      "pkgbuild --nopayload --identifier com.brisko.daemon --version 0.9.9 --scripts /build/parts/scripts "
      "/build/parts/brisko-daemon.pkg\n"
      "productbuild --distribution distribution.xml --package-path /build/parts --sign "
      "Developer ID Installer: Some One (TEAM123456) /build/brisko-daemon-0.9.9.pkg\n");
  for (const char* name : {"brisko-daemon", "postinstall", "install-service.sh", "uninstall-service.sh",
                           "com.brisko.daemon.plist", "newsyslog.d/com.brisko.daemon.conf"}) {
    EXPECT_TRUE(exists(mac.at("/build/parts/scripts/" + std::string(name)))) << name;
  }
}

TEST_F(Package, isInstalledByItsScript) {
  ASSERT_EQ(make({"package", "INSTALLER_IDENTITY=Some One"}).status, 0);
  // What the package carries, with a program that answers.
  const std::string parts = mac.at("/build/parts/scripts/");
  put(parts + "brisko-daemon", contents(std::string(BRISKO_STAND_INS) + "/brisko-daemon"));

  EXPECT_EQ(mac.runScript(parts + "postinstall", {"package", "/", "/Volumes/Other"}).status, 1);
  EXPECT_FALSE(mac.job());
  EXPECT_EQ(mac.runScript(parts + "postinstall", {"package", "/", "/"}).status, 0);
  EXPECT_TRUE(mac.job());
}

TEST_F(Package, wantsAnIdentity) {
  const Finished signing = make({"sign"});
  const Finished packing = make({"package"});

  EXPECT_EQ(signing.status, 2);
  EXPECT_THAT(signing.errors, HasSubstr("sign wants an IDENTITY"));
  EXPECT_EQ(packing.status, 2);
  EXPECT_THAT(packing.errors, HasSubstr("package wants an INSTALLER_IDENTITY"));
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(Package, wantsAProgram) {
  const Finished run = make({"sign", "IDENTITY=-", "PROGRAM=/nowhere/brisko-daemon"});

  EXPECT_NE(run.status, 0);
  EXPECT_THAT(run.errors, HasSubstr("There is no program at /nowhere/brisko-daemon"));
}

TEST_F(Package, saysThatItTakesAMac) {
  const Finished signing = make({"sign", "IDENTITY=-"}, plainLinux);
  const Finished packing = make({"package", "INSTALLER_IDENTITY=Some One"}, plainLinux);

  EXPECT_NE(signing.status, 0);
  EXPECT_THAT(signing.errors, HasSubstr("There is no codesign here: this works on a Mac only"));
  EXPECT_NE(packing.status, 0);
  EXPECT_THAT(packing.errors, HasSubstr("There is no codesign here: this works on a Mac only"));
}

}  // namespace
}  // namespace brisko::test
