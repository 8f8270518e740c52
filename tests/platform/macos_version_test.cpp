#include "platform/macos_version.h"

#include "support/testing.h"

namespace brisko::platform::macos_version_test {
namespace {

// What macOS 26 and 27 report to a program that was linked with an older SDK.
constexpr const char* adjusted = "16.6";

TEST(MacOSVersion, followsTheBuild) {
  EXPECT_EQ(macOSMajor("20A2411", adjusted), 11);
  EXPECT_EQ(macOSMajor("22H730", adjusted), 13);
  EXPECT_EQ(macOSMajor("23J30", adjusted), 14);
  EXPECT_EQ(macOSMajor("24G84", adjusted), 15);
  EXPECT_EQ(macOSMajor("25G83", adjusted), 26);
  EXPECT_EQ(macOSMajor("26A428", adjusted), 27);
  EXPECT_EQ(macOSMajor("99A1", adjusted), 100);
}

TEST(MacOSVersion, followsTheBuildOfATestVersion) {
  EXPECT_EQ(macOSMajor("26A5353q", adjusted), 27);
  EXPECT_EQ(macOSMajor("22E772610a", adjusted), 13);
}

TEST(MacOSVersion, comesFromTheProductVersionIfTheBuildIsInvalid) {
  for (const char* build : {"", "G83", "26", "26a428", "26A", "26AB1", "26.0", "26A-1", "-26A428", " 26A428",
                            "19H2026", "9223372036854775807A1"}) {
    EXPECT_EQ(macOSMajor(build, "15.6.1"), 15) << build;
  }
}

TEST(MacOSVersion, isTheNumberBeforeTheFirstDotOfAProductVersion) {
  EXPECT_EQ(macOSMajor("", "26"), 26);
  EXPECT_EQ(macOSMajor("", "27.0"), 27);
}

TEST(MacOSVersion, isZeroIfUnknown) {
  EXPECT_EQ(macOSMajor("", ""), 0);
  EXPECT_EQ(macOSMajor("", "unknown"), 0);
  EXPECT_EQ(macOSMajor("", "-1"), 0);
}

}  // namespace
}  // namespace brisko::platform::macos_version_test
