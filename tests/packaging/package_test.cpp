#include <algorithm>
#include <cctype>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <string>

#include "base/process_flags.h"
#include "packaging/scratch_mac.h"
#include "support/testing.h"

namespace brisko::test::package_test {
namespace {

// A Mac with the tools that sign and pack, and a program.
class Package : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* name : {"brisko-daemon", "brisko", "brisko-lab"}) {
      mac.put("/build/" + std::string(name), contents(std::string(BRISKO_FAKES) + "/" + name));
      setMode(mac.at("/build/" + std::string(name)), 0755);
    }
    mac.put("/build/components.txt", "nlohmann-json 3.11.2 MIT\nCLI11 2.3.2 BSD-3-Clause\n");
  }

  [[nodiscard]] Finished make(const Words& arguments, const Environment& environment = {}) const {
    Words words{"-c",
                R"(exec make --no-print-directory -C "$@")",
                "sh",
                BRISKO_PACKAGING,
                "PROGRAM=" + mac.at("/build/brisko-daemon"),
                "OUT=" + mac.at("/build")};
    words.insert(words.end(), arguments.begin(), arguments.end());
    return run("/bin/sh", words, forTools(environment));
  }

  [[nodiscard]] Finished makePackage() const {
    return make({"package", "INSTALLER_IDENTITY=Developer ID Installer: Some One (TEAM123456)"});
  }

  // With the tools of this computer too: make, tar and the like are the same on a Mac.
  [[nodiscard]] Environment forTools(const Environment& environment) const {
    Environment all = environment;
    all.merge(Environment{{"MAKEFLAGS", ""}, {"PATH", std::string(BRISKO_FAKES) + ":/usr/bin:/bin"}});
    all.merge(mac.environment());
    return all;
  }

  // The calls of the tools that only a Mac has.
  [[nodiscard]] std::string calls() const {
    std::string text;
    for (const std::string& call : mac.journal()) {
      const std::string tool = call.substr(0, call.find(' '));
      if (tools.contains(tool)) text += call + "\n";
    }
    return text;
  }

  [[nodiscard]] std::string package() const { return mac.at("/build/brisko-daemon-" + version + ".pkg"); }

  const std::set<std::string> tools{"otool",    "codesign",     "dsymutil", "strip",
                                    "pkgbuild", "productbuild", "pkgutil",  "xcrun"};
  const std::string version = daemonVersion;

  ScratchMac mac;
};

const Environment plainLinux{{"PATH", "/usr/bin:/bin"}};

const std::string developer = "Developer ID Application: Some One (TEAM123456)";

TEST_F(Package, signsWithTheHardenedRuntimeAndNoEntitlements) {
  const Finished run = make({"sign", "IDENTITY=" + developer});

  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(calls(),
            "otool -l /build/brisko-daemon\n"
            "otool -l /build/brisko\n"
            "otool -l /build/brisko-lab\n"
            "dsymutil /build/brisko-daemon -o /build/brisko-daemon.dSYM\n"
            "strip -S -x /build/brisko-daemon\n"
            "dsymutil /build/brisko -o /build/brisko.dSYM\n"
            "strip -S -x /build/brisko\n"
            "dsymutil /build/brisko-lab -o /build/brisko-lab.dSYM\n"
            "strip -S -x /build/brisko-lab\n"
            "codesign --force --options runtime --timestamp --identifier com.brisko.daemon --sign " +
                developer +
                " /build/brisko-daemon\n"
                "codesign --force --options runtime --timestamp --identifier com.brisko.Brisko --sign " +
                developer +
                " /build/brisko\n"
                "codesign --force --options runtime --timestamp --identifier com.brisko.lab --sign " +
                developer +
                " /build/brisko-lab\n"
                "codesign --verify --strict /build/brisko-daemon\n"
                "codesign --verify --strict /build/brisko\n"
                "codesign --verify --strict /build/brisko-lab\n");
}

TEST_F(Package, asksForNoTimeStampWithoutATeam) {
  EXPECT_EQ(make({"sign", "IDENTITY=-"}).status, 0);

  EXPECT_THAT(calls(), HasSubstr("--timestamp=none --identifier com.brisko.daemon --sign - "));
  EXPECT_THAT(calls(), HasSubstr("--timestamp=none --identifier com.brisko.Brisko --sign - "));
}

