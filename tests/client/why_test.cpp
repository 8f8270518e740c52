#include "client/why.h"

#include <functional>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace brisko::client::why_test {
namespace {

using ::testing::HasSubstr;

constexpr double now = 1'772'352'000;

// A healthy Mac on its adapter, held inside the band of 75 to 80 %.
Situation usual() {
  Situation situation;
  situation.now = now;
  situation.running = true;
  situation.bootedAt = now - 86'400;
  situation.status = DaemonStatus{.state = ChargeState::hold,
                                  .pct = 78,
                                  .ts = now - 6,
                                  .plugged = true,
                                  .upper = 80,
                                  .dischargeSupported = true,
                                  .gateVerified = true,
                                  .chargeMode = "CHTE"};
  situation.band = {80, 75};
  return situation;
}

void calibrate(Situation& situation, CalPhase phase) {
  situation.status->calibration.phase = phase;
  situation.status->calibration.drainTarget = 15;
  situation.status->calibration.soakSeconds = 3600;
}

// One sample a minute for `minutes`, up to now.
void addSamples(Situation& situation, int minutes, double perMinute, double watts) {
  for (int minute = 0; minute <= minutes; ++minute) {
    const double left = minutes - minute;
    situation.recent.push_back({.time = now - left * 60,
                                .pct = situation.status->pct - static_cast<std::int64_t>(left * perMinute),
                                .state = situation.status->state,
                                .plugged = situation.status->plugged,
                                .watts = watts});
  }
}

using S = Situation;
using D = DaemonStatus;
using Change = std::function<void(Situation&)>;

// The part of the situation whose member a change sets.
template <class Part>
using In = std::type_identity<Part>;
S& partOf(S& s, In<S>) { return s; }
D& partOf(S& s, In<D>) { return *s.status; }
Settings& partOf(S& s, In<Settings>) { return s.settings; }

template <class Part, class Value>
Change set(Value Part::*member, const std::type_identity_t<Value>& value) {
  return [=](S& s) { partOf(s, In<Part>{}).*member = value; };
}

template <class... Changes>
Change together(const Changes&... changes) {
  return [=](S& s) { (changes(s), ...); };
}

Change noStatus() { return set(&S::status, std::nullopt); }

Change statusOf(double secondsAgo) { return set(&D::ts, now - secondsAgo); }

Change calibrating(CalPhase phase) {
  return [=](S& s) { calibrate(s, phase); };
}

Change withSamples(int minutes, double watts) {
  return [=](S& s) { addSamples(s, minutes, 0, watts); };
}

Change chargingAt(std::int64_t pct) {
  return together(set(&D::state, ChargeState::allow), set(&D::pct, pct));
}

Change leftToMacOSAt(std::int64_t pct) { return together(chargingAt(pct), set(&D::chargeMode, "macOS")); }

Change dischargeAsked() { return set(&Settings::discharge, true); }

struct Case {
  const char* name;
  Change change;
  Reason reason;
};

// Every reason, on both sides of its boundary if it has one.
const std::vector<Case>& cases() {
  static const std::vector<Case> all{
      {"not installed", together(set(&S::installed, false), set(&S::running, false), noStatus()),
       Reason::notInstalled},
      {"removed, its status left behind",
       together(set(&S::installed, false), set(&S::running, false), statusOf(71)), Reason::notInstalled},
      {"started by hand", together(set(&S::installed, false), set(&S::running, false)), Reason::insideBand},
      {"just started", together(set(&S::bootedAt, now - 89), noStatus()), Reason::starting},
      {"started long ago", together(set(&S::bootedAt, now - 90), noStatus()), Reason::notRunning},
      {"started before the clock was set back", together(set(&S::bootedAt, now + 30), noStatus()),
       Reason::notRunning},
      {"just started, with a status", set(&S::bootedAt, now - 89), Reason::insideBand},
      {"stopped", set(&S::running, false), Reason::notRunning},
      {"stopped, on a Mac that sleeps", together(set(&S::running, false), set(&S::asleep, true)),
       Reason::insideBand},
      {"a status of 70 s", statusOf(70), Reason::insideBand},
      {"a status of 71 s", statusOf(71), Reason::notRunning},
      {"an old status just after a wake", together(statusOf(3600), set(&S::wokeAt, now - 85)),
       Reason::insideBand},
      {"an old status long after a wake", together(statusOf(3600), set(&S::wokeAt, now - 86)),
       Reason::notRunning},
      {"a wake that is still to come", together(statusOf(71), set(&S::wokeAt, now + 10)), Reason::notRunning},
      {"an old status while asleep", together(statusOf(3600), set(&S::asleep, true)), Reason::insideBand},
      {"nothing is known of the job", together(set(&S::running, std::nullopt), statusOf(71)),
       Reason::notRunning},
      {"a status ahead within tolerance", statusOf(-5), Reason::insideBand},
      {"a status from the future", statusOf(-5.1), Reason::clockSetBack},
      {"purged", together(noStatus(), set(&S::resting, Resting::purged)), Reason::purged},
      {"dormant", together(statusOf(71), set(&S::resting, Resting::dormant)), Reason::dormant},
      {"was dormant once", set(&S::resting, Resting::dormant), Reason::insideBand},
      {"released", together(statusOf(71), set(&S::resting, Resting::released)), Reason::released},
      {"keys closed", set(&D::chargeMode, "none"), Reason::keysClosed},
      {"keys closed comes before off", together(set(&D::chargeMode, "none"), set(&D::enabled, false)),
       Reason::keysClosed},
      {"does not obey", set(&D::gateVerified, false), Reason::disobeyed},
      {"not verified yet", set(&D::gateVerified, std::nullopt), Reason::insideBand},
      {"off", set(&D::enabled, false), Reason::off},
      {"off while calibrating", together(set(&D::enabled, false), calibrating(CalPhase::drain)),
       Reason::calibrationDrain},
      {"hot", set(&D::hot, true), Reason::hot},
      {"hot while calibrating", together(set(&D::hot, true), calibrating(CalPhase::fill)), Reason::hot},
      {"fill", calibrating(CalPhase::fill), Reason::calibrationFill},
      {"refill", calibrating(CalPhase::refill), Reason::calibrationRefill},
      {"soak", calibrating(CalPhase::soak), Reason::calibrationSoak},
      {"restore", calibrating(CalPhase::restore), Reason::calibrationRestore},
      {"calibrating unplugged", together(calibrating(CalPhase::drain), set(&D::plugged, false)),
       Reason::calibrationDrain},
      {"unplugged", together(set(&D::plugged, false), set(&D::state, ChargeState::allow)), Reason::unplugged},
      {"unplugged comes before full once", together(set(&D::plugged, false), set(&D::topUp, true)),
       Reason::unplugged},
      {"full once", together(set(&D::topUp, true), set(&D::state, ChargeState::allow)), Reason::fullOnce},
      {"discharging", together(set(&D::state, ChargeState::discharge), set(&D::pct, 90)),
       Reason::discharging},
      {"discharge given up", together(dischargeAsked(), set(&D::dischargeFailed, true), set(&D::pct, 81)),
       Reason::dischargeGivenUp},
      {"discharge given up, at the limit",
       together(dischargeAsked(), set(&D::dischargeFailed, true), set(&D::pct, 80)), Reason::atLimit},
      {"discharge waits", together(dischargeAsked(), set(&D::discharge, true), set(&D::pct, 81)),
       Reason::dischargeWaits},
      {"discharge does not wait through macOS's limit",
       together(dischargeAsked(), set(&D::discharge, true), set(&D::chargeMode, "macOS"), set(&D::pct, 81)),
       Reason::aboveLimit},
      {"discharge is not possible", together(dischargeAsked(), set(&D::pct, 81)), Reason::aboveLimit},
      {"at the limit", set(&D::pct, 80), Reason::atLimit},
      {"above the limit", set(&D::pct, 81), Reason::aboveLimit},
      {"inside the band", set(&D::pct, 79), Reason::insideBand},
      {"charging", chargingAt(60), Reason::charging},
      {"no current", together(chargingAt(60), withSamples(3, 0)), Reason::noCurrent},
      {"no current yet", together(chargingAt(60), withSamples(2, 0)), Reason::charging},
      {"current flows", together(chargingAt(60), withSamples(3, 0.1)), Reason::charging},
      {"full without a limit", together(chargingAt(100), set(&D::upper, 100)), Reason::noCurrent},
      {"a full charge from the Battery menu is waited for",
       together(leftToMacOSAt(85), set(&D::fullUntil, now + 3600)), Reason::fullByMacOS},
      {"a full charge from the Battery menu is over", set(&D::fullUntil, now - 1), Reason::insideBand},
      {"a discharge that could not be seen",
       together(dischargeAsked(), set(&D::pct, 90), set(&D::dischargeUnseen, true)), Reason::dischargeUnseen},
      {"a drain that waits for the adapter to be unplugged",
       together(calibrating(CalPhase::drain), set(&D::dischargeUnseen, true)), Reason::calibrationDrainWaits},
      {"a drain that has waited",
       together(calibrating(CalPhase::drain), set(&D::dischargeUnseen, true), set(&D::plugged, false)),
       Reason::calibrationDrain},
      {"macOS charges on",
       together(leftToMacOSAt(80), set(&D::gateVerified, std::nullopt), withSamples(3, 5)),
       Reason::limitOverridden},
      {"macOS has just reached its limit",
       together(leftToMacOSAt(80), set(&D::gateVerified, std::nullopt), withSamples(2, 5)), Reason::atLimit},
      {"macOS makes up for a loss above the limit", together(leftToMacOSAt(81), withSamples(3, 5)),
       Reason::aboveLimit},
      {"macOS stops at its limit, and no current flows", together(leftToMacOSAt(80), withSamples(3, 0)),
       Reason::atLimit},
      {"macOS charges below its limit, and no current flows", together(leftToMacOSAt(79), withSamples(3, 0)),
       Reason::noCurrent},
      {"macOS charges below its limit", leftToMacOSAt(79), Reason::charging},
      {"macOS accepts no limit that low",
       together(leftToMacOSAt(79), set(&D::nativeFloor, 80), set(&D::upper, 60)), Reason::charging},
  };
  return all;
}

// On the way from 60 % to the limit.
Situation charging() {
  Situation situation = usual();
  chargingAt(60)(situation);
  return situation;
}

TEST(Why, givesTheFirstReasonThatApplies) {
  for (const Case& each : cases()) {
    Situation situation = usual();
    each.change(situation);
    const Answer answer = why(situation);
    EXPECT_STREQ(codeOf(answer.reason), codeOf(each.reason)) << each.name;
    EXPECT_TRUE(answer.until.has_value()) << each.name;
    EXPECT_TRUE(answer.text.ends_with('.')) << each.name << ": " << answer.text;
  }
}

TEST(Why, coversEveryReason) {
  for (int number = 0; number <= static_cast<int>(Reason::noCurrent); ++number) {
    const auto reason = static_cast<Reason>(number);
    const bool covered = std::any_of(cases().begin(), cases().end(),
                                     [reason](const Case& each) { return each.reason == reason; });
    EXPECT_TRUE(covered) << codeOf(reason);
  }
}

// Held, or left to macOS, which may charge a few points below where it was told to hold.
TEST(Why, tellsWhereABatteryFallsThatHelpsAWeakAdapter) {
  const auto answerAt = [](std::int64_t pct, ChargeState state, int minutes, double watts) {
    Situation situation = usual();
    situation.status->chargeMode = "macOS";
    situation.status->state = state;
    situation.status->pct = pct;
    addSamples(situation, minutes, -0.5, watts);
    return why(situation);
  };
  for (const ChargeState state : {ChargeState::hold, ChargeState::allow}) {
    const Answer falling = answerAt(82, state, 8, -15);
    EXPECT_EQ(falling.reason, Reason::aboveLimit);
    EXPECT_EQ(falling.text,
              "Falling from 82 % to the limit of 80 %, in about 3 min: the adapter may be too weak for what "
              "the Mac is doing.");
    EXPECT_EQ(falling.until->value, 80);
    EXPECT_EQ(answerAt(81, state, 3, -1).until->kind, UntilKind::percent);
    EXPECT_EQ(answerAt(81, state, 3, -0.9).until->event, "unplugged");
    EXPECT_EQ(answerAt(81, state, 2, -1).until->event, "unplugged");
    EXPECT_EQ(answerAt(80, state, 8, -15).reason, Reason::atLimit);
  }
}

TEST(Why, namesTheWakeOfASleepingMac) {
  Situation situation = charging();
  EXPECT_THAT(why(situation).text, Not(HasSubstr("wakes")));
  situation.status->nextWake = now + 600;
  EXPECT_THAT(why(situation).text, HasSubstr("The Mac wakes at "));
  situation.status->nextWake = now;
  EXPECT_THAT(why(situation).text, Not(HasSubstr("wakes")));
}

TEST(Why, namesTheLowerEdgeForAHold) {
  const Answer answer = why(usual());
  EXPECT_EQ(answer.text, "Held at 78 %: the limit was reached before. Charging starts again at 75 %.");
  EXPECT_EQ(answer.until->kind, UntilKind::percent);
  EXPECT_EQ(answer.until->value, 75);
  EXPECT_FALSE(answer.until->aboutMinutes.has_value());
}

TEST(Why, namesNoLowerEdgeWhereMacOSDecides) {
  Situation situation = usual();
  situation.status->chargeMode = "macOS";
  EXPECT_EQ(why(situation).until->kind, UntilKind::event);
}

TEST(Why, namesMinutesOnlyWithASlope) {
  Situation situation = charging();
  EXPECT_EQ(why(situation).text, "Charging from 60 % to the limit of 80 %.");
  addSamples(situation, 10, 1, 20);
  const Answer answer = why(situation);
  EXPECT_EQ(answer.text, "Charging from 60 % to the limit of 80 %, in about 20 min.");
  EXPECT_EQ(answer.until->aboutMinutes, 20);
}

TEST(Why, namesTheTemperatureAtWhichChargingResumes) {
  Situation situation = usual();
  situation.status->hot = true;
  situation.status->temperature = 41.5;
  situation.settings.thermalLimit = 38;
  const Answer answer = why(situation);
  EXPECT_EQ(answer.until->kind, UntilKind::temperature);
  EXPECT_EQ(answer.until->value, 35);
  EXPECT_THAT(answer.text, HasSubstr("41.5 °C"));
}

TEST(Why, namesWhenAFullChargeEnds) {
  Situation situation = usual();
  situation.status->topUp = true;
  situation.status->pct = 100;
  EXPECT_EQ(why(situation).until->event, "unplugged");
  situation.settings.topUpHours = 4;
  situation.topUpSince = now - 3600;
  EXPECT_EQ(why(situation).until->value, now + 3 * 3600);
  situation.status->pct = 99;
  EXPECT_EQ(why(situation).until->value, 100);
}

TEST(Why, namesTheEndOfAFullChargeThatComesBeforeItIsFull) {
  Situation situation = charging();
  situation.status->topUp = true;
  situation.settings.topUpHours = 1;
  situation.topUpSince = now - 1200;
  EXPECT_EQ(why(situation).until->value, 100);
  addSamples(situation, 10, 1, 20);
  const Answer late = why(situation);
  EXPECT_EQ(late.until->kind, UntilKind::time);
  EXPECT_EQ(late.until->value, now + 2400);
  EXPECT_THAT(late.text, Not(HasSubstr("about")));
  situation.settings.topUpHours = 4;
  EXPECT_EQ(why(situation).until->value, 100);
}

TEST(Why, waitsForTheAdapterOnlyInPhasesThatCharge) {
  Situation situation = usual();
  situation.status->plugged = false;
  calibrate(situation, CalPhase::fill);
  EXPECT_EQ(why(situation).until->event, "pluggedIn");
  calibrate(situation, CalPhase::drain);
  EXPECT_EQ(why(situation).until->value, 15);
}

TEST(Why, countsTheSoakThatIsLeft) {
  Situation situation = usual();
  calibrate(situation, CalPhase::soak);
  situation.status->pct = 100;
  situation.status->calibration.soakBanked = 1800;
  const Answer answer = why(situation);
  EXPECT_EQ(answer.until->value, situation.status->ts + 1800);
  EXPECT_EQ(answer.until->aboutMinutes, 30);
  situation.status->pct = 99;
  EXPECT_EQ(why(situation).until->event, "full");
}

TEST(Why, neverPromisesMinutesInTheOtherDirection) {
  Situation situation = charging();
  addSamples(situation, 10, -1, -5);
  EXPECT_FALSE(why(situation).until->aboutMinutes.has_value());
}

}  // namespace
}  // namespace brisko::client::why_test
