// Driving macOS's own limit, tick by tick: the writes, the reaction to the value read back from "bfG0", and
// the log.
#include "native/native_limit.h"

#include <nlohmann/json.hpp>

#include "base/options.h"
#include "base/process_flags.h"
#include "hardware/charge_gate.h"
#include "hardware/smart_charge_bridge.h"
#include "platform/clock.h"
#include "platform/preferences.h"
#include "state/charge_state_record.h"
#include "state/native_limit_state.h"
#include "state/tick_state.h"
#include "support/on_virtual_mac.h"
#include "support/testing.h"

namespace brisko::native_limit_test {
namespace {

using namespace test;
using Lines = std::vector<std::string>;

constexpr double hour = 3600;
constexpr const char* statsFile = "/Library/Application Support/Brisko/stats.json";
constexpr const char* statusFile = "/Library/Application Support/Brisko/status.json";
constexpr const char* verified80 = "limit verified: macOS holds 80% (bfG0)";
constexpr const char* noEffect80 = "⚠️ the limit has no effect: macOS doesn't hold 80% (bfG0 reads 0)";
constexpr const char* rewritten80 = "macOS limit changed outside Brisko (bfG0 reads 0) — setting 80% again";
constexpr const char* watching = "macOS keeps its own limit for now (bfG0 reads 0) — watching, no alarm";

Writes preferencesAt(int limit) {
  return {"preference MCLFeatureState=1", "preference mclLimitValue=" + std::to_string(limit),
          "preference MCLTempDisabledUntilDate removed", "preferences synchronised",
          "notified com.apple.smartcharging.defaultschanged"};
}
Writes primedAt(int limit) {
  Writes all = preferencesAt(limit);
  all.insert(all.begin(), "limit set 80");
  return all;
}

// A Mac on its adapter whose keys are closed, with no limit set. The fixture passes the values of the tick to
// the driver, and a test can set what "bfG0" shows.
class NativeLimitTest : public test::OnVirtualMac {
 protected:
  NativeLimitTest() : OnVirtualMac({.macOS = 27, .percent = 50}) {}

  void SetUp() override {
    mac.settings("{}");
    takeGate();
    ASSERT_TRUE(gateIsMacOSLimit());
  }

  // The arguments of the driver.
  Settings cfg;
  std::int64_t pct = 50;  // far below the limits, so that the current does not affect the state
  std::int64_t upper = 80;
  bool topUp = false;
  bool hot = false;
  std::optional<CalDrive> calDrive;

  // One tick, so many seconds after the previous one.
  Lines drive(double seconds = 12) {
    mac.pass(seconds);
    driveNative(cfg, pct, upper, topUp, calDrive, hot);
    return newLines();
  }
  void forgetLines() { static_cast<void>(newLines()); }
  // Ticks for so long, each 10 s after the previous one.
  Lines driveFor(double seconds) {
    for (double at = 0; at < seconds; at += 10) {
      mac.pass(10);
      driveNative(cfg, pct, upper, topUp, calDrive, hot);
    }
    return newLines();
  }
  void limit(std::int64_t percent) {
    cfg.limit = percent;
    upper = percent;
  }
  void show(std::uint8_t mirror) { mac.keyBytes("bfG0", {mirror}); }
  // The writes since the last call.
  Writes newWrites() {
    Writes all = mac.writes();
    mac.forgetJournal();
    return all;
  }
  // Makes the first write and sets what is read back; returns the time of the write.
  double written(std::int64_t percent, std::uint8_t mirror) {
    limit(percent);
    show(mirror);
    drive();
    mac.forgetJournal();
    return platform::wallNow();
  }
  // Sets a target, which is confirmed at the next tick; returns when it was set.
  double verified(std::int64_t percent) {
    const double at = written(percent, percent < 100 ? static_cast<std::uint8_t>(percent) : 0);
    drive();
    EXPECT_EQ(gGateVerified, true);
    return at;
  }
  // Advances to `seconds` after `start` and drives once.
  Lines driveAt(double start, double seconds) { return drive(start + seconds - platform::wallNow()); }