TEST_F(Package, keepsTheSymbolsOfAProgramThatIsSignedAgain) {
  ASSERT_EQ(make({"sign", "IDENTITY=-"}).status, 0);
  mac.forgetJournal();
  ASSERT_EQ(make({"sign", "IDENTITY=-"}).status, 0);
  EXPECT_THAT(calls(), Not(HasSubstr("dsymutil")));
  EXPECT_TRUE(exists(mac.at("/build/brisko-daemon.dSYM")));

  // A program that was built anew has a UUID of its own.
  ASSERT_EQ(make({"sign", "IDENTITY=-"}, {{"FAKE_UUID", "00000000-0000-3000-8000-000000000000"}}).status, 0);
  EXPECT_THAT(calls(), HasSubstr("dsymutil /build/brisko-daemon"));
}

TEST_F(Package, containsTheFolderOfTheProgramsAndItsScripts) {
  const Finished run = makePackage();

  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_THAT(
      calls(),
      HasSubstr(
          "pkgbuild --root /build/parts/payload --install-location /Library/Brisko --ownership recommended "
          "--identifier com.brisko.daemon --version " +
          version +
          " --scripts /build/parts/scripts /build/parts/brisko-daemon.pkg\n"
          "productbuild --distribution /build/parts/distribution.xml --resources resources --package-path "
          "/build/parts --sign Developer ID Installer: Some One (TEAM123456) /build/brisko-daemon-" +
          version + ".pkg\n"));
  for (const char* name : {"brisko-daemon", "preinstall", "postinstall", "install-service.sh",
                           "com.brisko.daemon.plist", "newsyslog.d/com.brisko.daemon.conf"}) {
    EXPECT_TRUE(exists(mac.at("/build/parts/scripts/" + std::string(name)))) << name;
  }
  for (const char* name :
       {"brisko-daemon", "brisko", "brisko-lab", "uninstall-service.sh", "share/man/man1/brisko.1",
        "share/completions/_brisko", "share/doc/many-macs.md"}) {
    EXPECT_TRUE(exists(mac.at("/build/parts/payload/" + std::string(name)))) << name;
  }
  EXPECT_THAT(contents(mac.at("/build/parts/distribution.xml")),
              HasSubstr("var version = \"" + version + "\";"));
}

// The package, installed.
class InstalledPackage : public Package {
 protected:
  void SetUp() override {
    Package::SetUp();
    ASSERT_EQ(makePackage().status, 0);
    before = mac.added();
    mac.forgetJournal();
  }

  [[nodiscard]] Finished install(const Environment& environment = {}, const std::string& target = "/") const {
    return mac.runScript(std::string(BRISKO_FAKES) + "/installer", {"-pkg", package(), "-target", target},
                         environment);
  }

  Words before;
};

TEST_F(InstalledPackage, putsTheSameFilesInPlaceAsTheScript) {
  const Finished run = install();

  EXPECT_EQ(run.status, 0) << run.output << run.errors;
  EXPECT_THAT(run.output, HasSubstr("Started the service com.brisko.daemon."));
  EXPECT_TRUE(mac.job());
  const ScratchMac byScript;
  ASSERT_EQ(byScript.install().status, 0);
  Words files = mac.addedToRun();
  std::erase_if(files, [](const std::string& file) {
    return file.starts_with("/build") || file.starts_with("/var/db/receipts/");
  });
  EXPECT_EQ(files, byScript.addedToRun());
}

TEST_F(InstalledPackage, leavesAReceiptOfItsFilesThatTheUninstallerRemoves) {
  ASSERT_EQ(install().status, 0);
  const std::string receipt = contents(mac.at("/var/db/receipts/com.brisko.daemon.bom"));
  EXPECT_THAT(receipt, HasSubstr("brisko-daemon\n"));
  EXPECT_THAT(receipt, HasSubstr("uninstall-service.sh\n"));

  EXPECT_EQ(mac.uninstall({}, {{"FAKE_KEEPS_RECEIPT", "1"}}).status, 1);
  EXPECT_EQ(mac.uninstall().status, 0);

  EXPECT_EQ(mac.added(), before);
}

TEST_F(InstalledPackage, isOnlyForTheVolumeOfTheSystem) {
  const Finished run = install({}, "/Volumes/Other");

  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.output, HasSubstr("only be installed on the volume from which this Mac was started."));
  EXPECT_EQ(mac.added(), before);
}

