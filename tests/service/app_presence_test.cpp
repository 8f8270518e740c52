#include "service/app_presence.h"

#include <filesystem>
#include <iterator>

#include "base/options.h"
#include "base/process_flags.h"
#include "hardware/led.h"
#include "native/native_limit.h"
#include "platform/clock.h"
#include "platform/run_loop.h"
#include "policy/evaluation.h"
#include "sim/seam/simulated/driver.h"
#include "state/charge_state_record.h"
#include "state/tick_state.h"
#include "support/descriptors.h"
#include "support/on_virtual_mac.h"
#include "support/testing.h"

namespace brisko::app_presence_test {
namespace {

using namespace test;

constexpr const char* installed = "/Applications/Brisko.app";

void afterIterations(int count) {
  if (count == 0) return platform::stopMain();
  platform::postMain([count] { afterIterations(count - 1); });
}

class Presence : public test::OnVirtualMac {
 protected:
  void SetUp() override {
    takeGate();
    gAppPath = installed;
  }
  void remove() { std::filesystem::remove_all(mac.path(installed)); }
  void install() { mac.write(std::string(installed) + "/Contents/Info.plist", "<plist/>"); }
  static void run(double seconds) {
    platform::postMainAfter(seconds, platform::stopMain);
    platform::runMain();
  }
  // Makes the app missing for so long at the next check.
  void goneFor(double seconds) {
    remove();
    gAppGoneSince = platform::wallNow() - seconds;
  }
};

TEST_F(Presence, isNotCheckedWithoutAPath) {
  gAppPath.reset();
  remove();
  checkAppPresence();
  watchApp();
  run(3600);
  EXPECT_EQ(gAppGoneSince, std::nullopt);
  EXPECT_EQ(gAppSource, std::nullopt);
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(Presence, endsAnAbsenceSilently) {
  gAppGoneSince = platform::wallNow() - 300;
  checkAppPresence();
  EXPECT_EQ(gAppGoneSince, std::nullopt);
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_THAT(mac.writes(), IsEmpty());
}

TEST_F(Presence, isFoundInEitherPlace) {
  gAppPath = "/Users/me/Brisko.app";
  checkAppPresence();
  EXPECT_EQ(gAppGoneSince, std::nullopt) << "in the Applications folder";
  remove();
  mac.write("/Users/me/Brisko.app/Contents/Info.plist", "<plist/>");
  checkAppPresence();
  EXPECT_EQ(gAppGoneSince, std::nullopt) << "where it was named";
  std::filesystem::remove_all(mac.path("/Users/me"));
  checkAppPresence();
  EXPECT_EQ(gAppGoneSince, platform::wallNow());
}

TEST_F(Presence, countsAFileOfThatNameToo) {
  remove();
  mac.write(installed, "a file");
  checkAppPresence();
  EXPECT_EQ(gAppGoneSince, std::nullopt);
}

TEST_F(Presence, recordsOnlyTheStartOfAnAbsence) {
  remove();
  const double first = platform::wallNow();
  checkAppPresence();
  EXPECT_EQ(gAppGoneSince, first);
  EXPECT_EQ(newLines().size(), 1U);
  mac.pass(100);
  checkAppPresence();
  EXPECT_EQ(gAppGoneSince, first);
  EXPECT_THAT(newLines(), IsEmpty());
}

TEST_F(Presence, endsAfterTenMinutesOfAbsenceAndNotBefore) {
  goneFor(599.75);
  checkAppPresence();
  EXPECT_FALSE(gDormant);
  goneFor(600);
  checkAppPresence();
  EXPECT_TRUE(gDormant);
}

TEST_F(Presence, handsEverythingBackAndStopsTheLightAtItsEnd) {
  mac.settings("{\"limit\":80}");
  evaluate();
  ASSERT_EQ(gMode, LedMode::blink);
  gState = ChargeState::hold;
  gHoldSince = 1;
  mac.forgetJournal();
  static_cast<void>(newLines());
  goneFor(600);
  checkAppPresence();
  EXPECT_THAT(mac.writes(), ElementsAre("CHIE=00", "CHTE=00000000", "ACLC=00"));
  EXPECT_EQ(gState, ChargeState::allow);
  EXPECT_EQ(gHoldSince, std::nullopt);
  EXPECT_EQ(gMode, LedMode::system);
  EXPECT_THAT(newLines(),
              ElementsAre("app gone — charge, adapter and LED handed back to macOS; service dormant "
                          "(uninstall with uninstall-service.sh)"));
  mac.forgetJournal();
  int events = 0;
  virtual_mac::setAfterEvent([&events] { ++events; });
  run(60);
  EXPECT_THAT(mac.writes(), IsEmpty());
  EXPECT_EQ(events, 1) << "only the work that ends this run; the light's timer was removed";
}

TEST_F(Presence, keepsOtherVariablesOfTheStateAtItsEnd) {
  gCutSince = 1;
  gCutRewrites = 2;
  gDriftLogged = true;
  goneFor(600);
  checkAppPresence();
  ASSERT_TRUE(gDormant);
  EXPECT_EQ(gCutSince, 1);
  EXPECT_EQ(gCutRewrites, 2);
  EXPECT_TRUE(gDriftLogged);
}

TEST_F(Presence, causesNoMoreLinesAfterItsEnd) {
  goneFor(600);
  checkAppPresence();
  static_cast<void>(newLines());
  mac.forgetJournal();
  mac.pass(3600);
  checkAppPresence();
  watchApp();
  run(3600);
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_THAT(mac.writes(), IsEmpty());
  install();
  watchApp();
  EXPECT_EQ(gAppSource, std::nullopt) << "nor is it watched any more";
}

TEST_F(Presence, keepsOneDescriptorHoweverOftenTheAppIsReplaced) {
  watchApp();
  const auto before = test::openDescriptors();
  for (int time = 0; time < 20; ++time) {
    remove();
    install();
    run(1);
  }
  EXPECT_TRUE(gAppSource.has_value());
  EXPECT_EQ(test::openDescriptors(), before);
}

TEST_F(Presence, takesTheChargeAgainAtOnceWhenTheAppReturns) {
  mac.charge(90);
  mac.settings("{\"limit\":80}");
  goneFor(600);
  checkAppPresence();
  static_cast<void>(newLines());
  gNativeWritten = 80;
  install();
  checkAppPresence();
  EXPECT_FALSE(gDormant);
  EXPECT_EQ(gAppGoneSince, std::nullopt);
  EXPECT_EQ(gNativeWritten, std::nullopt) << "macOS's limit must be written again";
  EXPECT_EQ(gState, ChargeState::hold);
  const auto lines = newLines();
  ASSERT_GE(lines.size(), 2U);
  EXPECT_EQ(lines[0], "app is back — Brisko takes the charge again");
  EXPECT_EQ(lines[1], "→ state: hold");
}

TEST_F(Presence, leavesTheLimitOfMacOSAloneWhileTheAppIsInstalled) {
  gNativeWritten = 80;
  checkAppPresence();
  EXPECT_EQ(gNativeWritten, 80);
}

// Such a bundle used to be watched again and again without end.
TEST_F(Presence, isWatchedOnceIfTheNameEndsLikeTheMarkOfADeletedApp) {
  gAppPath = "/Applications/Brisko.app (deleted)";
  mac.write(*gAppPath + "/Contents/Info.plist", "<plist/>");
  watchApp();
  const auto source = gAppSource;
  platform::postMain([] { afterIterations(20); });
  platform::runMain();
  EXPECT_TRUE(source.has_value());
  EXPECT_EQ(gAppSource, source);
}

TEST_F(Presence, isWatchedWhereTheAppIs) {
  watchApp();
  ASSERT_TRUE(gAppSource.has_value());
  run(600);
  remove();
  run(0.5);
  EXPECT_EQ(newLines().size(), 1U);
  EXPECT_EQ(gAppSource, std::nullopt);
  install();
  run(59);
  EXPECT_EQ(gAppSource, std::nullopt);
  run(1);
  EXPECT_TRUE(gAppSource.has_value());
  EXPECT_TRUE(gAppGoneSince.has_value()) << "a successful watch is not a check";
}

}  // namespace
}  // namespace brisko::app_presence_test
