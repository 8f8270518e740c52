#include <algorithm>
#include <cctype>
#include <filesystem>
#include <string>

#include "packaging/scratch_mac.h"
#include "support/testing.h"

namespace brisko::test {
namespace {

// A Mac with the signing and packaging tools, and a program.
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
                          {"FAKE_MAC", mac.at("/tmp")},
                          {"MAKEFLAGS", ""},
                          {"PATH", std::string(BRISKO_FAKES) + ":/usr/bin:/bin"}});
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
            "otool -l /build/brisko-daemon\n"
            "codesign --force --options runtime --timestamp --identifier com.brisko.daemon --sign "
            "Developer ID Application: Some One (TEAM123456) /build/brisko-daemon\n"
            "codesign --verify --strict /build/brisko-daemon\n");
}

TEST_F(Package, requestsNoTimestampWithoutATeam) {
  EXPECT_EQ(make({"sign", "IDENTITY=-"}).status, 0);

  EXPECT_THAT(calls(), HasSubstr("--timestamp=none --identifier com.brisko.daemon --sign - "));
}

TEST_F(Package, packsTheInstallerWithTheProgram) {
  const Finished run = make({"package", "INSTALLER_IDENTITY=Developer ID Installer: Some One (TEAM123456)"});

  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(
      calls(),
      "otool -l /build/brisko-daemon\n"
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
  // The contents of the package, with a program that answers the probe.
  const std::string parts = mac.at("/build/parts/scripts/");
  put(parts + "brisko-daemon", contents(std::string(BRISKO_FAKES) + "/brisko-daemon"));

  EXPECT_EQ(mac.runScript(parts + "postinstall", {"package", "/", "/Volumes/Other"}).status, 1);
  EXPECT_FALSE(mac.job());
  EXPECT_EQ(mac.runScript(parts + "postinstall", {"package", "/", "/"}).status, 0);
  EXPECT_TRUE(mac.job());
}

TEST_F(Package, needsAnIdentity) {
  const Finished signing = make({"sign"});
  const Finished packing = make({"package"});

  EXPECT_EQ(signing.status, 2);
  EXPECT_THAT(signing.errors, HasSubstr("Set IDENTITY to a signing certificate"));
  EXPECT_EQ(packing.status, 2);
  EXPECT_THAT(packing.errors, HasSubstr("Set INSTALLER_IDENTITY to an installer certificate"));
  EXPECT_THAT(calls(), IsEmpty());
}

TEST_F(Package, needsAProgram) {
  const Finished run = make({"sign", "IDENTITY=-", "PROGRAM=/nowhere/brisko-daemon"});

  EXPECT_NE(run.status, 0);
  EXPECT_THAT(run.errors, HasSubstr("There is no program at /nowhere/brisko-daemon"));
}

struct LinkedSdks {
  const char* sdks;
  bool accepted;
  const char* refusal = "";
};

std::string nameOfSdks(const ::testing::TestParamInfo<LinkedSdks>& linked) {
  std::string name = linked.param.sdks;
  const auto isNoLetter = [](unsigned char character) { return std::isalnum(character) == 0; };
  std::replace_if(name.begin(), name.end(), isNoLetter, '_');
  return name;
}

class ProgramPackage : public Package, public ::testing::WithParamInterface<LinkedSdks> {};

TEST_P(ProgramPackage, isBuiltOnlyWithTheSdkOfMacOS26OrLater) {
  const auto& [sdks, accepted, refusal] = GetParam();
  for (const Words& target : {Words{"sign", "IDENTITY=-"}, Words{"package", "INSTALLER_IDENTITY=Some One"}}) {
    const Finished run = make(target, {{"FAKE_SDKS", sdks}});
    EXPECT_EQ(run.status == 0, accepted) << target[0] << ": " << run.errors;
    EXPECT_THAT(run.errors, HasSubstr(refusal));
  }
  EXPECT_EQ(make({"check-sdk"}, {{"FAKE_SDKS", sdks}}).status == 0, accepted);
  EXPECT_EQ(calls().find("codesign") != std::string::npos, accepted);
}

INSTANTIATE_TEST_SUITE_P(
    BySdk, ProgramPackage,
    ::testing::Values(LinkedSdks{"26.0", true}, LinkedSdks{"26", true}, LinkedSdks{"27.1", true},
                      LinkedSdks{"100.0", true}, LinkedSdks{"26.0 26.2", true},
                      LinkedSdks{"25.9", false, "brisko-daemon was built with the SDK 25.9."},
                      LinkedSdks{"15.5", false, "Build it with Xcode 26 or later."},
                      LinkedSdks{"13.3", false, "SDK 13.3."}, LinkedSdks{"26.0 15.5", false, "SDK 15.5."},
                      LinkedSdks{"15.5 26.0", false, "SDK 15.5."}, LinkedSdks{"n/a", false, "SDK n/a."},
                      LinkedSdks{"none", false, "does not say with which SDK"}),
    nameOfSdks);

TEST_F(Package, isRefusedWhenTheProgramCannotBeRead) {
  mac.put("/broken/otool", "#!/bin/sh\nexit 1\n");
  std::filesystem::permissions(mac.at("/broken/otool"), std::filesystem::perms::owner_all);
  const Finished signing =
      make({"sign", "IDENTITY=-"},
           {{"PATH", mac.at("/broken") + ":" + std::string(BRISKO_FAKES) + ":/usr/bin:/bin"}});

  EXPECT_NE(signing.status, 0);
  EXPECT_THAT(calls(), IsEmpty());
}

// What CMake prints about the SDK that it will use.
Finished configureWithSdk(const std::string& version, const std::string& path = "macosx") {
  const std::string sysroot = path == "macosx" ? "" : path;
  return run("/bin/sh",
             {"-c", R"(exec cmake "-DCMAKE_OSX_SYSROOT=$1" -P "$2")", "sh", sysroot, BRISKO_SDK_CHECK},
             {{"FAKE_SDK", version},
              {"FAKE_SYSROOT", path},
              {"PATH", std::string(BRISKO_FAKES) + ":/usr/bin:/bin"}});
}

TEST(Configuration, printsOneLineAboutAnOlderSdk) {
  for (const char* version : {"13.3", "15.5", "25.9"}) {
    const Finished run = configureWithSdk(version);
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_THAT(run.output + run.errors,
                ::testing::MatchesRegex("The SDK is " + std::string(version) + ", [^\n]*\n"));
  }
}

TEST(Configuration, isSilentAboutANewEnoughSdk) {
  for (const char* version : {"26", "26.0", "27.1", "100.0"}) {
    const Finished run = configureWithSdk(version);
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(run.output + run.errors, "") << version;
  }
}

TEST(Configuration, checksTheGivenSdk) {
  const std::string path = "/Applications/Old Xcode.app/MacOSX14.5.sdk";
  EXPECT_THAT(configureWithSdk("14.5", path).errors, HasSubstr("The SDK is 14.5,"));
}

TEST(Configuration, isSilentIfNoSdkReportsItsVersion) {
  const Finished run = configureWithSdk("");
  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(run.output + run.errors, "");
}

TEST_F(Package, reportsThatItNeedsAMac) {
  const Finished signing = make({"sign", "IDENTITY=-"}, plainLinux);
  const Finished packing = make({"package", "INSTALLER_IDENTITY=Some One"}, plainLinux);

  EXPECT_NE(signing.status, 0);
  EXPECT_THAT(signing.errors, HasSubstr("codesign not found: this works only on a Mac"));
  EXPECT_NE(packing.status, 0);
  EXPECT_THAT(packing.errors, HasSubstr("codesign not found: this works only on a Mac"));
}

}  // namespace
}  // namespace brisko::test