TEST_F(InstalledPackage, changesNothingWhereItIsRefused) {
  const Environment unfit[] = {{{"FAKE_ARM64", "no"}},
                               {{"FAKE_MACOS", "12.7.6"}},
                               {{"FAKE_VM", "1"}},
                               {{"FAKE_BATTERY", "No"}},
                               {{"FAKE_BATTERY", "none"}},
                               {{"FAKE_PROBE", R"({"message":"No way.","reason":"none","supported":false})"}},
                               {{"FAKE_SIGNER", "ad hoc"}},
                               {{"FAKE_SIGNER", "unsigned"}}};
  for (const Environment& environment : unfit) {
    const Finished run = install(environment);
    EXPECT_EQ(run.status, 1) << environment.begin()->first;
    EXPECT_NE(run.output, "");
    EXPECT_EQ(mac.added(), before) << environment.begin()->first;
    EXPECT_THAT(mac.journal("launchctl"), IsEmpty());
  }
}

// The requirements stop an installation before any script runs, and so before a file of it is laid down.
TEST_F(InstalledPackage, checksItsRequirementsFirst) {
  const std::map<std::string, std::string> refusals{{"FAKE_ARM64=no", "This Mac has no Apple silicon."},
                                                    {"FAKE_MACOS=12.7.6", "needs macOS 13 or later."},
                                                    {"FAKE_VM=1", "This is a virtual machine,"},
                                                    {"FAKE_BATTERY=No", "This Mac has no battery."}};
  for (const auto& [setting, refusal] : refusals) {
    const std::size_t sign = setting.find('=');
    const Finished run = install({{setting.substr(0, sign), setting.substr(sign + 1)}});
    EXPECT_THAT(run.output, HasSubstr("installer: Fatal: "));
    EXPECT_THAT(run.output, HasSubstr(refusal));
    EXPECT_THAT(mac.journal(), IsEmpty());
  }
}

TEST_F(InstalledPackage, refusesADowngradeByItsReceiptAndByTheProgram) {
  mac.put("/var/db/receipts/com.brisko.daemon.plist", "version: 9.0\n");
  const Finished byReceipt = install();
  EXPECT_THAT(byReceipt.output,
              HasSubstr("Fatal: Version 9.0 is installed, and this is the older version " + version));

  std::filesystem::remove(mac.at("/var/db/receipts/com.brisko.daemon.plist"));
  mac.put(programFile, "#!/bin/sh\necho 9.0\n");
  setMode(mac.at(programFile), 0755);
  const Finished byProgram = install();
  EXPECT_THAT(byProgram.output,
              HasSubstr("installer: Version 9.0 is installed, and this is the older version "));
  EXPECT_EQ(contents(mac.at(programFile)), "#!/bin/sh\necho 9.0\n");
  EXPECT_FALSE(mac.job());
}

TEST_F(Package, isOfOneTeamWithItsPrograms) {
  const Finished differentPrograms =
      make({"package", "INSTALLER_IDENTITY=Some One"}, {{"FAKE_CLIENT_SIGNER", "OTHER12345"}});
  EXPECT_NE(differentPrograms.status, 0);
  EXPECT_THAT(differentPrograms.errors, HasSubstr("signed by the team TEAM123456, and "));

  const Finished noTeam = make({"package", "INSTALLER_IDENTITY=Some One"}, {{"FAKE_SIGNER", "ad hoc"}});
  EXPECT_NE(noTeam.status, 0);
  EXPECT_THAT(noTeam.errors, HasSubstr("No team has signed "));

  const Finished wrongName =
      make({"package", "INSTALLER_IDENTITY=Some One"}, {{"FAKE_CLIENT_NAME", "brisko"}});
  EXPECT_NE(wrongName.status, 0);
  EXPECT_THAT(wrongName.errors, HasSubstr("is not signed as com.brisko.Brisko."));

  const Finished labsTeam =
      make({"package", "INSTALLER_IDENTITY=Some One"}, {{"FAKE_LAB_SIGNER", "OTHER12345"}});
  EXPECT_NE(labsTeam.status, 0);
  EXPECT_THAT(labsTeam.errors, HasSubstr("brisko-lab by OTHER12345."));
  EXPECT_THAT(calls(), Not(HasSubstr("pkgbuild")));

  for (const char* team : {"OTHER12345", "none"}) {
    const Finished package =
        make({"package", "INSTALLER_IDENTITY=Some One"}, {{"FAKE_INSTALLER_TEAM", team}});
    EXPECT_NE(package.status, 0);
    EXPECT_THAT(package.errors, HasSubstr("and the programs in it by the team TEAM123456."));
    EXPECT_FALSE(exists(this->package()));
  }
}

