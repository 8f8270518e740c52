#include "client/why.h"

#include <functional>
#include <string>
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

struct Case {
  const char* name;
  std::function<void(Situation&)> change;
  Reason reason;
};

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
// Every reason, on both sides of its boundary if it has one.
const std::vector<Case>& cases() {
  static const std::vector<Case> all{
      {"not installed",
       [](S& s) {
         s.installed = false;
         s.running = false;
         s.status.reset();
       },
       Reason::notInstalled},
      {"removed, its status left behind",
       [](S& s) {
         s.installed = false;
         s.running = false;
         s.status->ts = now - 71;
       },
       Reason::notInstalled},
      {"started by hand",
       [](S& s) {
         s.installed = false;
         s.running = false;
       },
       Reason::insideBand},
      {"just started",
       [](S& s) {
         s.bootedAt = now - 89;
         s.status.reset();
       },
       Reason::starting},
      {"started long ago",
       [](S& s) {
         s.bootedAt = now - 90;
         s.status.reset();
       },
       Reason::notRunning},
      {"started before the clock was set back",
       [](S& s) {
         s.bootedAt = now + 30;
         s.status.reset();
       },
       Reason::notRunning},
      {"just started, with a status", [](S& s) { s.bootedAt = now - 89; }, Reason::insideBand},
      {"stopped", [](S& s) { s.running = false; }, Reason::notRunning},
      {"stopped, on a Mac that sleeps",
       [](S& s) {
         s.running = false;
         s.asleep = true;
       },
       Reason::insideBand},
      {"a status of 70 s", [](S& s) { s.status->ts = now - 70; }, Reason::insideBand},
      {"a status of 71 s", [](S& s) { s.status->ts = now - 71; }, Reason::notRunning},
      {"an old status just after a wake",
       [](S& s) {
         s.status->ts = now - 3600;
         s.wokeAt = now - 85;
       },
       Reason::insideBand},
      {"an old status long after a wake",
       [](S& s) {
         s.status->ts = now - 3600;
         s.wokeAt = now - 86;
       },
       Reason::notRunning},
      {"a wake that is still to come",
       [](S& s) {
         s.status->ts = now - 71;
         s.wokeAt = now + 10;
       },
       Reason::notRunning},
      {"an old status while asleep",
       [](S& s) {
         s.status->ts = now - 3600;
         s.asleep = true;
       },
       Reason::insideBand},
      {"nothing is known of the job",
       [](S& s) {
         s.running.reset();
         s.status->ts = now - 71;
       },
       Reason::notRunning},
      {"a status ahead within tolerance", [](S& s) { s.status->ts = now + 5; }, Reason::insideBand},
      {"a status from the future", [](S& s) { s.status->ts = now + 5.1; }, Reason::clockSetBack},
      {"purged",
       [](S& s) {
         s.status.reset();
         s.resting = Resting::purged;
       },
       Reason::purged},
      {"dormant",
       [](S& s) {
         s.status->ts = now - 71;
         s.resting = Resting::dormant;
       },
       Reason::dormant},
      {"was dormant once", [](S& s) { s.resting = Resting::dormant; }, Reason::insideBand},
      {"released",
       [](S& s) {
         s.status->ts = now - 71;
         s.resting = Resting::released;
       },
       Reason::released},
      {"keys closed", [](S& s) { s.status->chargeMode = "none"; }, Reason::keysClosed},
      {"keys closed comes before off",
       [](S& s) {
         s.status->chargeMode = "none";
         s.status->enabled = false;
       },
       Reason::keysClosed},
      {"does not obey", [](S& s) { s.status->gateVerified = false; }, Reason::disobeyed},
      {"not verified yet", [](S& s) { s.status->gateVerified.reset(); }, Reason::insideBand},
      {"off", [](S& s) { s.status->enabled = false; }, Reason::off},
      {"off while calibrating",
       [](S& s) {
         s.status->enabled = false;
         calibrate(s, CalPhase::drain);
       },
       Reason::calibrationDrain},
      {"hot", [](S& s) { s.status->hot = true; }, Reason::hot},
      {"hot while calibrating",
       [](S& s) {
         s.status->hot = true;
         calibrate(s, CalPhase::fill);
       },
       Reason::hot},
      {"fill", [](S& s) { calibrate(s, CalPhase::fill); }, Reason::calibrationFill},
      {"refill", [](S& s) { calibrate(s, CalPhase::refill); }, Reason::calibrationRefill},
      {"soak", [](S& s) { calibrate(s, CalPhase::soak); }, Reason::calibrationSoak},
      {"restore", [](S& s) { calibrate(s, CalPhase::restore); }, Reason::calibrationRestore},
      {"calibrating unplugged",
       [](S& s) {
         calibrate(s, CalPhase::drain);
         s.status->plugged = false;
       },
       Reason::calibrationDrain},
      {"unplugged",
       [](S& s) {
         s.status->plugged = false;
         s.status->state = ChargeState::allow;
       },
       Reason::unplugged},
      {"unplugged comes before full once",
       [](S& s) {
         s.status->plugged = false;
         s.status->topUp = true;
       },
       Reason::unplugged},
      {"full once",
       [](S& s) {
         s.status->topUp = true;
         s.status->state = ChargeState::allow;
       },
       Reason::fullOnce},
      {"discharging",
       [](S& s) {
         s.status->state = ChargeState::discharge;
         s.status->pct = 90;
       },
       Reason::discharging},
      {"discharge given up",
       [](S& s) {
         s.settings.discharge = true;
         s.status->dischargeFailed = true;
         s.status->pct = 81;
       },
       Reason::dischargeGivenUp},
      {"discharge given up, at the limit",
       [](S& s) {
         s.settings.discharge = true;
         s.status->dischargeFailed = true;
         s.status->pct = 80;
       },
       Reason::atLimit},
      {"discharge waits",
       [](S& s) {
         s.settings.discharge = true;
         s.status->discharge = true;
         s.status->pct = 81;
       },
       Reason::dischargeWaits},
      {"discharge does not wait through macOS's limit",
       [](S& s) {
         s.settings.discharge = true;
         s.status->discharge = true;
         s.status->chargeMode = "macOS";
         s.status->pct = 81;
       },
       Reason::aboveLimit},
      {"discharge is not possible",
       [](S& s) {
         s.settings.discharge = true;
         s.status->pct = 81;
       },
       Reason::aboveLimit},
      {"at the limit", [](S& s) { s.status->pct = 80; }, Reason::atLimit},
      {"above the limit", [](S& s) { s.status->pct = 81; }, Reason::aboveLimit},
      {"inside the band", [](S& s) { s.status->pct = 79; }, Reason::insideBand},
      {"charging",
       [](S& s) {
         s.status->state = ChargeState::allow;
         s.status->pct = 60;
       },
       Reason::charging},
      {"no current",
       [](S& s) {
         s.status->state = ChargeState::allow;
         s.status->pct = 60;
         addSamples(s, 3, 0, 0);
       },
       Reason::noCurrent},
      {"no current yet",
       [](S& s) {
         s.status->state = ChargeState::allow;
         s.status->pct = 60;
         addSamples(s, 2, 0, 0);
       },
       Reason::charging},
      {"current flows",
       [](S& s) {
         s.status->state = ChargeState::allow;
         s.status->pct = 60;
         addSamples(s, 3, 0, 0.1);
       },
       Reason::charging},
      {"full without a limit",
       [](S& s) {
         s.status->state = ChargeState::allow;
         s.status->upper = 100;
         s.status->pct = 100;
       },
       Reason::noCurrent},
      {"a full charge from the Battery menu is waited for",
       [](S& s) {
         s.status->chargeMode = "macOS";
         s.status->state = ChargeState::allow;
         s.status->pct = 85;
         s.status->fullUntil = now + 3600;
       },
       Reason::fullByMacOS},
      {"a full charge from the Battery menu is over", [](S& s) { s.status->fullUntil = now - 1; },
       Reason::insideBand},
      {"a discharge that could not be seen",
       [](S& s) {
         s.settings.discharge = true;
         s.status->pct = 90;
         s.status->dischargeUnseen = true;
       },
       Reason::dischargeUnseen},
      {"a drain that waits for the adapter to be unplugged",
       [](S& s) {
         calibrate(s, CalPhase::drain);
         s.status->dischargeUnseen = true;
       },
       Reason::calibrationDrainWaits},
      {"a drain that has waited",
       [](S& s) {
         calibrate(s, CalPhase::drain);
         s.status->dischargeUnseen = true;
         s.status->plugged = false;
       },
       Reason::calibrationDrain},
      {"macOS charges on",
       [](S& s) {
         s.status->state = ChargeState::allow;
         s.status->chargeMode = "macOS";
         s.status->pct = 80;
         s.status->gateVerified.reset();
         addSamples(s, 3, 0, 5);
       },
       Reason::limitOverridden},
      {"macOS has just reached its limit",
       [](S& s) {
         s.status->state = ChargeState::allow;
         s.status->chargeMode = "macOS";
         s.status->pct = 80;
         s.status->gateVerified.reset();
         addSamples(s, 2, 0, 5);
       },
       Reason::atLimit},
      {"macOS makes up for a loss above the limit",
       [](S& s) {
         s.status->state = ChargeState::allow;
         s.status->chargeMode = "macOS";
         s.status->pct = 81;
         addSamples(s, 3, 0, 5);
       },
       Reason::aboveLimit},
      {"macOS stops at its limit, and no current flows",
       [](S& s) {
         s.status->state = ChargeState::allow;
         s.status->chargeMode = "macOS";
         s.status->pct = 80;
         addSamples(s, 3, 0, 0);
       },
       Reason::atLimit},
      {"macOS charges below its limit, and no current flows",
       [](S& s) {
         s.status->state = ChargeState::allow;
         s.status->chargeMode = "macOS";
         s.status->pct = 79;
         addSamples(s, 3, 0, 0);
       },
       Reason::noCurrent},
      {"macOS charges below its limit",
       [](S& s) {
         s.status->state = ChargeState::allow;
         s.status->chargeMode = "macOS";
         s.status->pct = 79;
       },
       Reason::charging},
      {"macOS accepts no limit that low",
       [](S& s) {
         s.status->state = ChargeState::allow;
         s.status->chargeMode = "macOS";
         s.status->nativeFloor = 80;
         s.status->upper = 60;
         s.status->pct = 79;
       },
       Reason::charging},
  };
  return all;
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
  Situation situation = usual();
  situation.status->state = ChargeState::allow;
  situation.status->pct = 60;
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
  Situation situation = usual();
  situation.status->state = ChargeState::allow;
  situation.status->pct = 60;
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
  Situation situation = usual();
  situation.status->topUp = true;
  situation.status->state = ChargeState::allow;
  situation.status->pct = 60;
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
  Situation situation = usual();
  situation.status->state = ChargeState::allow;
  situation.status->pct = 60;
  addSamples(situation, 10, -1, -5);
  EXPECT_FALSE(why(situation).until->aboutMinutes.has_value());
}

}  // namespace
}  // namespace brisko::client::why_test