  [[nodiscard]] nlohmann::json stats() const { return nlohmann::json::parse(mac.read(statsFile)); }
  void slider(double percent) { mac.number(ChangeKind::limit, percent); }
  void answer(LimitAnswer answer) { mac.number(ChangeKind::limitSetAnswer, static_cast<double>(answer)); }
};

// -- The previous limit

TEST_F(NativeLimitTest, recordsThatThereWasNoLimit) {
  EXPECT_THAT(drive(), ElementsAre("native limit before Brisko: off — given back if Brisko leaves",
                                   "macOS limit → 80%"));
  EXPECT_EQ(gNativeBefore, 100);
  EXPECT_EQ(stats().at("nativeBefore"), 100);
}

TEST_F(NativeLimitTest, recordsTheLimitOfTheSlider) {
  slider(90);
  EXPECT_THAT(drive(), ElementsAre("native limit before Brisko: 90% — given back if Brisko leaves",
                                   "macOS limit → 80%"));
  EXPECT_EQ(stats().at("nativeBefore"), 90);
}

TEST_F(NativeLimitTest, recordsEveryLimitFrom1On) {
  ASSERT_TRUE(NativeLimit::write(1, false));
  EXPECT_EQ(drive().front(), "native limit before Brisko: 1% — given back if Brisko leaves");
  EXPECT_EQ(gNativeBefore, 1);
}

TEST_F(NativeLimitTest, readsThePreviousLimitOnlyOnce) {
  gNativeBefore = 85;
  slider(95);
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 80%"));
  EXPECT_EQ(gNativeBefore, 85);
}

class UnreadableLimit : public NativeLimitTest, public ::testing::WithParamInterface<ChangeKind> {
 protected:
  void SetUp() override {
    NativeLimitTest::SetUp();
    slider(90);
    mac.number(GetParam(), 1);
    mac.forgetJournal();
  }
};

TEST_P(UnreadableLimit, isAwaitedForAMinuteInWhichNothingIsWritten) {
  show(80);
  gState = ChargeState::hold;
  gGateVerified = true;
  EXPECT_THAT(drive(), IsEmpty());
  const double first = platform::wallNow();
  for (double at = 12; at < 60; at += 12) EXPECT_THAT(driveAt(first, at), IsEmpty()) << at;
  EXPECT_THAT(driveAt(first, 59.5), IsEmpty());
  EXPECT_THAT(newWrites(), IsEmpty());
  EXPECT_EQ(gNativeWritten, std::nullopt);
  EXPECT_EQ(gNativeBefore, std::nullopt);
  EXPECT_EQ(gState, ChargeState::hold) << "nothing else happens either";
  EXPECT_EQ(gGateVerified, true);

  EXPECT_THAT(driveAt(first, 60),
              ElementsAre("native limit before Brisko unreadable — will give back \"off\"",
                          "macOS limit → 80%", "→ state: allow (macOS limit 80%)"));
  EXPECT_EQ(newWrites(), Writes{"limit set 80"});
  EXPECT_EQ(gNativeBefore, 100);
  EXPECT_EQ(stats().at("nativeBefore"), 100);
}

TEST_P(UnreadableLimit, isRecordedIfItBecomesReadableInTime) {
  drive();
  drive(48);
  mac.number(GetParam(), 0);
  EXPECT_THAT(drive(11), ElementsAre("native limit before Brisko: 90% — given back if Brisko leaves",
                                     "macOS limit → 80%"));
}

INSTANTIATE_TEST_SUITE_P(Ways, UnreadableLimit,
                         ::testing::Values(ChangeKind::limitEnabledFails, ChangeKind::limitValueFails),
                         [](const auto& way) {
                           return way.param == ChangeKind::limitEnabledFails ? "whetherItIsOn" : "whatItIs";
                         });

TEST_F(NativeLimitTest, treatsALimitOf0AsUnreadable) {
  platform::setPreference(NativeLimit::domain, "MCLFeatureState", 1);
  platform::setPreference(NativeLimit::domain, "mclLimitValue", 0);
  ASSERT_TRUE(platform::synchronizePreferences(NativeLimit::domain));
  ASSERT_EQ(CKMCLEnabled(), 1);
  ASSERT_EQ(CKMCLLimit(), 0);
  EXPECT_THAT(drive(), IsEmpty());
  EXPECT_EQ(gNativeBefore, std::nullopt);
}

TEST_F(NativeLimitTest, publishesTheStatusWhileItWaitsForThePreviousLimit) {
  mac.number(ChangeKind::limitEnabledFails, 1);
  ticks(1);
  EXPECT_THAT(newLines(), ElementsAre(HasSubstr("state=allow")));
  const auto status = nlohmann::json::parse(mac.read(statusFile));
  EXPECT_EQ(status.at("chargeMode"), "macOS");
  EXPECT_EQ(status.at("pct"), 50);
}

// -- The first write

TEST_F(NativeLimitTest, writesTheLimitOnTheFirstTick) {
  drive();
  EXPECT_EQ(newWrites(), Writes{"limit set 80"});
  EXPECT_EQ(gNativeWritten, 80);
  EXPECT_EQ(gNativeAttemptAt, platform::wallNow());
  EXPECT_EQ(gNativeNudgedAt, platform::wallNow());
  EXPECT_EQ(gGateVerified, std::nullopt);
}

TEST_F(NativeLimitTest, doesNotEvaluateInTheTickOfTheWrite) {
  show(80);
  drive();
  EXPECT_EQ(gGateVerified, std::nullopt);
  EXPECT_THAT(drive(), ElementsAre(verified80));
  EXPECT_EQ(gGateVerified, true);
}

TEST_F(NativeLimitTest, writesOnceAndVerifiesOnce) {
  drive();
  mac.forgetJournal();
  EXPECT_THAT(drive(), ElementsAre(verified80)) << "the machine has applied it by now";
  EXPECT_THAT(driveFor(2 * hour), IsEmpty());
  EXPECT_THAT(newWrites(), IsEmpty());
}

TEST_F(NativeLimitTest, verifiesAgainAfterTheUserChangesTheLimit) {
  verified(80);
  mac.change({.kind = ChangeKind::keyUnscript, .key = virtual_mac::keyCode("bfG0")});
  forgetLines();
  limit(95);
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 95%"));
  EXPECT_EQ(gGateVerified, std::nullopt);
  EXPECT_THAT(drive(), ElementsAre("limit verified: macOS holds 95% (bfG0)"));
  limit(100);
  EXPECT_THAT(drive(), ElementsAre("macOS limit → off"));
  EXPECT_THAT(drive(), ElementsAre("limit verified: macOS holds no limit (bfG0)"));
  EXPECT_EQ(newWrites(), (Writes{"limit set 95", "limit set 100"}));
}

TEST_F(NativeLimitTest, treats100InTheReadBackAsNoLimit) {
  const double at = written(100, 100);
  EXPECT_THAT(driveAt(at, 599.5), IsEmpty());
  EXPECT_THAT(driveAt(at, 600),
              ElementsAre("⚠️ the limit has no effect: macOS doesn't hold 100% (bfG0 reads 100)"));
}

TEST_F(NativeLimitTest, restartsTheWaitWithEveryNewTarget) {
  written(80, 0);
  drive(599);
  limit(85);
  drive(10);
  EXPECT_EQ(gNativeAttemptAt, platform::wallNow());
  EXPECT_EQ(gNativeNudgedAt, platform::wallNow());
  EXPECT_THAT(drive(599), IsEmpty());
  EXPECT_EQ(gGateVerified, std::nullopt);
}

TEST_F(NativeLimitTest, reportsARefusedWriteAndKeepsWaiting) {
  for (const LimitAnswer refusal : {LimitAnswer::no, LimitAnswer::error}) {
    answer(refusal);
    gNativeWritten.reset();
    gGateVerified.reset();
    gNativeBefore = 100;
    EXPECT_THAT(drive(), ElementsAre("macOS limit → 80% ⚠️ refused"));
    EXPECT_EQ(gNativeWritten, 80);
    const double at = platform::wallNow();
    EXPECT_THAT(driveAt(at, 599.5), IsEmpty());
    EXPECT_THAT(driveAt(at, 600), ElementsAre(noEffect80));
  }
}

TEST_F(NativeLimitTest, reportsPreferencesThatCouldNotBeStored) {
  gNativeBefore = 100;
  mac.number(ChangeKind::preferencesFail, 1);
  limit(75);
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 75% ⚠️ refused"));
}

// -- Priming

struct MirrorCase {
  std::uint8_t mirror;
  bool primed;
};

TEST_F(NativeLimitTest, setsEightyFirstIfTheReadBackShowsNoLimitOrOneAboveEighty) {
  gNativeBefore = 100;
  for (const MirrorCase& example : {MirrorCase{0, true}, MirrorCase{1, false}, MirrorCase{75, false},
                                    MirrorCase{79, false}, MirrorCase{80, false}, MirrorCase{81, true},
                                    MirrorCase{85, true}, MirrorCase{100, true}, MirrorCase{255, true}}) {
    slider(85);  // the feature is on, so only priming sets a limit
    show(example.mirror);
    gNativeWritten.reset();
    mac.forgetJournal();
    limit(75);
    drive();
    EXPECT_EQ(newWrites(), example.primed ? primedAt(75) : preferencesAt(75)) << int{example.mirror};
  }
}

TEST_F(NativeLimitTest, primesUpTo79Only) {
  gNativeBefore = 100;
  slider(85);
  show(0);
  limit(79);
  drive();
  EXPECT_EQ(newWrites(), primedAt(79));
  limit(81);
  drive();
  EXPECT_EQ(newWrites(), preferencesAt(81));
}

TEST_F(NativeLimitTest, doesNotPrimeWithoutReadBack) {
  gNativeBefore = 100;
  slider(85);
  mac.removeKey("bfG0");
  limit(75);
  drive();
  EXPECT_EQ(newWrites(), preferencesAt(75));
}

TEST_F(NativeLimitTest, doesNotPrimeWithAnEmptyReadBack) {
  gNativeBefore = 100;
  slider(85);
  mac.change({.kind = ChangeKind::keySize, .key = virtual_mac::keyCode("bfG0"), .number = 0});
  limit(75);
  drive();
  EXPECT_EQ(newWrites(), preferencesAt(75));
}

// -- No read back

TEST_F(NativeLimitTest, reportsOnceThatTheLimitCannotBeReadBack) {
  mac.removeKey("bfG0");
  drive();
  EXPECT_THAT(drive(), ElementsAre("no bfG0 on this Mac — the macOS limit is set but can't be read back"));
  mac.forgetJournal();
  EXPECT_THAT(driveFor(2 * hour), IsEmpty());
  EXPECT_THAT(newWrites(), IsEmpty()) << "without verification there is no rewrite";
  EXPECT_EQ(gGateVerified, std::nullopt);
  limit(85);
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 85%"));
  EXPECT_THAT(driveFor(hour), IsEmpty());
}

TEST_F(NativeLimitTest, treatsAnEmptyReadBackAsMissing) {
  mac.change({.kind = ChangeKind::keySize, .key = virtual_mac::keyCode("bfG0"), .number = 0});
  drive();
  EXPECT_THAT(drive(), ElementsAre("no bfG0 on this Mac — the macOS limit is set but can't be read back"));
}

TEST_F(NativeLimitTest, doesNotReportAMissingReadBackOnBattery) {
  mac.removeKey("bfG0").unplug();
  drive();
  EXPECT_THAT(drive(), IsEmpty());
}

// -- Waiting

TEST_F(NativeLimitTest, writesAgainEvery90SecondsSilently) {
  const double at = written(80, 0);
  EXPECT_THAT(driveAt(at, 89.5), IsEmpty());
  EXPECT_THAT(newWrites(), IsEmpty());
  EXPECT_THAT(driveAt(at, 90), IsEmpty());
  EXPECT_EQ(newWrites(), Writes{"limit set 80"});
  EXPECT_EQ(gNativeNudgedAt, at + 90);
  EXPECT_EQ(gNativeAttemptAt, at) << "the wait continues";
  EXPECT_THAT(driveAt(at, 179.5), IsEmpty());
  EXPECT_THAT(newWrites(), IsEmpty());
  EXPECT_THAT(driveAt(at, 180), IsEmpty());
  EXPECT_EQ(newWrites(), Writes{"limit set 80"});
  EXPECT_EQ(gGateVerified, std::nullopt);
}

TEST_F(NativeLimitTest, writesAgainSixTimesBeforeItGivesUp) {
  written(80, 0);
  EXPECT_THAT(driveFor(2 * hour), ElementsAre(noEffect80));
  EXPECT_EQ(newWrites(), Writes(6, "limit set 80"));
}

TEST_F(NativeLimitTest, writesAgainBelowEightyWithoutPriming) {
  const double at = written(75, 0);
  ASSERT_THAT(driveAt(at, 90), IsEmpty());
  EXPECT_EQ(newWrites(), preferencesAt(75)) << "the first write has switched the feature on";
}

TEST_F(NativeLimitTest, endsAFullChargeOfTheMenuByARewriteBelowEighty) {
  const double at = written(75, 0);
  mac.number(ChangeKind::chargeToFull, hour);
  EXPECT_THAT(driveAt(at, 80), IsEmpty());
  EXPECT_NE(NativeLimit::tempDisabledUntil(), std::nullopt);
  EXPECT_THAT(driveAt(at, 90), IsEmpty());
  EXPECT_EQ(NativeLimit::tempDisabledUntil(), std::nullopt);
}

TEST_F(NativeLimitTest, doesNotCountTimeOnBattery) {
  written(80, 0);
  mac.unplug();
  driveFor(1800);
  EXPECT_EQ(gNativeAttemptAt, platform::wallNow());
  const double last = platform::wallNow();
  mac.plugIn();
  EXPECT_THAT(driveAt(last, 60), IsEmpty());
  EXPECT_THAT(driveAt(last, 599.5), IsEmpty());
  EXPECT_EQ(gNativeAttemptAt, last) << "it is unchanged while plugged in";
  EXPECT_THAT(driveAt(last, 600), ElementsAre(noEffect80));
}

TEST_F(NativeLimitTest, doesNotEvaluateOnBattery) {
  mac.unplug();
  show(80);
  EXPECT_THAT(drive(), ElementsAre("native limit before Brisko: off — given back if Brisko leaves",
                                   "macOS limit → 80%"))
      << "but it writes there";
  mac.forgetJournal();
  EXPECT_THAT(driveFor(hour), IsEmpty());
  EXPECT_EQ(gGateVerified, std::nullopt);
  show(0);
  EXPECT_THAT(driveFor(hour), IsEmpty());
  EXPECT_THAT(newWrites(), IsEmpty());
}

TEST_F(NativeLimitTest, usesTheLastReadingIfTheAdapterCannotBeRead) {
  written(80, 80);
  mac.removeKey("AC-W");
  gLastPlugged = false;
  EXPECT_THAT(drive(), IsEmpty());
  gLastPlugged = true;
  EXPECT_THAT(drive(), ElementsAre(verified80));
}

// -- Drift

TEST_F(NativeLimitTest, setsAChangedLimitAgainAfter30Seconds) {
  const double at = verified(80);
  show(0);
  EXPECT_THAT(driveAt(at, 29.5), IsEmpty());
  EXPECT_THAT(newWrites(), IsEmpty());
  EXPECT_THAT(driveAt(at, 30), ElementsAre(rewritten80));
  EXPECT_EQ(newWrites(), Writes{"limit set 80"});
  EXPECT_EQ(gNativeAttemptAt, at + 30);
  EXPECT_EQ(gNativeNudgedAt, at) << "correcting drift is no nudge";
  EXPECT_EQ(gGateVerified, true);
}

TEST_F(NativeLimitTest, namesWhatMacOSHoldsInstead) {
  verified(80);
  show(100);
  EXPECT_THAT(drive(60),
              ElementsAre("macOS limit changed outside Brisko (bfG0 reads 100) — setting 80% again"));
}

TEST_F(NativeLimitTest, sets100AgainToo) {
  verified(100);
  show(80);
  EXPECT_THAT(drive(60),
              ElementsAre("macOS limit changed outside Brisko (bfG0 reads 80) — setting 100% again"));
}

TEST_F(NativeLimitTest, setsALimitBelowEightyAgainWithoutPriming) {
  verified(75);
  show(0);
  drive(60);
  EXPECT_EQ(newWrites(), preferencesAt(75));
}

TEST_F(NativeLimitTest, onlyObservesALimitThatKeepsDrifting) {
  verified(80);
  show(0);
  ASSERT_THAT(drive(60), ElementsAre(rewritten80));
  const double again = platform::wallNow();
  mac.forgetJournal();
  EXPECT_THAT(driveAt(again, 599.5), IsEmpty());
  EXPECT_EQ(gGateVerified, true);
  EXPECT_THAT(driveAt(again, 600), ElementsAre(watching));
  EXPECT_EQ(gGateVerified, std::nullopt);
  EXPECT_EQ(gNativeAttemptAt, again);
  EXPECT_THAT(driveFor(2 * hour), IsEmpty());
  EXPECT_THAT(newWrites(), IsEmpty());
}

TEST_F(NativeLimitTest, reportsWhenAnObservedLimitReturnsAndCorrectsDriftAgain) {
  verified(80);
  show(0);
  driveFor(700);
  ASSERT_EQ(gGateVerified, std::nullopt);
  forgetLines();
  show(80);
  EXPECT_THAT(drive(), ElementsAre(verified80));
  show(0);
  EXPECT_THAT(drive(), ElementsAre(rewritten80));
  EXPECT_THAT(drive(600), ElementsAre(watching));
}

TEST_F(NativeLimitTest, rewritesAfterEveryDriftIfTheLimitReturnedInBetween) {
  verified(80);
  for (int round = 0; round < 3; ++round) {
    show(0);
    EXPECT_THAT(drive(60), ElementsAre(rewritten80));
    show(80);
    EXPECT_THAT(drive(), IsEmpty()) << "it counted as verified all the time";
  }
}

TEST_F(NativeLimitTest, waits30SecondsAfterARewriteToo) {
  verified(80);
  show(0);
  drive(60);
  const double again = platform::wallNow();
  show(80);
  drive(5);
  show(0);
  EXPECT_THAT(driveAt(again, 29.5), IsEmpty());
  EXPECT_THAT(driveAt(again, 30), ElementsAre(rewritten80));
}

TEST_F(NativeLimitTest, countsNoDriftBeforeATargetIsVerified) {
  verified(80);
  limit(85);
  drive();
  mac.forgetJournal();
  EXPECT_THAT(drive(60), IsEmpty());
  EXPECT_THAT(newWrites(), IsEmpty());
}

TEST_F(NativeLimitTest, startsUnverifiedWithEveryNewTarget) {
  verified(80);
  limit(85);
  drive();
  limit(80);
  show(0);
  drive();
  const double at = platform::wallNow();
  EXPECT_THAT(driveAt(at, 60), IsEmpty());
  EXPECT_THAT(driveAt(at, 600), ElementsAre(noEffect80));
}

// -- A full charge requested in the menu

TEST_F(NativeLimitTest, waitsWhileAFullChargeIsRequested) {
  verified(80);
  show(0);
  mac.number(ChangeKind::chargeToFull, 1772352930 - platform::wallNow());
  EXPECT_THAT(drive(60), ElementsAre("macOS charges to full until 2026-03-01 08:15:30 +0000 (asked in the "
                                     "Battery menu) — Brisko waits"));
  EXPECT_EQ(gGateVerified, std::nullopt);
  mac.forgetJournal();
  EXPECT_THAT(driveFor(600), IsEmpty());
  EXPECT_THAT(newWrites(), IsEmpty());
}

TEST_F(NativeLimitTest, restoresItsLimitWhenTheFullChargeIsOver) {
  verified(80);
  show(0);
  const double until = platform::wallNow() + 300;
  mac.number(ChangeKind::chargeToFull, 300);
  ASSERT_EQ(drive().size(), 1U);
  mac.forgetJournal();
  EXPECT_THAT(driveAt(until, -0.5), IsEmpty());
  EXPECT_THAT(driveAt(until, 0), ElementsAre(rewritten80)) << "now is no longer later than now";
  EXPECT_EQ(newWrites(), Writes{"limit set 80"});
  EXPECT_EQ(gGateVerified, std::nullopt);
  show(80);
  EXPECT_THAT(drive(), ElementsAre(verified80));
}

TEST_F(NativeLimitTest, logsNothingMoreIfTheLimitDoesNotReturnAfterAFullCharge) {
  verified(80);
  show(0);
  mac.number(ChangeKind::chargeToFull, 300);
  drive();
  EXPECT_THAT(driveFor(2 * hour), ElementsAre(rewritten80))
      << "that macOS keeps its own limit was already logged";
}

TEST_F(NativeLimitTest, treatsADateInThePastAsNoRequest) {
  mac.number(ChangeKind::chargeToFull, 5);
  verified(80);
  show(0);
  EXPECT_THAT(drive(60), ElementsAre(rewritten80));
}

TEST_F(NativeLimitTest, reportsTheNextFullChargeToo) {
  verified(80);
  for (int day = 1; day <= 2; ++day) {
    show(0);
    mac.number(ChangeKind::chargeToFull, hour);
    EXPECT_THAT(drive(60), ElementsAre(HasSubstr("macOS charges to full until 2026-03-0")));
    show(80);
    EXPECT_THAT(drive(2 * hour), ElementsAre(verified80));
    mac.pass(22 * hour);
  }
}

// -- … with the guard of the menu

constexpr const char* waits =
    "macOS charges to full until 2026-03-01 09:00:00 +0000 (asked in the Battery menu) — Brisko waits";

class GuardedMenu : public NativeLimitTest {
 protected:
  void SetUp() override {
    NativeLimitTest::SetUp();
    gGuards.menu = true;
    verified(80);
    show(0);
    mac.number(ChangeKind::chargeToFull, until - platform::wallNow());
    mac.forgetJournal();
  }
  static constexpr double until = 1772355600;
};

TEST_F(GuardedMenu, writesNothingAboveTheLimit) {
  EXPECT_THAT(drive(), ElementsAre(waits));
  for (const std::int64_t seen : {81, 90, 100}) {
    pct = seen;
    EXPECT_THAT(drive(), IsEmpty()) << seen;
  }
  EXPECT_THAT(newWrites(), IsEmpty());
  EXPECT_EQ(gNativeFullUntil, until);
}

TEST_F(GuardedMenu, keepsTheLimitItselfWhenTheFullChargeIsOver) {
  drive();
  pct = 100;
  drive();
  show(80);
  EXPECT_THAT(driveAt(until, 0), ElementsAre(verified80)) << "the charge reached is no hold point";
  EXPECT_EQ(gNativeFullUntil, std::nullopt);
  pct = 80;
  drive();
  pct = 81;
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 81%")) << "the next rise above the limit is one again";
}

TEST_F(GuardedMenu, leavesAHoldPointOfBeforeAlone) {
  mac.number(ChangeKind::chargeToFull, 0);
  pct = 90;
  EXPECT_THAT(drive(), Contains("macOS limit → 90%"));
  mac.number(ChangeKind::chargeToFull, until - platform::wallNow());
  EXPECT_THAT(drive(), ElementsAre(waits));
  pct = 95;
  EXPECT_THAT(drive(), IsEmpty());
}

TEST_F(GuardedMenu, keepsAHoldPointOfBeforeAlsoAfterTheFullCharge) {
  mac.number(ChangeKind::chargeToFull, 0);
  pct = 90;
  EXPECT_THAT(drive(), Contains("macOS limit → 90%"));
  mac.number(ChangeKind::chargeToFull, until - platform::wallNow());
  drive();
  pct = 95;
  drive();
  driveAt(until, 0);
  EXPECT_EQ(gNativeWritten, 90);
}

TEST_F(GuardedMenu, followsChangedSettingsAtOnce) {
  drive();
  limit(85);
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 85%"));
  limit(80);
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 80%"));
  EXPECT_THAT(drive(), ElementsAre(waits)) << "and waits again";
}

TEST_F(GuardedMenu, givesWayToHeat) {
  drive();
  pct = 90;
  drive();
  hot = true;
  EXPECT_THAT(
      drive(),
      ElementsAre("the battery is too hot for the full charge that macOS was asked for — Brisko ends it",
                  "macOS limit → 80%"));
  EXPECT_EQ(NativeLimit::tempDisabledUntil(), std::nullopt);
}

TEST_F(GuardedMenu, endsAFullChargeOnceAsLongAsItsDateLiesAhead) {
  drive();
  hot = true;
  EXPECT_THAT(drive(), Contains(HasSubstr("Brisko ends it")));
  mac.number(ChangeKind::chargeToFull, hour);
  mac.forgetJournal();
  EXPECT_THAT(drive(), Not(Contains(HasSubstr("Brisko ends it"))));
  EXPECT_THAT(newWrites(), Not(Contains("preference MCLTempDisabledUntilDate removed")));
}

TEST_F(GuardedMenu, endsAFullChargeThatLastsLongerThanADay) {
  const double begin = platform::wallNow() + 12;
  mac.number(ChangeKind::chargeToFull, 24 * hour);
  drive();
  EXPECT_THAT(driveAt(begin, 12 * hour), IsEmpty());
  mac.number(ChangeKind::chargeToFull, 24 * hour);
  EXPECT_THAT(driveAt(begin, 24 * hour - 1), IsEmpty()) << "asked for again, it is still the same";
  EXPECT_THAT(
      driveAt(begin, 24 * hour),
      ElementsAre("macOS has charged to full for 24 h — Brisko sets its limit again", "macOS limit → 80%"));
  EXPECT_EQ(NativeLimit::tempDisabledUntil(), std::nullopt);
  EXPECT_THAT(newWrites(), Contains("preference MCLTempDisabledUntilDate removed"));
}

TEST_F(GuardedMenu, handsBackAsEver) {
  drive();
  mac.forgetJournal();
  handBackNative();
  EXPECT_EQ(newWrites(), Writes{"limit set 100"});
}

// -- Refusals

TEST_F(NativeLimitTest, warnsOnceOfAStepThatIsNotHeldAfterTenMinutes) {
  const double at = written(80, 0);
  EXPECT_THAT(driveAt(at, 599.5), IsEmpty());
  EXPECT_EQ(gGateVerified, std::nullopt);
  EXPECT_THAT(driveAt(at, 600), ElementsAre(noEffect80));
  EXPECT_EQ(gGateVerified, false);
  mac.forgetJournal();
  EXPECT_THAT(driveFor(2 * hour), IsEmpty());
  EXPECT_THAT(newWrites(), IsEmpty());
  EXPECT_EQ(gNativeWritten, 80) << "a step is never given up";
  show(80);
  EXPECT_THAT(drive(), ElementsAre(verified80));
  EXPECT_EQ(gGateVerified, true);
}

TEST_F(NativeLimitTest, warnsOnceOfEachStep) {
  for (const std::int64_t step : {85, 90, 95}) {
    written(step, 80);
    EXPECT_THAT(driveFor(610), ::testing::Contains("⚠️ the limit has no effect: macOS doesn't hold " +
                                                   std::to_string(step) + "% (bfG0 reads 80)"));
  }
}

TEST_F(NativeLimitTest, fallsBackToTheNextLowerStepWhereOthersAreRefused) {
  const double at = written(83, 90);
  forgetLines();
  EXPECT_THAT(driveAt(at, 599.5), IsEmpty());
  EXPECT_THAT(driveAt(at, 600),
              ElementsAre("⚠️ macOS won't hold 83% on this Mac (bfG0 reads 90) — holding 80% instead"));
  EXPECT_EQ(gGateVerified, std::nullopt);
  EXPECT_EQ(gNativeWritten, 83) << "until the next tick";
  mac.forgetJournal();
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 80%"));
  EXPECT_EQ(newWrites(), Writes{"limit set 80"});
  EXPECT_EQ(gNativeFloor, std::nullopt);
  show(80);
  EXPECT_THAT(drive(), ElementsAre(verified80));
}

TEST_F(NativeLimitTest, neverTriesAValueBetweenTheStepsAgain) {
  written(97, 0);
  EXPECT_THAT(drive(600),
              ElementsAre("⚠️ macOS won't hold 97% on this Mac (bfG0 reads 0) — holding 95% instead"));
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 95%"));
  struct Case {
    std::int64_t limit;
    const char* line;
  };
  for (const Case& example :
       {Case{82, "macOS limit → 80%"}, Case{79, "macOS limit → 79%"}, Case{81, "macOS limit → 80%"},
        Case{99, "macOS limit → 95%"}, Case{90, "macOS limit → 90%"}, Case{100, "macOS limit → off"}}) {
    limit(example.limit);
    EXPECT_THAT(drive(), ElementsAre(example.line)) << example.limit;
  }
}

TEST_F(NativeLimitTest, distinguishesRefusalsBelowEightyFromThoseBetweenSteps) {
  written(79, 0);
  EXPECT_THAT(drive(600),
              ElementsAre("⚠️ macOS won't hold 79% on this Mac (bfG0 reads 0) — holding 80% instead"));
  limit(81);
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 81%"));
  EXPECT_THAT(drive(600),
              ElementsAre("⚠️ macOS won't hold 81% on this Mac (bfG0 reads 0) — holding 80% instead"));
  EXPECT_EQ(gNativeFloor, std::nullopt);
}

TEST_F(NativeLimitTest, fallsBackToEightyWhereLessIsRefused) {
  const double at = written(75, 80);
  forgetLines();
  EXPECT_THAT(driveAt(at, 599.5), IsEmpty());
  EXPECT_THAT(driveAt(at, 600),
              ElementsAre("⚠️ macOS won't hold 75% on this Mac (bfG0 reads 80) — holding 80% instead"));
  EXPECT_EQ(gNativeFloor, std::nullopt) << "the next tick reads it";
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 80%"));
  EXPECT_EQ(gNativeFloor, 80);
  EXPECT_THAT(drive(), ElementsAre(verified80));
  EXPECT_THAT(driveFor(2 * hour), IsEmpty());
}

class Refused75 : public NativeLimitTest {
 protected:
  void SetUp() override {
    NativeLimitTest::SetUp();
    written(75, 80);
    drive(600);
    drive();
    drive();
    ASSERT_EQ(gNativeFloor, 80);
    forgetLines();
    mac.forgetJournal();
  }
};

TEST_F(Refused75, triesALimitAboveTheRefusedOne) {
  limit(76);
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 76%"));
  EXPECT_EQ(gNativeFloor, std::nullopt);
  EXPECT_THAT(drive(600),
              ElementsAre("⚠️ macOS won't hold 76% on this Mac (bfG0 reads 80) — holding 80% instead"));
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 80%"));
  EXPECT_EQ(gNativeFloor, 80);
}

TEST_F(Refused75, holdsEightyForALimitAtOrBelowTheRefusedOne) {
  for (const std::int64_t percent : {75, 74, 20}) {
    limit(percent);
    EXPECT_THAT(drive(), IsEmpty());
    EXPECT_EQ(gNativeFloor, 80);
    EXPECT_EQ(gNativeWritten, 80);
  }
  EXPECT_THAT(newWrites(), IsEmpty());
}

TEST_F(Refused75, recordsTheHighestRefusedLimit) {
  calDrive = CalDrive{.target = 78};
  drive();
  drive(600);
  calDrive = CalDrive{.target = 76};
  forgetLines();
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 80%"));
  calDrive.reset();
  limit(78);
  EXPECT_THAT(drive(), ElementsAre(verified80));
  EXPECT_EQ(gNativeFloor, 80);
  limit(79);
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 79%"));
  EXPECT_EQ(gNativeFloor, std::nullopt);
}

TEST_F(Refused75, hasNoFloorForALimitOfEightyOrMore) {
  for (const std::int64_t percent : {80, 85, 100}) {
    limit(percent);
    drive();
    EXPECT_EQ(gNativeFloor, std::nullopt) << percent;
  }
}

TEST_F(Refused75, derivesTheFloorFromTheLimitOfTheSettings) {
  calDrive = CalDrive{.toFull = true, .target = 100};
  drive();
  EXPECT_EQ(gNativeFloor, 80) << "also while another target is driven";
  cfg.limit = 76;
  drive();
  EXPECT_EQ(gNativeFloor, std::nullopt);
}

TEST_F(Refused75, raisesAHeatPauseThatMacOSWouldNotHold) {
  limit(90);
  pct = 75;
  hot = true;
  EXPECT_THAT(drive(), IsEmpty()) << "80 is written already";
  EXPECT_EQ(gNativeWritten, 80);
  hot = false;
  drive();
  pct = 76;
  hot = true;
  EXPECT_THAT(drive(), ::testing::Contains("macOS limit → 76%"));
}

TEST_F(Refused75, showsItsFloorInTheStatus) {
  mac.settings(R"({"limit":70})");
  ticks(1);
  EXPECT_EQ(nlohmann::json::parse(mac.read(statusFile)).at("nativeFloor"), 80);
  mac.settings(R"({"limit":76})");
  ticks(1);
  EXPECT_FALSE(nlohmann::json::parse(mac.read(statusFile)).contains("nativeFloor"));
}

// -- Targets

TEST_F(NativeLimitTest, chargesToFullForATopUp) {
  topUp = true;
  EXPECT_THAT(drive(), ::testing::Contains("macOS limit → off"));
  topUp = false;
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 80%"));
}

TEST_F(NativeLimitTest, followsACalibration) {
  drive();
  calDrive = CalDrive{.toFull = true, .target = 100};
  EXPECT_THAT(drive(), ElementsAre("macOS limit → off"));
  calDrive = CalDrive{.toFull = false, .target = 15};
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 15%"));
  calDrive = CalDrive{.toFull = true, .target = 15};
  EXPECT_THAT(drive(), ElementsAre("macOS limit → off")) << "to full, whatever the target";
  calDrive = CalDrive{.toFull = false, .target = 80};
  topUp = true;
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 80%")) << "before a Top Up";
}

TEST_F(NativeLimitTest, clampsTargetsTo1To100) {
  drive();
  for (const std::int64_t low : {0, -5}) {
    calDrive = CalDrive{.toFull = false, .target = low};
    drive();
    EXPECT_EQ(gNativeWritten, 1);
  }
  calDrive = CalDrive{.toFull = false, .target = 250};
  EXPECT_THAT(drive(), ElementsAre("macOS limit → off"));
  EXPECT_EQ(gNativeWritten, 100);
}

TEST_F(NativeLimitTest, holdsAboveTheLimitWhereItFoundTheCharge) {
  pct = 90;
  EXPECT_THAT(drive(), ::testing::Contains("macOS limit → 90%"));
  show(90);
  drive();
  for (const std::int64_t seen : {91, 92, 89, 81}) {
    pct = seen;
    EXPECT_THAT(drive(), IsEmpty()) << seen;
  }
  pct = 80;
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 80%")) << "it has discharged on its own";
  pct = 81;
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 81%"));
}

TEST_F(NativeLimitTest, dischargesToTheLimitIfTheUserWantsIt) {
  pct = 90;
  cfg.discharge = true;
  EXPECT_THAT(drive(), ::testing::Contains("macOS limit → 80%"));
  cfg.discharge = false;
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 90%"));
  pct = 86;
  cfg.discharge = true;
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 80%"));
  cfg.discharge = false;
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 86%")) << "a new hold begins where the charge is";
}

TEST_F(NativeLimitTest, holdsTheLimitItselfOnBattery) {
  pct = 90;
  mac.unplug();
  EXPECT_THAT(drive(), ::testing::Contains("macOS limit → 80%"));
  mac.plugIn();
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 90%"));
}

TEST_F(NativeLimitTest, roundsAHoldPointDownWhereOnlyStepsAreAccepted) {
  written(83, 0);
  drive(600);
  limit(80);
  pct = 93;
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 90%"));
}

// -- Heat

TEST_F(NativeLimitTest, stopsAtTheChargeAtWhichTheBatteryBecameHot) {
  show(0);
  drive();
  pct = 77;
  hot = true;
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 77%"));
  pct = 79;
  EXPECT_THAT(drive(), IsEmpty());
  pct = 74;
  EXPECT_THAT(drive(), IsEmpty());
  EXPECT_EQ(gNativeWritten, 77);
  hot = false;
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 80%"));
  pct = 76;
  hot = true;
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 76%"));
}

TEST_F(NativeLimitTest, neverStopsAboveTheLimitForHeat) {
  pct = 90;
  hot = true;
  cfg.discharge = true;
  EXPECT_THAT(drive(), ::testing::Contains("macOS limit → 80%"));
}

TEST_F(NativeLimitTest, forgetsTheHeatPointOnBattery) {
  pct = 77;
  hot = true;
  drive();
  mac.unplug();
  EXPECT_THAT(drive(), ::testing::Contains("macOS limit → 80%"));
  mac.plugIn();
  pct = 72;
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 72%"));
}

TEST_F(NativeLimitTest, stopsATopUpAndACalibrationForHeat) {
  show(0);
  hot = true;
  pct = 88;
  topUp = true;
  EXPECT_THAT(drive(), ::testing::Contains("macOS limit → 88%"));
  topUp = false;
  calDrive = CalDrive{.toFull = true, .target = 100};
  pct = 92;
  EXPECT_THAT(drive(), IsEmpty()) << "the temperature is the same";
}

TEST_F(NativeLimitTest, setsNoLimitBelowOneForHeat) {
  pct = 0;
  hot = true;
  EXPECT_THAT(drive(), ::testing::Contains("macOS limit → 1%"));
}

TEST_F(NativeLimitTest, pausesForHeatInTheTick) {
  mac.settings(R"({"thermal":true,"thermalLimit":40})");
  mac.temperature(41);
  ticks(1);
  EXPECT_THAT(newLines(), ::testing::Contains("macOS limit → 50%"));
}

// -- The state

TEST_F(NativeLimitTest, logsTheStateWithItsLimit) {
  mac.charge(80);
  ticks(6);  // the gauge publishes the current every minute
  EXPECT_THAT(newLines(), ::testing::Contains("→ state: hold (macOS limit 80%)"));
  EXPECT_EQ(gState, ChargeState::hold);
  mac.unplug();
  ticks(1);
  EXPECT_THAT(newLines(), ::testing::Contains("→ state: allow (macOS limit 80%)"));
}

TEST_F(NativeLimitTest, logsNoLimitAs100InTheState) {
  drive();
  gState = ChargeState::hold;
  topUp = true;
  forgetLines();
  EXPECT_THAT(drive(), ElementsAre("macOS limit → off", "→ state: allow (macOS limit 100%)"));
}

TEST_F(NativeLimitTest, dischargesWhereMacOSRunsTheBatteryDown) {
  mac.number(ChangeKind::limitDrains, 1);
  mac.settings(R"({"discharge":true})");
  mac.charge(90);
  ticks(10);
  EXPECT_THAT(newLines(), ::testing::Contains("→ state: discharge (macOS limit 80%)"));
  EXPECT_EQ(gState, ChargeState::discharge);
}

TEST_F(NativeLimitTest, usesTheMarginIfTheCurrentCannotBeRead) {
  mac.property("InstantAmperage", virtual_mac::PropertyFault::missing);
  mac.property("Amperage", virtual_mac::PropertyFault::missing);
  drive();
  pct = 75;
  forgetLines();
  EXPECT_THAT(drive(), ::testing::Contains("→ state: hold (macOS limit 80%)"));
  pct = 74;
  EXPECT_THAT(drive(), ElementsAre("→ state: allow (macOS limit 80%)"));
}

// -- Idle

TEST_F(NativeLimitTest, handsTheLimitBackOnceWhenItIsSwitchedOff) {
  slider(90);
  drive();
  mac.forgetJournal();
  gState = ChargeState::hold;
  gGateVerified = true;
  gNativeFloor = 80;
  cfg.enabled = false;
  EXPECT_THAT(drive(), ElementsAre("macOS limit handed back: 90%", "→ state: allow"));
  EXPECT_EQ(newWrites(), Writes{"limit set 90"});
  EXPECT_EQ(gNativeWritten, std::nullopt);
  EXPECT_EQ(gGateVerified, std::nullopt);
  EXPECT_EQ(gNativeFloor, std::nullopt);
  EXPECT_THAT(driveFor(24 * hour), IsEmpty());
  EXPECT_THAT(newWrites(), IsEmpty());
}

TEST_F(NativeLimitTest, handsBackTheLimitThatItFindsIfItStartsSwitchedOff) {
  slider(85);
  mac.forgetJournal();
  cfg.enabled = false;
  EXPECT_THAT(drive(), ElementsAre("native limit before Brisko: 85% — given back if Brisko leaves",
                                   "macOS limit handed back: 85%"));
  EXPECT_EQ(newWrites(), Writes{"limit set 85"});
}

TEST_F(NativeLimitTest, keepsWhatTheUserSetsMeanwhile) {
  drive();
  cfg.enabled = false;
  drive();
  slider(85);
  mac.forgetJournal();
  EXPECT_THAT(drive(),
              ElementsAre("macOS limit changed in System Settings while Brisko's is off: 85% — kept"));
  EXPECT_EQ(gNativeBefore, 85);
  EXPECT_EQ(stats().at("nativeBefore"), 85);
  EXPECT_THAT(drive(), IsEmpty());
  slider(100);
  EXPECT_THAT(drive(),
              ElementsAre("macOS limit changed in System Settings while Brisko's is off: off — kept"));
  EXPECT_EQ(stats().at("nativeBefore"), 100);
  EXPECT_THAT(newWrites(), IsEmpty());
}

TEST_F(NativeLimitTest, recordsNothingThatItCannotRead) {
  drive();
  cfg.enabled = false;
  drive();
  slider(85);
  mac.number(ChangeKind::limitEnabledFails, 1);
  EXPECT_THAT(drive(), IsEmpty());
  mac.number(ChangeKind::limitEnabledFails, 0).number(ChangeKind::limitValueFails, 1);
  EXPECT_THAT(drive(), IsEmpty());
  EXPECT_EQ(gNativeBefore, 100);
}

TEST_F(NativeLimitTest, setsItsLimitAgainWhenItIsSwitchedOnAgain) {
  slider(90);
  drive();
  cfg.enabled = false;
  drive();
  slider(95);
  drive();
  mac.forgetJournal();
  cfg.enabled = true;
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 80%"));
  EXPECT_EQ(newWrites(), Writes{"limit set 80"});
  cfg.enabled = false;
  EXPECT_THAT(drive(), ElementsAre("macOS limit handed back: 95%")) << "the newest choice";
}

TEST_F(NativeLimitTest, isNotIdleForATopUpOrACalibration) {
  cfg.enabled = false;
  topUp = true;
  EXPECT_THAT(drive(), ::testing::Contains("macOS limit → off"));
  topUp = false;
  calDrive = CalDrive{.toFull = false, .target = 60};
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 60%"));
  calDrive.reset();
  EXPECT_THAT(drive(), ::testing::Contains("macOS limit handed back: off"));
}

TEST_F(NativeLimitTest, keepsTheHoldPointWhileIdle) {
  pct = 90;
  drive();
  cfg.enabled = false;
  drive();
  pct = 86;
  drive();
  cfg.enabled = true;
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 90%"));
}

TEST_F(NativeLimitTest, forgetsTheHeatPointWhileIdle) {
  pct = 77;
  hot = true;
  drive();
  cfg.enabled = false;
  drive();
  cfg.enabled = true;
  pct = 75;
  forgetLines();
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 75%"));
}

TEST_F(NativeLimitTest, recordsItsOwnHandBackAsTheUsersChoiceIfThePreviousLimitCouldNotBeRestored) {
  ASSERT_TRUE(NativeLimit::write(75, false));
  drive();
  ASSERT_EQ(gNativeBefore, 75);
  forgetLines();
  cfg.enabled = false;
  EXPECT_THAT(drive(), ElementsAre("macOS limit handed back: off"));
  EXPECT_THAT(drive(),
              ElementsAre("macOS limit changed in System Settings while Brisko's is off: off — kept"));
  EXPECT_EQ(gNativeBefore, 100);
}

// -- Handing back

struct HandBackCase {
  std::int64_t before;
  std::int64_t given;
  const char* text;
};

TEST_F(NativeLimitTest, handsBackWhatTheSliderOffers) {
  for (const HandBackCase& example :
       {HandBackCase{75, 100, "off"}, HandBackCase{79, 100, "off"}, HandBackCase{80, 80, "80%"},
        HandBackCase{81, 100, "off"}, HandBackCase{83, 100, "off"}, HandBackCase{85, 85, "85%"},
        HandBackCase{90, 90, "90%"}, HandBackCase{95, 95, "95%"}, HandBackCase{99, 100, "off"},
        HandBackCase{100, 100, "off"}, HandBackCase{105, 100, "off"}, HandBackCase{0, 100, "off"},
        HandBackCase{-80, 100, "off"}}) {
    gNativeBefore = example.before;
    gNativeWritten = 70;
    mac.forgetJournal();
    handBackNative();
    EXPECT_EQ(newWrites(), Writes{"limit set " + std::to_string(example.given)}) << example.before;
    EXPECT_EQ(newLines(), Lines{std::string("macOS limit handed back: ") + example.text}) << example.before;
    EXPECT_EQ(gNativeWritten, std::nullopt);
    EXPECT_EQ(gNativeBefore, example.before) << "it is still known";
  }
}

TEST_F(NativeLimitTest, reportsWhenTheHandBackIsRefused) {
  gNativeBefore = 85;
  answer(LimitAnswer::no);
  handBackNative();
  EXPECT_THAT(newLines(), ElementsAre("macOS limit handed back: 85% ⚠️ refused"));
  gNativeBefore = 75;
  handBackNative();
  EXPECT_THAT(newLines(), ElementsAre("macOS limit handed back: off ⚠️ refused"));
}

TEST_F(NativeLimitTest, handsNothingBackIfItNeverSetTheLimit) {
  handBackNative();
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_THAT(newWrites(), IsEmpty());
}

TEST_F(NativeLimitTest, handsNothingBackWithAnotherGateOrNone) {
  gNativeBefore = 85;
  gGate = ChargeGate{ChargeKeys::chte, AdapterCutKey::none};
  handBackNative();
  gGate.reset();
  handBackNative();
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_THAT(newWrites(), IsEmpty());
}

TEST_F(NativeLimitTest, handsNothingBackTwiceWhileItIsSwitchedOff) {
  drive();
  cfg.enabled = false;
  drive();
  slider(90);
  mac.forgetJournal();
  handBackNative();
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_THAT(newWrites(), IsEmpty());
}

TEST_F(NativeLimitTest, handsBackAgainOverALaterChoiceOfTheUser) {
  slider(90);
  drive();
  handBackNative();
  EXPECT_THAT(newLines(), ElementsAre("macOS limit handed back: 90%"));
  slider(95);
  mac.forgetJournal();
  handBackNative();
  EXPECT_THAT(newLines(), ElementsAre("macOS limit handed back: 90%"));
  EXPECT_EQ(newWrites(), Writes{"limit set 90"});
}

TEST_F(NativeLimitTest, writesItsLimitAgainAfterAHandBack) {
  drive();
  handBackNative();
  forgetLines();
  EXPECT_THAT(drive(), ElementsAre("macOS limit → 80%"));
}

// -- After a purge

TEST_F(NativeLimitTest, doesNothingAfterAPurge) {
  ticks(1);
  gPurged = true;
  forgetLines();
  mac.forgetJournal();
  mac.keepReads();
  const std::string status = mac.read(statusFile);
  mac.settings(R"({"limit":95})");
  ticks(10);
  EXPECT_THAT(newLines(), IsEmpty());
  EXPECT_THAT(mac.writes(), IsEmpty()) << "it does not even check";
  EXPECT_EQ(mac.read(statusFile), status);
}

}  // namespace
}  // namespace brisko::native_limit_test
