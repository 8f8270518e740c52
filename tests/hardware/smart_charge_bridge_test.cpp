// Access to macOS's own limit: through its client for values that it accepts, otherwise through its
// preferences.
#include "hardware/smart_charge_bridge.h"

#include <limits>

#include "platform/clock.h"
#include "platform/preferences.h"
#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::smart_charge_bridge_test {
namespace {

using namespace test;
using virtual_mac::LimitCalls;

constexpr const char* notified = "notified com.apple.smartcharging.defaultschanged";
constexpr const char* untilDate = "MCLTempDisabledUntilDate";

// The calls that write a value to the preferences.
Writes preferencesAt(const std::string& limit) {
  return {"preference MCLFeatureState=1", "preference mclLimitValue=" + limit,
          "preference MCLTempDisabledUntilDate removed", "preferences synchronised", notified};
}
Writes after(const std::string& first, Writes rest) {
  rest.insert(rest.begin(), first);
  return rest;
}

// A Mac whose keys are closed, with no limit set.
class SmartCharge : public ::testing::Test {
 protected:
  SmartCharge() : mac({.macOS = 27}) {}
  [[nodiscard]] LimitCalls calls() const { return mac.machine().limit.calls; }
  VirtualMac& say(ChangeKind kind, double number) { return mac.number(kind, number); }
  VirtualMac& without(LimitClient absence) {
    return say(ChangeKind::limitClient, static_cast<double>(absence));
  }
  VirtualMac& answer(LimitAnswer answer) {
    return say(ChangeKind::limitSetAnswer, static_cast<double>(answer));
  }
  // Moves the slider in System Settings.
  VirtualMac& slider(double percent) { return say(ChangeKind::limit, percent); }

  VirtualMac mac;
};

// -- The four calls

TEST_F(SmartCharge, isSupportedOnceTheServiceReportsIt) {
  say(ChangeKind::limitSupportedAfter, 7200);
  EXPECT_EQ(CKMCLSupported(), 0);
  mac.pass(3600);
  EXPECT_EQ(CKMCLSupported(), 1);
}

TEST_F(SmartCharge, reportsWhetherTheLimitIsOn) {
  EXPECT_EQ(CKMCLEnabled(), 0);
  slider(85);
  EXPECT_EQ(CKMCLEnabled(), 1);
  slider(100);
  EXPECT_EQ(CKMCLEnabled(), 0);
}

TEST_F(SmartCharge, distinguishesAnErrorFromOff) {
  say(ChangeKind::limitEnabledFails, 1);
  EXPECT_EQ(CKMCLEnabled(), -1);
  slider(85);
  EXPECT_EQ(CKMCLEnabled(), -1);
  say(ChangeKind::limitEnabledFails, 0);
  EXPECT_EQ(CKMCLEnabled(), 1);
}

TEST_F(SmartCharge, reportsTheLimit) {
  slider(85);
  EXPECT_EQ(CKMCLLimit(), 85);
  ASSERT_TRUE(NativeLimit::write(62, false));
  EXPECT_EQ(CKMCLLimit(), 62);
}

TEST_F(SmartCharge, distinguishesAnErrorFromALimit) {
  slider(85);
  say(ChangeKind::limitValueFails, 1);
  EXPECT_EQ(CKMCLLimit(), -1);
  EXPECT_EQ(CKMCLEnabled(), 1);
}

TEST_F(SmartCharge, isSetAtTheStepsOfTheSlider) {
  for (const std::int32_t pct : {80, 85, 90, 95, 100}) {
    mac.forgetJournal();
    EXPECT_EQ(CKMCLSetLimit(pct), 1);
    EXPECT_EQ(mac.writes(), Writes{"limit set " + std::to_string(pct)});
  }
}

TEST_F(SmartCharge, isNotAskedForWhatTheSliderDoesNotOffer) {
  for (const std::int32_t pct :
       {79, 75, 81, 82, 84, 99, 101, 105, 0, -80, -5, std::numeric_limits<std::int32_t>::min()}) {
    EXPECT_EQ(CKMCLSetLimit(pct), 0) << pct;
  }
  EXPECT_EQ(calls().sets, 0U);
}

TEST_F(SmartCharge, reportsARefusalAsAFailure) {
  answer(LimitAnswer::no);
  EXPECT_EQ(CKMCLSetLimit(80), 0);
  EXPECT_EQ(calls().sets, 1U);
}

TEST_F(SmartCharge, reportsAnErrorAsAFailure) {
  answer(LimitAnswer::error);
  EXPECT_EQ(CKMCLSetLimit(80), 0);
  EXPECT_EQ(calls().sets, 1U);
}

// -- The client

TEST_F(SmartCharge, isReachedThroughOneClient) {
  EXPECT_EQ(calls().loads, 0U) << "nothing is loaded before the first call";
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(CKMCLSupported(), 1);
    EXPECT_EQ(CKMCLEnabled(), 0);
    EXPECT_EQ(CKMCLLimit(), 100);
    EXPECT_EQ(CKMCLSetLimit(79), 0);
  }
  EXPECT_EQ(calls().clients, 1U);
  EXPECT_EQ(calls().loads, 1U);
}