TEST_F(Package, isNotarisedOnlyWhenTheServiceAcceptsIt) {
  ASSERT_EQ(makePackage().status, 0);
  const Words notarize{"notarize", "NOTARY=--keychain-profile release"};

  EXPECT_EQ(make(notarize).status, 0);
  EXPECT_THAT(calls(), HasSubstr("xcrun notarytool submit /build/brisko-daemon-" + version +
                                 ".pkg --wait --output-format json --keychain-profile release\n"));

  const Finished rejected = make(notarize, {{"FAKE_NOTARY", "Invalid"}});
  EXPECT_NE(rejected.status, 0);
  EXPECT_THAT(rejected.output, HasSubstr("Submission 2efe2717-52ef-43a5-96dc-0797e4ca1041: Invalid"));
  EXPECT_THAT(rejected.errors, HasSubstr("The signature is invalid."));

  const Finished down = make(notarize, {{"FAKE_NOTARY", "down"}});
  EXPECT_NE(down.status, 0);
  EXPECT_THAT(down.errors, HasSubstr("The package could not be submitted."));

  EXPECT_NE(make({"notarize"}).status, 0);
  EXPECT_EQ(make({"staple"}).status, 0);
  EXPECT_THAT(calls(), HasSubstr("xcrun stapler validate /build/brisko-daemon-" + version + ".pkg\n"));
}

TEST_F(Package, mustExistBeforeItIsNotarisedOrListed) {
  for (const Words& target :
       {Words{"notarize", "NOTARY=x"}, Words{"staple"}, Words{"cask", "URL=x"}, Words{"checksums"}}) {
    const Finished run = make(target);
    EXPECT_NE(run.status, 0);
    EXPECT_THAT(run.errors, HasSubstr("There is no package at ")) << target[0];
  }
}

TEST_F(Package, hasABillOfMaterialsAndChecksums) {
  ASSERT_EQ(makePackage().status, 0);
  ASSERT_EQ(make({"bill-of-materials"}).status, 0);

  const auto bill = nlohmann::json::parse(contents(mac.at("/build/brisko-daemon-" + version + ".cdx.json")));
  EXPECT_EQ(bill["bomFormat"], "CycloneDX");
  EXPECT_EQ(bill["metadata"]["component"]["version"], version);
  EXPECT_EQ(bill["metadata"]["component"]["components"][0]["name"], "brisko-daemon");
  EXPECT_EQ(bill["metadata"]["component"]["components"][1]["name"], "brisko");
  EXPECT_EQ(bill["metadata"]["component"]["components"][2]["name"], "brisko-lab");
  EXPECT_EQ(bill["metadata"]["component"]["components"][0]["hashes"][0]["content"].get<std::string>().size(),
            64U);
  EXPECT_EQ(bill["components"][0]["name"], "nlohmann-json");
  EXPECT_EQ(bill["components"][1]["version"], "2.3.2");
  EXPECT_EQ(bill["components"][1]["licenses"][0]["license"]["id"], "BSD-3-Clause");

  ASSERT_EQ(make({"checksums"}).status, 0);
  const Finished check =
      run("/bin/sh", {"-c", R"(cd "$1" && sha256sum --check SHA256SUMS)", "sh", mac.at("/build")});
  EXPECT_EQ(check.status, 0) << check.errors;
  EXPECT_THAT(check.output, HasSubstr("brisko-daemon-" + version + ".pkg: OK\n"));
  EXPECT_THAT(check.output, HasSubstr(".cdx.json: OK\n"));
}

TEST_F(Package, hasNoBillOfMaterialsWithoutTheComponents) {
  mac.put("/build/components.txt", "");
  EXPECT_NE(make({"bill-of-materials"}).status, 0);
  EXPECT_FALSE(exists(mac.at("/build/brisko-daemon-" + version + ".cdx.json")));
}

// The paths in the text between two texts, as a list in the file of a cask names them.
Words pathsBetween(const std::string& text, const std::string& from, const std::string& to) {
  const std::size_t begin = text.find(from);
  const std::string part = text.substr(begin, text.find(to, begin) - begin);
  Words paths;
  for (std::size_t at = part.find("\"/"); at != std::string::npos; at = part.find("\"/", at + 2))
    paths.push_back(part.substr(at + 1, part.find('"', at + 1) - at - 1));
  return paths;
}

