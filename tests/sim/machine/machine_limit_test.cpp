// macOS's charge limit on the virtual Mac: which values it accepts and when it applies them, how the battery
// reacts, and changes by the user and by other programs.

#include <cmath>
#include <optional>
#include <string>

#include "platform/preferences.h"
#include "platform/smart_charge_client.h"
#include "sim/machine/charge_limit.h"
#include "sim/machine/machine_bench.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::virtual_mac::machine_limit_test {
namespace {

using namespace test;

constexpr double usualDelay = 5;
constexpr double hour = 3600;

class Limit : public ::testing::Test {
 protected:
  explicit Limit(const MachineOptions& options = {.macOS = 27}) : mac(options) {}

  std::optional<bool> set(std::int64_t percent) { return setByClient(mac.machine, *mac.journal, percent); }
  // Writes the preferences directly, as a program without the client does.
  void write(std::int64_t percent) {
    store(LimitPreference::featureState, 1);
    store(LimitPreference::limitValue, percent);
    storePreference(mac.machine, LimitPreference::disabledUntil, {});
    notify(mac.machine, *mac.journal, limitNotification);
  }
  void store(LimitPreference which, std::int64_t number) {
    storePreference(mac.machine, which,
                    {.kind = PreferenceKind::integer, .integer = number, .real = 0, .text = {}});
  }
  // Sets a limit and waits until it is enforced.
  void holdAt(std::int64_t percent) {
    mac.change(ChangeKind::limit, static_cast<double>(percent)).pass(usualDelay);
  }
  std::int64_t enforcedAfterWriting(std::int64_t percent) {
    write(percent);
    mac.pass(usualDelay);
    return enforced();
  }
  [[nodiscard]] std::int64_t enforced() const { return enforcedLimit(mac.machine); }
  Bytes mirror() { return mac.read("bfG0"); }
  [[nodiscard]] double current() const { return mac.machine.battery.currentMA; }
  [[nodiscard]] std::int64_t shown() const { return std::llround(level(mac.machine)); }
  [[nodiscard]] const LimitCalls& calls() const { return mac.machine.limit.calls; }