class WithoutClient : public SmartCharge, public ::testing::WithParamInterface<LimitClient> {};

TEST_P(WithoutClient, everyCallReturnsMinus1) {
  without(GetParam());
  EXPECT_EQ(CKMCLSupported(), -1);
  EXPECT_EQ(CKMCLEnabled(), -1);
  EXPECT_EQ(CKMCLLimit(), -1);
  EXPECT_EQ(CKMCLSetLimit(80), -1);
  EXPECT_EQ(CKMCLSetLimit(79), -1) << "the client is checked before the value";
  EXPECT_EQ(calls().supported + calls().enabled + calls().limit + calls().sets, 0U);
}

TEST_P(WithoutClient, stepsOfTheSliderCannotBeSetAndNothingElseIsTried) {
  without(GetParam());
  EXPECT_FALSE(NativeLimit::write(80, true));
  EXPECT_FALSE(NativeLimit::write(100, false));
  EXPECT_THAT(mac.writes(), IsEmpty());
}

TEST_P(WithoutClient, thePreferencesAreStillWritten) {
  without(GetParam());
  EXPECT_TRUE(NativeLimit::write(75, true));
  EXPECT_EQ(mac.writes(), preferencesAt("75"));
}

TEST_P(WithoutClient, theClientIsLookedForOnce) {
  without(GetParam());
  EXPECT_EQ(CKMCLSupported(), -1);
  without(LimitClient::offered);
  EXPECT_EQ(CKMCLSupported(), -1);
  EXPECT_EQ(CKMCLEnabled(), -1);
  EXPECT_EQ(calls().loads, 1U);
  EXPECT_EQ(calls().clients, 0U);
}

INSTANTIATE_TEST_SUITE_P(Absences, WithoutClient,
                         ::testing::Values(LimitClient::noFramework, LimitClient::noClass,
                                           LimitClient::noSelector),
                         [](const auto& absence) {
                           return absence.param == LimitClient::noFramework ? "noFramework"
                                  : absence.param == LimitClient::noClass   ? "noClass"
                                                                            : "noSelector";
                         });

// -- Writing

TEST_F(SmartCharge, writesTheStepsOfTheSliderThroughTheClientAlone) {
  for (const bool prime : {false, true}) {
    for (const std::int64_t pct : {80, 85, 90, 95, 100}) {
      mac.forgetJournal();
      EXPECT_TRUE(NativeLimit::write(pct, prime));
      EXPECT_EQ(mac.writes(), Writes{"limit set " + std::to_string(pct)});
    }
  }
  EXPECT_EQ(calls().enabled, 0U);
}

TEST_F(SmartCharge, writesValuesBelowTheSliderToThePreferences) {
  slider(90);
  EXPECT_TRUE(NativeLimit::write(75, false));
  EXPECT_EQ(mac.writes(), preferencesAt("75")) << "the feature is on: nothing to set through the client";
  EXPECT_EQ(calls().enabled, 1U);
  mac.pass(5);
  EXPECT_EQ(mac.key("bfG0"), std::vector<std::uint8_t>{75});
}

TEST_F(SmartCharge, switchesTheFeatureOnFirstIfItIsOff) {
  EXPECT_TRUE(NativeLimit::write(75, false));
  EXPECT_EQ(mac.writes(), after("limit set 80", preferencesAt("75")));
}

TEST_F(SmartCharge, switchesTheFeatureOnFirstIfItsStateIsUnknown) {
  slider(90);
  say(ChangeKind::limitEnabledFails, 1);
  EXPECT_TRUE(NativeLimit::write(75, false));
  EXPECT_EQ(mac.writes(), after("limit set 80", preferencesAt("75")));
}

TEST_F(SmartCharge, setsEightyFirstIfAskedToEvenIfTheFeatureIsOn) {
  slider(90);
  EXPECT_TRUE(NativeLimit::write(75, true));
  EXPECT_EQ(mac.writes(), after("limit set 80", preferencesAt("75")));
}