// What Homebrew does to remove a cask: the script and, with "zap", the paths to delete.
TEST_F(InstalledPackage, isRemovedByItsCaskAsByTheUninstaller) {
  ASSERT_EQ(make({"cask", "URL=https://example.com/brisko.pkg"}).status, 0);
  const std::string cask = contents(mac.at("/build/brisko-daemon.rb"));
  EXPECT_THAT(cask, HasSubstr("version \"" + version + "\""));
  EXPECT_THAT(cask, HasSubstr("url \"https://example.com/brisko.pkg\""));
  EXPECT_THAT(cask, Not(HasSubstr("@")));
  EXPECT_THAT(cask, HasSubstr("pkgutil: \"com.brisko.daemon\""));
  const Finished sum = run("/usr/bin/sha256sum", {package()});
  EXPECT_THAT(cask, HasSubstr("sha256 \"" + sum.output.substr(0, 64) + "\""));
  std::filesystem::remove(mac.at("/build/brisko-daemon.rb"));

  ASSERT_EQ(install().status, 0);
  const Words scripts = pathsBetween(cask, "uninstall script:", "sudo:");
  ASSERT_THAT(scripts, ElementsAre("/Library/Brisko/uninstall-service.sh"));
  ASSERT_THAT(cask, HasSubstr("args:       [\"--keep-data\"],"));
  ASSERT_EQ(mac.runScript(mac.at(scripts[0]), {"--keep-data"}).status, 0);
  // Homebrew looks for the receipt next, and finds none.
  EXPECT_FALSE(exists(mac.at("/var/db/receipts/com.brisko.daemon.plist")));
  const Words zapped = pathsBetween(cask, "zap delete:", "]");
  for (const std::string& path : zapped) std::filesystem::remove_all(mac.at(path));

  EXPECT_EQ(mac.added(), before);
  EXPECT_EQ(zapped.size(), 2U);
}

// The release of a tag in a job with these secrets.
class Release : public Package {
 protected:
  [[nodiscard]] Finished release(const Environment& environment, const std::string& tag) const {
    Environment all = environment;
    all.merge(Environment{{"PROGRAM", mac.at("/build/brisko-daemon")},
                          {"OUT", mac.at("/build/out")},
                          {"RUNNER_TEMP", mac.at("/tmp")},
                          {"GITHUB_REPOSITORY", "someone/brisko"}});
    return run("/bin/sh", {std::string(BRISKO_PACKAGING) + "/release.sh", tag}, forTools(all));
  }

  const Environment secrets{{"APPLICATION_CERTIFICATE", "YQ=="},
                            {"INSTALLER_CERTIFICATE", "Yg=="},
                            {"CERTIFICATE_PASSWORD", "c"},
                            {"NOTARY_KEY", "ZA=="},
                            {"NOTARY_KEY_ID", "e"},
                            {"NOTARY_ISSUER", "f"}};
};

TEST_F(Release, makesEverythingThatIsAttached) {
  const Finished run = release(secrets, "v" + version);

  EXPECT_EQ(run.status, 0) << run.output << run.errors;
  EXPECT_THAT(run.output, ::testing::EndsWith("released=yes\n"));
  for (const std::string end : {".pkg", ".cdx.json", "-symbols.tar.gz"}) {
    EXPECT_TRUE(exists(mac.at("/build/out/brisko-daemon-" + version + end))) << end;
  }
  EXPECT_THAT(
      contents(mac.at("/build/out/brisko-daemon.rb")),
      HasSubstr("https://github.com/someone/brisko/releases/download/v" + version + "/brisko-daemon-"));
  EXPECT_THAT(contents(mac.at("/build/out/SHA256SUMS")), HasSubstr("-symbols.tar.gz\n"));
  EXPECT_THAT(calls(), HasSubstr("xcrun stapler staple"));
  // No secret stays.
  EXPECT_THAT(mac.journal("security"), ElementsAre("security create-keychain release.keychain-db",
                                                   "security delete-keychain release.keychain-db"));
  const Finished left = brisko::test::run("/bin/ls", {mac.at("/tmp")});
  EXPECT_EQ(left.output, "");
}