  Bench mac;
};

// --- Applying a limit

TEST_F(Limit, isNoneOnAFreshMac) {
  EXPECT_EQ(enforced(), 0);
  EXPECT_THAT(mirror(), ElementsAre(0));
  EXPECT_EQ(clientSaysEnabled(mac.machine), false);
  EXPECT_EQ(clientSaysLimit(mac.machine), 100);
}

TEST_F(Limit, isReportedAtOnceAndEnforcedAfterTheDelay) {
  EXPECT_EQ(set(85), true);
  EXPECT_EQ(clientSaysEnabled(mac.machine), true);
  EXPECT_EQ(clientSaysLimit(mac.machine), 85);
  mac.pass(usualDelay - 1);
  EXPECT_THAT(mirror(), ElementsAre(0));
  mac.pass(1);
  EXPECT_THAT(mirror(), ElementsAre(85));
}

TEST_F(Limit, isEnforcedAfterTheConfiguredDelay) {
  mac.change(ChangeKind::limitDelay, 120);
  EXPECT_EQ(set(80), true);
  mac.pass(119);
  EXPECT_EQ(enforced(), 0);
  mac.pass(1);
  EXPECT_EQ(enforced(), 80);
}

TEST_F(Limit, doesNotRestartItsDelayForTheSameValue) {
  mac.change(ChangeKind::limitDelay, 120);
  write(75);
  mac.pass(90);
  write(75);
  mac.pass(30);
  EXPECT_EQ(enforced(), 75);
}

TEST_F(Limit, restartsItsDelayForAnotherValue) {
  mac.change(ChangeKind::limitDelay, 120);
  write(75);
  mac.pass(90);
  write(70);
  mac.pass(119);
  EXPECT_EQ(enforced(), 0);
  mac.pass(1);
  EXPECT_EQ(enforced(), 70);
}

TEST_F(Limit, acceptsOnlyTheStepsOfTheSliderFromTheClient) {
  for (const std::int64_t percent : {80, 85, 90, 95, 100}) EXPECT_EQ(set(percent), true) << percent;
  for (const std::int64_t percent : {-80, 0, 75, 79, 81, 99, 101, 105})
    EXPECT_EQ(set(percent), false) << percent;
  EXPECT_EQ(clientSaysLimit(mac.machine), 100) << "a refused change has no effect";
}

TEST_F(Limit, isTurnedOffByOneHundred) {
  holdAt(80);
  EXPECT_EQ(set(100), true);
  EXPECT_EQ(clientSaysEnabled(mac.machine), false);
  mac.pass(usualDelay);
  EXPECT_EQ(enforced(), 0);
}

TEST_F(Limit, showsNoneAs100OnSomeMacs) {
  mac.change(ChangeKind::limitNoneAs100, 1);
  EXPECT_THAT(mirror(), ElementsAre(100));
  holdAt(80);
  EXPECT_THAT(mirror(), ElementsAre(80));
  mac.change(ChangeKind::chargeToFull, hour).pass(usualDelay);
  EXPECT_THAT(mirror(), ElementsAre(100));
  mac.change(ChangeKind::limitNoneAs100, 0);
  EXPECT_THAT(mirror(), ElementsAre(0));
}

TEST_F(Limit, canLackReadBack) {
  mac.key(ChangeKind::keyPresent, "bfG0", 0);
  holdAt(80);
  EXPECT_THAT(mirror(), ElementsAre());
  EXPECT_EQ(enforced(), 80);
}

TEST_F(Limit, isReadFromThePreferencesOnlyOnNotification) {
  store(LimitPreference::featureState, 1);
  store(LimitPreference::limitValue, 75);
  mac.pass(hour);
  EXPECT_EQ(enforced(), 0);
  notify(mac.machine, *mac.journal, "com.apple.smartcharging.somethingelse");
  mac.pass(hour);
  EXPECT_EQ(enforced(), 0);
  notify(mac.machine, *mac.journal, limitNotification);
  store(LimitPreference::limitValue, 70);  // too late: the preferences have been read
  mac.pass(usualDelay);
  EXPECT_EQ(enforced(), 75);
}

TEST_F(Limit, isOffWhereThePreferencesAreInvalid) {
  struct Case {
    Preference feature;
    Preference value;
  };
  const auto integer = [](std::int64_t number) {
    return Preference{.kind = PreferenceKind::integer, .integer = number, .real = 0, .text = {}};
  };
  const Preference yes{.kind = PreferenceKind::boolean, .integer = 1, .real = 0, .text = {}};
  const Preference real{.kind = PreferenceKind::real, .integer = 80, .real = 80, .text = {}};
  for (const Case& wrong :
       {Case{integer(0), integer(80)}, Case{integer(2), integer(80)}, Case{{}, integer(80)},
        Case{yes, integer(80)}, Case{integer(1), {}}, Case{integer(1), real}, Case{integer(1), integer(0)},
        Case{integer(1), integer(-5)}, Case{integer(1), integer(100)}, Case{integer(1), integer(101)}}) {
    holdAt(85);
    storePreference(mac.machine, LimitPreference::featureState, wrong.feature);
    storePreference(mac.machine, LimitPreference::limitValue, wrong.value);
    notify(mac.machine, *mac.journal, limitNotification);
    mac.pass(usualDelay);
    EXPECT_EQ(enforced(), 0) << wrong.feature.integer << ' ' << wrong.value.integer;
  }
  EXPECT_EQ(enforcedAfterWriting(1), 1);
  EXPECT_EQ(enforcedAfterWriting(99), 99);
}

TEST_F(Limit, isAcceptedIgnoredOrRaisedBelowTheSlider) {
  holdAt(90);
  mac.change(ChangeKind::limitBelowFloor, static_cast<double>(OddLimit::ignored));
  EXPECT_EQ(enforcedAfterWriting(79), 90);
  EXPECT_EQ(enforcedAfterWriting(80), 80) << "which the slider offers";
  holdAt(90);
  mac.change(ChangeKind::limitBelowFloor, static_cast<double>(OddLimit::adjusted));
  EXPECT_EQ(enforcedAfterWriting(60), 80);
  mac.change(ChangeKind::limitBelowFloor, static_cast<double>(OddLimit::taken));
  EXPECT_EQ(enforcedAfterWriting(61), 61);
}

TEST_F(Limit, isAcceptedIgnoredOrRoundedDownBetweenTheSteps) {
  holdAt(90);
  mac.change(ChangeKind::limitOffStep, static_cast<double>(OddLimit::ignored));
  EXPECT_EQ(enforcedAfterWriting(83), 90);
  EXPECT_EQ(enforcedAfterWriting(85), 85) << "the step is still taken";
  mac.change(ChangeKind::limitOffStep, static_cast<double>(OddLimit::adjusted));
  EXPECT_EQ(enforcedAfterWriting(84), 80);
  EXPECT_EQ(enforcedAfterWriting(99), 95);
  mac.change(ChangeKind::limitOffStep, static_cast<double>(OddLimit::taken));
  EXPECT_EQ(enforcedAfterWriting(83), 83);
}

TEST_F(Limit, needsNoStepBelowTheSlider) {
  mac.change(ChangeKind::limitOffStep, static_cast<double>(OddLimit::ignored));
  EXPECT_EQ(enforcedAfterWriting(73), 73);
}

// --- The client

TEST_F(Limit, hasAClientThatCanBeAbsentInThreeWays) {
  EXPECT_EQ(loadClient(mac.machine), LimitClient::offered);
  for (const LimitClient absence :
       {LimitClient::noFramework, LimitClient::noClass, LimitClient::noSelector}) {
    mac.change(ChangeKind::limitClient, static_cast<double>(absence));
    EXPECT_EQ(loadClient(mac.machine), absence);
  }
  mac.change(ChangeKind::limitClient, static_cast<double>(LimitClient::offered));
  EXPECT_EQ(loadClient(mac.machine), LimitClient::offered);
  EXPECT_EQ(calls().loads, 5U);
  mac.change(ChangeKind::limitClient, 4);
  EXPECT_EQ(loadClient(mac.machine), LimitClient::offered) << "there are only three ways";
}

TEST_F(Limit, isSupportedSomeTimeAfterBoot) {
  EXPECT_TRUE(clientSaysSupported(mac.machine));
  mac.change(ChangeKind::limitSupportedAfter, 30);
  boot(mac.machine);
  mac.pass(29);
  EXPECT_FALSE(clientSaysSupported(mac.machine));
  mac.pass(1);
  EXPECT_TRUE(clientSaysSupported(mac.machine));
  EXPECT_EQ(calls().supported, 3U);
}

TEST_F(Limit, canBeReadSomeTimeAfterBoot) {
  holdAt(85);
  mac.change(ChangeKind::limitReadableAfter, 30);
  boot(mac.machine);
  mac.pass(29);
  EXPECT_FALSE(clientSaysEnabled(mac.machine).has_value());
  EXPECT_FALSE(clientSaysLimit(mac.machine).has_value());
  mac.pass(1);
  EXPECT_EQ(clientSaysEnabled(mac.machine), true);
  EXPECT_EQ(clientSaysLimit(mac.machine), 85);
  EXPECT_EQ(calls().enabled, 2U);
  EXPECT_EQ(calls().limit, 2U);
}

TEST_F(Limit, canBeUnreadableUntilItIsRepaired) {
  mac.change(ChangeKind::limitEnabledFails, 1);
  EXPECT_FALSE(clientSaysEnabled(mac.machine).has_value());
  EXPECT_TRUE(clientSaysLimit(mac.machine).has_value());
  mac.change(ChangeKind::limitEnabledFails, 0).change(ChangeKind::limitValueFails, 1);
  EXPECT_TRUE(clientSaysEnabled(mac.machine).has_value());
  EXPECT_FALSE(clientSaysLimit(mac.machine).has_value());
  mac.change(ChangeKind::limitValueFails, 0);
  EXPECT_TRUE(clientSaysLimit(mac.machine).has_value());
}

TEST_F(Limit, canBeRefusedToTheClient) {
  mac.change(ChangeKind::limitSetAnswer, static_cast<double>(LimitAnswer::no));
  EXPECT_EQ(set(80), false);
  mac.change(ChangeKind::limitSetAnswer, static_cast<double>(LimitAnswer::error));
  EXPECT_EQ(set(80), std::nullopt);
  mac.pass(hour);
  EXPECT_EQ(enforced(), 0);
  EXPECT_EQ(clientSaysEnabled(mac.machine), false);
  mac.change(ChangeKind::limitSetAnswer, static_cast<double>(LimitAnswer::takes));
  EXPECT_EQ(set(80), true);
  EXPECT_EQ(calls().sets, 3U);
}

// --- The battery under it

TEST_F(Limit, stopsChargingWhenItIsReached) {
  mac.change(ChangeKind::charge, 78);
  holdAt(80);
  EXPECT_GT(current(), 0);
  mac.pass(hour);
  EXPECT_EQ(shown(), 80);
  EXPECT_EQ(current(), 0);
  EXPECT_FALSE(chargingIsOpen(mac.machine));
  EXPECT_FALSE(mac.machine.gauge.charging);
  EXPECT_TRUE(mac.machine.powerSource.onAdapter);
}

TEST_F(Limit, usesThePercentageThatUsersSee) {
  EXPECT_TRUE(limitLetsCharge(80, 79.49, true));
  EXPECT_FALSE(limitLetsCharge(80, 79.5, true));
  EXPECT_FALSE(limitLetsCharge(80, 74.5, false));
  EXPECT_TRUE(limitLetsCharge(80, 74.49, false));
  EXPECT_TRUE(limitLetsCharge(0, 100, false)) << "no limit";
}

TEST_F(Limit, holdsWithinItsMarginAfterItWasReached) {
  mac.change(ChangeKind::charge, 80);
  holdAt(80);
  mac.change(ChangeKind::unplug).change(ChangeKind::charge, 75).change(ChangeKind::plug, 30).pass(hour);
  EXPECT_EQ(shown(), 75);
  EXPECT_EQ(current(), 0);
  mac.change(ChangeKind::charge, 74).pass(1);
  EXPECT_GT(current(), 0);
  mac.pass(hour);
  EXPECT_EQ(shown(), 80) << "and then it charges to full";
}

TEST_F(Limit, remembersThatItWasReachedByCharging) {
  mac.change(ChangeKind::charge, 78);
  holdAt(80);
  mac.pass(hour).change(ChangeKind::charge, 77).pass(hour);
  EXPECT_EQ(shown(), 77);
  EXPECT_EQ(current(), 0);
}

TEST_F(Limit, isReachedByABatteryThatChargesWithinItsMargin) {
  mac.change(ChangeKind::charge, 77);
  holdAt(80);
  mac.pass(hour);
  EXPECT_EQ(shown(), 80);
}

TEST_F(Limit, startsChargingAgainWhenItIsRaisedByMoreThanItsMargin) {
  mac.change(ChangeKind::charge, 80);
  holdAt(80);
  holdAt(85);
  mac.pass(hour);
  EXPECT_EQ(shown(), 80) << "80 is not below the margin of 85";
  holdAt(90);
  mac.pass(hour);
  EXPECT_EQ(shown(), 90);
}

TEST_F(Limit, letsTheBatteryRestAboveIt) {
  mac.change(ChangeKind::charge, 90);
  holdAt(80);
  mac.pass(hour);
  EXPECT_EQ(shown(), 90);
  EXPECT_EQ(current(), 0);
}

TEST_F(Limit, drainsTheBatteryDownToItOnSomeMacs) {
  mac.change(ChangeKind::limitDrains, 1).change(ChangeKind::charge, 90);
  holdAt(80);
  mac.pass(1);
  EXPECT_LT(current(), -100);
  EXPECT_TRUE(mac.machine.powerSource.onAdapter) << "the adapter is still there";
  EXPECT_TRUE(adapterReachesBattery(mac.machine));
  mac.pass(24 * hour);
  EXPECT_EQ(shown(), 80);
  EXPECT_GT(level(mac.machine), 80.4) << "no more than users see";
  EXPECT_EQ(current(), 0);
  mac.change(ChangeKind::charge, 90).change(ChangeKind::limitDrains, 0).pass(1);
  EXPECT_EQ(current(), 0);
}

TEST_F(Limit, drainsNothingWithoutALimit) {
  mac.change(ChangeKind::limitDrains, 1).change(ChangeKind::charge, 90).pass(1);
  EXPECT_GT(current(), 0);
}

TEST_F(Limit, holdsAsleep) {
  mac.change(ChangeKind::charge, 78);
  holdAt(80);
  mac.change(ChangeKind::closeLid).pass(7 * hour);
  ASSERT_TRUE(mac.machine.system.asleep);
  EXPECT_EQ(shown(), 80);
  EXPECT_EQ(current(), 0);
}

TEST_F(Limit, holdsWhileTheMacIsOff) {
  mac.change(ChangeKind::charge, 78);
  holdAt(80);
  shutDown(mac.machine);
  mac.pass(8 * hour);
  EXPECT_EQ(shown(), 80);
}

TEST_F(Limit, letsTheBatteryChargeToFullOnceItIsOff) {
  mac.change(ChangeKind::charge, 80);
  holdAt(80);
  holdAt(100);
  mac.pass(4 * hour);
  EXPECT_EQ(shown(), 100);
}

// --- A requested full charge

TEST_F(Limit, isSuspendedUntilADate) {
  mac.change(ChangeKind::charge, 80);
  holdAt(80);
  mac.change(ChangeKind::chargeToFull, hour).pass(usualDelay);
  EXPECT_THAT(mirror(), ElementsAre(0));
  EXPECT_GT(current(), 0);
  EXPECT_EQ(clientSaysLimit(mac.machine), 80) << "it is only suspended";
  mac.pass(hour - usualDelay - 1);
  EXPECT_EQ(enforced(), 0);
  mac.pass(1);
  EXPECT_EQ(enforced(), 80);
}

TEST_F(Limit, isSuspendedByTheWallClock) {
  holdAt(80);
  mac.change(ChangeKind::chargeToFull, 10 * hour).pass(usualDelay);
  EXPECT_EQ(enforced(), 0);
  mac.change(ChangeKind::clockStep, 10 * hour).pass(1);
  EXPECT_EQ(enforced(), 80);
}

TEST_F(Limit, returnsWhenTheUserCancelsTheFullCharge) {
  holdAt(80);
  mac.change(ChangeKind::chargeToFull, hour).pass(60).change(ChangeKind::chargeToFull, 0).pass(usualDelay);
  EXPECT_EQ(enforced(), 80);
  EXPECT_EQ(preferenceOnDisk(mac.machine, LimitPreference::disabledUntil), Preference{});
}

TEST_F(Limit, returnsWhenAProgramRemovesTheDate) {
  holdAt(80);
  mac.change(ChangeKind::chargeToFull, hour).pass(60);
  EXPECT_EQ(enforcedAfterWriting(75), 75);
}

TEST_F(Limit, staysSuspendedWhenTheClientSetsIt) {
  holdAt(80);
  mac.change(ChangeKind::chargeToFull, hour).pass(60);
  EXPECT_EQ(set(85), true);
  mac.pass(60);
  EXPECT_EQ(enforced(), 0);
  mac.pass(hour);
  EXPECT_EQ(enforced(), 85);
}

TEST_F(Limit, isNotSuspendedByADateInThePast) {
  mac.change(ChangeKind::charge, 80);
  holdAt(80);
  mac.change(ChangeKind::charge, 77);
  storePreference(
      mac.machine, LimitPreference::disabledUntil,
      {.kind = PreferenceKind::date, .integer = 0, .real = wallClock(mac.machine) - 1, .text = {}});
  notify(mac.machine, *mac.journal, limitNotification);
  mac.pass(usualDelay);
  EXPECT_EQ(enforced(), 80);
  EXPECT_EQ(current(), 0) << "not even for an instant, so the battery stays idle";
}

// --- Sleep, boot and other programs

TEST_F(Limit, isAppliedAtWakeAndNotDuringSleep) {
  mac.change(ChangeKind::limitDelay, 600);
  write(75);
  mac.change(ChangeKind::closeLid).pass(1.9 * hour);
  EXPECT_EQ(enforced(), 0);
  mac.change(ChangeKind::openLid).pass(1);
  EXPECT_EQ(enforced(), 75);
}

TEST_F(Limit, isReadAgainAtBoot) {
  holdAt(85);
  store(LimitPreference::limitValue, 75);  // without a notification
  shutDown(mac.machine);
  mac.pass(hour);
  boot(mac.machine);
  EXPECT_EQ(enforced(), 85) << "the hardware still enforces it";
  mac.pass(usualDelay);
  EXPECT_EQ(enforced(), 75);
}

TEST_F(Limit, restartsItsDelayAtBoot) {
  mac.change(ChangeKind::limitDelay, 60);
  write(75);
  shutDown(mac.machine);
  mac.pass(hour);
  boot(mac.machine);
  mac.pass(59);
  EXPECT_EQ(enforced(), 0);
  mac.pass(1);
  EXPECT_EQ(enforced(), 75);
}

TEST_F(Limit, isPutBackByAnotherProgramAfterEveryChange) {
  holdAt(90);
  mac.change(ChangeKind::limitReverted, 40);
  for (int time = 0; time < 3; ++time) {
    EXPECT_EQ(enforcedAfterWriting(75), 75);
    mac.pass(40);
    EXPECT_EQ(enforced(), 90);
  }
  write(90);
  EXPECT_LT(mac.machine.limit.revertAt, 0) << "the other program wants this value";
  mac.change(ChangeKind::limitReverted, -1);
  write(75);
  mac.pass(hour);
  EXPECT_EQ(enforced(), 75);
}

TEST_F(Limit, isPutBackAfterTheFirstOfSeveralChanges) {
  holdAt(90);
  mac.change(ChangeKind::limitReverted, 40);
  write(75);
  mac.pass(30);
  write(70);
  mac.pass(10 + usualDelay);
  EXPECT_EQ(enforced(), 90);
}

TEST_F(Limit, isTurnedOffByAnotherProgramThatWantsNone) {
  mac.change(ChangeKind::limitReverted, 40);
  write(75);
  mac.pass(40 + usualDelay);
  EXPECT_EQ(enforced(), 0);
  EXPECT_EQ(clientSaysEnabled(mac.machine), false);
}

TEST_F(Limit, stopsBeingPutBackAtOnceWhenTheProgramIsGone) {
  mac.change(ChangeKind::limitReverted, 40);
  write(75);
  mac.change(ChangeKind::limitReverted, -1);
  write(70);
  mac.pass(hour);
  EXPECT_EQ(enforced(), 70);
}

// --- Macs without it

TEST(LimitLess, isAMacThatWasMadeWithoutALimit) {
  Bench mac({.macOS = 27, .chargeLimit = false});
  EXPECT_EQ(loadClient(mac.machine), LimitClient::noClass);
  EXPECT_FALSE(clientSaysSupported(mac.machine));
  EXPECT_EQ(setByClient(mac.machine, *mac.journal, 80), false);
  mac.change(ChangeKind::limit, 80).pass(hour);
  EXPECT_EQ(enforcedLimit(mac.machine), 0);
  EXPECT_THAT(mac.read("bfG0"), ElementsAre(0));
}

TEST(LimitLess, isAMacWithAnOlderSystem) {
  Bench old({.macOS = 25});
  EXPECT_EQ(loadClient(old.machine), LimitClient::noClass);
  EXPECT_FALSE(hasLimit(old.machine));
  Bench current({.macOS = 26});
  EXPECT_EQ(loadClient(current.machine), LimitClient::offered);
  EXPECT_TRUE(hasLimit(current.machine));
  current.change(ChangeKind::limit, 80).pass(hour);
  EXPECT_EQ(enforcedLimit(current.machine), 80);
}

TEST(LimitLess, canReportWhyItHasNoClient) {
  Bench mac({.macOS = 27, .chargeLimit = false});
  mac.change(ChangeKind::limitClient, static_cast<double>(LimitClient::noFramework));
  EXPECT_EQ(loadClient(mac.machine), LimitClient::noFramework);
}

// --- The journal

class LimitJournal : public Limit {
 protected:
  [[nodiscard]] const JournalEntry& last() const {
    return mac.journal->entries[(mac.journal->written - 1) % Journal::capacity];
  }
};

TEST_F(LimitJournal, reportsSets) {
  (void)set(80);
  EXPECT_EQ(limitEntryText(last()), "limit set 80");
  EXPECT_EQ(last().status, 0U);
  EXPECT_EQ(last().time, mac.machine.now);
  (void)set(-1);
  EXPECT_EQ(limitEntryText(last()), "limit set -1");
  EXPECT_NE(last().status, 0U);
}

TEST_F(LimitJournal, reportsPreferencesInTheirKind) {
  const auto told = [this](const Preference& value) {
    notePreferenceWrite(mac.machine, *mac.journal, LimitPreference::limitValue, value);
    return limitEntryText(last());
  };
  const std::string name = "preference mclLimitValue";
  EXPECT_EQ(told({.kind = PreferenceKind::integer, .integer = -75, .real = 0, .text = {}}), name + "=-75");
  EXPECT_EQ(told({.kind = PreferenceKind::boolean, .integer = 1, .real = 0, .text = {}}), name + "=true");
  EXPECT_EQ(told({.kind = PreferenceKind::boolean, .integer = 0, .real = 0, .text = {}}), name + "=false");
  EXPECT_EQ(told({.kind = PreferenceKind::real, .integer = 0, .real = 1.5, .text = {}}), name + "=1.500000");
  EXPECT_EQ(told({.kind = PreferenceKind::date, .integer = 0, .real = 10, .text = {}}),
            name + "=date 10.000000");
  EXPECT_EQ(told({.kind = PreferenceKind::text, .integer = 0, .real = 0, .text = shortText("80")}),
            name + "=\"80\"");
  EXPECT_EQ(told({}), name + " removed");
  EXPECT_EQ(calls().preferenceWrites, 7U);
}

TEST_F(LimitJournal, reportsSynchronisationsAndNotifications) {
  EXPECT_TRUE(beginSynchronisation(mac.machine, *mac.journal));
  EXPECT_EQ(limitEntryText(last()), "preferences synchronised");
  EXPECT_EQ(last().status, 0U);
  mac.change(ChangeKind::preferencesFail, 1);
  EXPECT_FALSE(beginSynchronisation(mac.machine, *mac.journal));
  EXPECT_NE(last().status, 0U);
  notify(mac.machine, *mac.journal, limitNotification);
  EXPECT_EQ(limitEntryText(last()), "notified com.apple.smartcharging.defaultschanged");
  notify(mac.machine, *mac.journal, "com.example.other");
  EXPECT_EQ(limitEntryText(last()), "notified com.example.other");
  EXPECT_EQ(calls().synchronisations, 2U);
  EXPECT_EQ(calls().notifications, 2U);
}

TEST(LimitWrites, areInOrderAmongTheOtherWrites) {
  test::VirtualMac mac({.macOS = 27});
  ASSERT_TRUE(platform::makeSmartChargeClient("somebody"));
  (void)platform::setSmartChargeLimit(80);
  (void)platform::setSmartChargeLimit(75);
  platform::setPreference(limitDomain, "MCLFeatureState", 1);
  platform::setPreference(limitDomain, "mclLimitValue", 75);
  platform::setPreference(limitDomain, "MCLTempDisabledUntilDate", std::nullopt);
  (void)platform::synchronizePreferences(limitDomain);
  platform::postNotification(limitNotification);
  mac.number(ChangeKind::preferencesFail, 1);
  (void)platform::synchronizePreferences(limitDomain);
  EXPECT_THAT(mac.writes(),
              ElementsAre("limit set 80", "limit set 75!", "preference MCLFeatureState=1",
                          "preference mclLimitValue=75", "preference MCLTempDisabledUntilDate removed",
                          "preferences synchronised", "notified com.apple.smartcharging.defaultschanged",
                          "preferences synchronised!"));
}

TEST_F(LimitJournal, reportsNothingForOtherEntries) {
  (void)mac.write("ACLC", {3});
  EXPECT_EQ(limitEntryText(last()), "");
}

}  // namespace
}  // namespace brisko::virtual_mac::machine_limit_test