TEST_F(SmartCharge, continuesWhenEightyIsRefused) {
  answer(LimitAnswer::no);
  EXPECT_TRUE(NativeLimit::write(75, true));
  EXPECT_EQ(mac.writes(), after("limit set 80!", preferencesAt("75")));
}

TEST_F(SmartCharge, writesValuesBetweenTheStepsToThePreferences) {
  slider(90);
  for (const int pct : {81, 83, 84, 86, 99}) {
    mac.forgetJournal();
    EXPECT_TRUE(NativeLimit::write(pct, false));
    EXPECT_EQ(mac.writes(), preferencesAt(std::to_string(pct)));
  }
}

TEST_F(SmartCharge, writesEveryValueBelowEightyToThePreferencesIncludingSteps) {
  slider(90);
  for (const int pct : {1, 5, 70, 78, 79}) {
    mac.forgetJournal();
    EXPECT_TRUE(NativeLimit::write(pct, false));
    EXPECT_EQ(mac.writes(), preferencesAt(std::to_string(pct)));
  }
}

TEST_F(SmartCharge, writesOneForValuesBelowOne) {
  slider(90);
  for (const std::int64_t pct :
       {std::int64_t{0}, std::int64_t{-1}, std::int64_t{-80}, std::numeric_limits<std::int64_t>::min()}) {
    mac.forgetJournal();
    EXPECT_TRUE(NativeLimit::write(pct, false));
    EXPECT_EQ(mac.writes(), preferencesAt("1")) << pct;
  }
}

TEST_F(SmartCharge, setsOneHundredForValuesAboveOneHundred) {
  for (const std::int64_t pct :
       {std::int64_t{101}, std::int64_t{103}, std::int64_t{250}, std::numeric_limits<std::int64_t>::max()}) {
    mac.forgetJournal();
    EXPECT_TRUE(NativeLimit::write(pct, false));
    EXPECT_EQ(mac.writes(), Writes{"limit set 100"}) << pct;
  }
}

TEST_F(SmartCharge, failsWhenTheClientRefuses) {
  for (const LimitAnswer refusal : {LimitAnswer::no, LimitAnswer::error}) {
    answer(refusal);
    mac.forgetJournal();
    EXPECT_FALSE(NativeLimit::write(85, false));
    EXPECT_EQ(mac.writes(), Writes{"limit set 85!"});
  }
}

TEST_F(SmartCharge, notifiesEvenWhenThePreferencesCannotBeStored) {
  slider(90);
  say(ChangeKind::preferencesFail, 1);
  EXPECT_FALSE(NativeLimit::write(75, false));
  EXPECT_EQ(mac.writes(),
            (Writes{"preference MCLFeatureState=1", "preference mclLimitValue=75",
                    "preference MCLTempDisabledUntilDate removed", "preferences synchronised!", notified}));
}

// -- A requested full charge

TEST_F(SmartCharge, readsUntilWhenAFullChargeIsRequested) {
  EXPECT_EQ(NativeLimit::tempDisabledUntil(), std::nullopt);
  say(ChangeKind::chargeToFull, 930);
  EXPECT_EQ(NativeLimit::tempDisabledUntil(), platform::wallNow() + 930);
}

TEST_F(SmartCharge, alsoReadsADateInThePast) {
  say(ChangeKind::chargeToFull, 930);
  const double until = platform::wallNow() + 930;
  mac.pass(3600);
  EXPECT_EQ(NativeLimit::tempDisabledUntil(), until);
}

TEST_F(SmartCharge, readsAFullChargeOnlyFromADate) {
  for (const platform::Value& odd : {platform::Value(1772353000), platform::Value(1772353000.0),
                                     platform::Value("tomorrow"), platform::Value(true)}) {
    platform::setPreference(NativeLimit::domain, untilDate, odd);
    EXPECT_EQ(NativeLimit::tempDisabledUntil(), std::nullopt);
  }
  platform::setPreference(NativeLimit::domain, untilDate, platform::Date{1772353000.5});
  EXPECT_EQ(NativeLimit::tempDisabledUntil(), 1772353000.5);
}

TEST_F(SmartCharge, endsAFullChargeByWritingThePreferencesAndNotThroughTheClient) {
  say(ChangeKind::chargeToFull, 930);
  ASSERT_TRUE(NativeLimit::write(80, false));
  EXPECT_NE(NativeLimit::tempDisabledUntil(), std::nullopt);
  ASSERT_TRUE(NativeLimit::write(75, false));
  EXPECT_EQ(NativeLimit::tempDisabledUntil(), std::nullopt);
}

}  // namespace
}  // namespace brisko::smart_charge_bridge_test