TEST_F(Release, namesEverySecretThatIsMissing) {
  Environment some = secrets;
  some.erase("NOTARY_KEY");
  some["CERTIFICATE_PASSWORD"] = "";

  const Finished run = release(some, "v" + version);

  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output,
            "v" + version +
                " is not released, because these secrets are missing: CERTIFICATE_PASSWORD, NOTARY_KEY.\n"
                "released=no\n");
  EXPECT_FALSE(exists(mac.at("/build/out")));
}

TEST_F(Release, isOnlyOfTheVersionInTheSources) {
  const Finished run = release(secrets, "v9.9.9");

  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.errors,
              HasSubstr("The tag is v9.9.9, but the version in src/base/process_flags.h is " + version));
}

TEST_F(Release, failsWithoutACertificateOfEachKind) {
  const Finished run = release(
      [this] {
        Environment all = secrets;
        all["FAKE_IDENTITIES"] = "Application";
        return all;
      }(),
      "v" + version);

  EXPECT_NE(run.status, 0);
  EXPECT_THAT(run.errors, HasSubstr("The certificates contain no \"Developer ID Installer\"."));
}

TEST_F(Release, failsWhenTheNotaryServiceRejectsThePackage) {
  Environment all = secrets;
  all["FAKE_NOTARY"] = "Invalid";

  const Finished run = release(all, "v" + version);

  EXPECT_NE(run.status, 0);
  EXPECT_THAT(run.output, Not(HasSubstr("released=")));
}

TEST_F(Package, wantsAnIdentity) {
  const Finished signing = make({"sign"});
  const Finished packing = make({"package"});

  EXPECT_EQ(signing.status, 2);
  EXPECT_THAT(signing.errors, HasSubstr("Set IDENTITY to a signing certificate"));
  EXPECT_EQ(packing.status, 2);
  EXPECT_THAT(packing.errors, HasSubstr("Set INSTALLER_IDENTITY to an installer certificate"));
  EXPECT_EQ(calls(), "");
}

TEST_F(Package, wantsAProgram) {
  const Finished run = make({"sign", "IDENTITY=-", "PROGRAM=/nowhere/brisko-daemon"});

  EXPECT_NE(run.status, 0);
  EXPECT_THAT(run.errors, HasSubstr("There is no program at /nowhere/brisko-daemon"));

  std::filesystem::remove(mac.at("/build/brisko"));
  EXPECT_THAT(make({"sign", "IDENTITY=-"}).errors,
              HasSubstr("There is no program at " + mac.at("/build/brisko:")));
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

TEST_P(ProgramPackage, isMadeOnlyWhenItsSdkIsOfMacOS26OrLater) {
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
  EXPECT_EQ(calls(), "");
}

// What CMake says about the SDK that it is going to build with.
Finished configureWithSdk(const std::string& version, const std::string& path = "macosx") {
  const std::string sysroot = path == "macosx" ? "" : path;
  return run("/bin/sh",
             {"-c", R"(exec cmake "-DCMAKE_OSX_SYSROOT=$1" -P "$2")", "sh", sysroot, BRISKO_SDK_CHECK},
             {{"FAKE_SDK", version},
              {"FAKE_SYSROOT", path},
              {"PATH", std::string(BRISKO_FAKES) + ":/usr/bin:/bin"}});
}

TEST(Configuration, tellsInOneLineOfAnOlderSdk) {
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

TEST(Configuration, asksForTheSdkThatItIsGiven) {
  const std::string path = "/Applications/Old Xcode.app/MacOSX14.5.sdk";
  EXPECT_THAT(configureWithSdk("14.5", path).errors, HasSubstr("The SDK is 14.5,"));
}

TEST(Configuration, isSilentWhenNoSdkTellsItsVersion) {
  const Finished run = configureWithSdk("");
  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(run.output + run.errors, "");
}

TEST_F(Package, reportsThatItTakesAMac) {
  const Finished signing = make({"sign", "IDENTITY=-"}, plainLinux);
  const Finished packing = make({"package", "INSTALLER_IDENTITY=Some One"}, plainLinux);

  EXPECT_NE(signing.status, 0);
  EXPECT_THAT(signing.errors, HasSubstr("codesign not found: this works only on a Mac"));
  EXPECT_NE(packing.status, 0);
  EXPECT_THAT(packing.errors, HasSubstr("codesign not found: this works only on a Mac"));
}

}  // namespace
}  // namespace brisko::test::package_test
