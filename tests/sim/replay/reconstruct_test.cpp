// What a report shows of the Mac's days, as actions of a scenario.

#include "sim/replay/reconstruct.h"

#include <algorithm>
#include <tuple>

#include "sim/replay/reported_power.h"
#include "sim/replay/reported_service.h"
#include "sim/replay/reported_settings.h"
#include "sim/replay/reported_sleep.h"
#include "sim/replay/sample_report.h"
#include "sim/scenario/scenario.h"
#include "support/testing.h"

namespace brisko::lab::reconstruct_test {
namespace {

Sighting summary(const std::string& line, double time) {
  const auto read = readSummary(line, time);
  EXPECT_TRUE(read) << line;
  return read.value_or(Sighting{});
}

// Summaries with these beginnings, a minute apart, on the adapter at 70 %.
ReportedDays daysOf(const std::vector<std::string>& beginnings) {
  ReportedDays days;
  double time = 0;
  for (const std::string& beginning : beginnings)
    days.trace.sightings.push_back(
        summary(beginning + "  batt 70%  30.0°C  ac  state=allow  LED=orange", time += 60));
  days.config = nlohmann::json{{"limit", 80}, {"discharge", false}};
  return days;
}

std::vector<std::string> textsOf(const std::vector<DatedAction>& actions) {
  std::vector<std::string> texts;
  for (const DatedAction& action : actions)
    texts.push_back(std::to_string(std::llround(action.time)) + " " + action.action.dump());
  return texts;
}

TEST(ReportedSettings, followTheSummaries) {
  const auto settings = settingsOf(daysOf({"cap 80%", "cap 75%", "cap 75%+discharge", "cap off",
                                           "cap 90%+discharge", "cap 100%(TopUp)", "cap 90%+discharge"}));
  ASSERT_TRUE(settings.first);
  EXPECT_EQ(settings.first->at("limit"), 80);
  EXPECT_EQ(settings.first->at("history"), true);
  EXPECT_THAT(
      textsOf(settings.edits),
      ::testing::ElementsAre(R"(120 {"settings":{"limit":75}})", R"(180 {"settings":{"discharge":true}})",
                             R"(240 {"settings":{"enabled":false,"discharge":false}})",
                             R"(300 {"settings":{"enabled":true,"limit":90,"discharge":true}})",
                             R"(360 {"settings":{"topUp":true,"topUpHours":0}})",
                             R"(420 {"settings":{"topUp":false}})"));
}

TEST(ReportedSettings, takeTheEndOfATopUpFromTheLog) {
  ReportedDays days = daysOf({"cap 80%", "cap 100%(TopUp)", "cap 80%"});
  days.trace.lines = {{180, "Top Up dropped after 6h"}};
  EXPECT_THAT(textsOf(settingsOf(days).edits),
              ::testing::ElementsAre(R"(120 {"settings":{"topUp":true,"topUpHours":6}})"));
}

TEST(ReportedSettings, haveATopUpThatEndedInTheTickThatFoundIt) {
  ReportedDays days = daysOf({"cap 80%", "cap 80%", "cap 100%(TopUp)", "cap 80%"});
  days.trace.lines = {{90, "Top Up finished (unplugged)"}, {240, "Top Up finished (unplugged)"}};
  EXPECT_THAT(textsOf(settingsOf(days).edits),
              ::testing::ElementsAre(R"(90 {"settings":{"topUp":true}})",
                                     R"(180 {"settings":{"topUp":true,"topUpHours":0}})"));
}

TEST(ReportedSettings, keepTheDischargeThatTheDaemonGaveUp) {
  ReportedDays days = daysOf({"cap 80%+discharge", "cap 80%"});
  days.trace.lines = {
      {118, "⚠️ forced discharge has no effect: the adapter cut will not stay written — …"}};
  EXPECT_TRUE(settingsOf(days).edits.empty());
}

// A daemon that only observes clears them when it is started again.
TEST(ReportedSettings, haveTheRequestsThatWereClearedAtAStart) {
  ReportedDays days = daysOf({"cap 80%", "cap 80%"});
  days.trace.lines = {{60, "brisko-daemon started (event-driven) — …"},
                      {300, "Signal 15: charging, adapter and LED restored, exiting."},
                      {400, "brisko-daemon started (event-driven) — …"},
                      {400, "macOS 27: pending Top-up request cleared"},
                      {600, "brisko-daemon started (event-driven) — …"},
                      {600, "macOS 27: pending calibration and Top-up request cleared"}};
  EXPECT_THAT(textsOf(settingsOf(days).edits),
              ::testing::ElementsAre(R"(299 {"settings":{"topUp":true}})",
                                     R"(599 {"settings":{"calibrate":true,"topUp":true}})"));
}

TEST(ReportedSettings, takeTheLowerEdgeFromTheLog) {
  ReportedDays days = daysOf({"cap 80%", "cap 80%"});
  (*days.config)["hysteresis"] = 5;
  EXPECT_FALSE(settingsOf(days).first->contains("topUpHours"));
  days.trace.lines = {{70, "veille à 78% — grille fermée pour la nuit (plage 70–80%)"}};
  const auto settings = settingsOf(days);
  EXPECT_EQ(settings.first->at("hysteresis"), 10);
  EXPECT_THAT(textsOf(settings.edits), ::testing::ElementsAre(R"(71 {"settings":{"hysteresis":5}})"))
      << "the report's last value is in force at the latest from then on";
  days.arguments = {"--lower", "70"};
  EXPECT_TRUE(settingsOf(days).edits.empty());
}

TEST(ReportedSettings, changeWhereAPauseForHeatContradictsThem) {
  ReportedDays days;
  days.config = nlohmann::json{{"limit", 80}, {"thermal", false}, {"thermalLimit", 40}};
  days.trace.sightings = {summary("cap 80%  batt 70%  35.0°C  ac  state=allow  LED=orange", 60),
                          summary("cap 80%+HOT  batt 70%  36.2°C  ac  state=hold  LED=orange", 120),
                          summary("cap 80%  batt 70%  36.5°C  ac  state=allow  LED=orange", 180)};
  const auto settings = settingsOf(days);
  EXPECT_TRUE(settings.heatMatters);
  EXPECT_THAT(textsOf(settings.edits),
              ::testing::ElementsAre(R"(120 {"settings":{"thermal":true,"thermalLimit":36}})",
                                     R"(121 {"settings":{"thermal":false,"thermalLimit":36}})"));
}

TEST(ReportedSettings, doNotChangeWhereATemperatureWasRoundedToTheLimit) {
  ReportedDays days;
  days.config = nlohmann::json{{"limit", 80}, {"thermal", true}, {"thermalLimit", 36}};
  days.trace.sightings = {summary("cap 80%  batt 70%  35.9°C  ac  state=allow  LED=orange", 60),
                          summary("cap 80%  batt 70%  36.0°C  ac  state=allow  LED=orange", 120),
                          summary("cap 80%+HOT  batt 70%  36.0°C  ac  state=hold  LED=orange", 180),
                          summary("cap 80%+HOT  batt 70%  33.0°C  ac  state=hold  LED=orange", 240),
                          summary("cap 80%  batt 70%  33.0°C  ac  state=allow  LED=orange", 300)};
  EXPECT_TRUE(settingsOf(days).edits.empty());
  days.trace.sightings[1] = summary("cap 80%  batt 70%  36.1°C  ac  state=allow  LED=orange", 120);
  EXPECT_FALSE(settingsOf(days).edits.empty());
}

// It was set to another length when it was begun than at the end of the report.
TEST(ReportedSettings, haveASoakThatLastedUntilTheCalibrationWasCancelled) {
  ReportedDays days = daysOf({"cap 80%", "cap 80%"});
  (*days.config)["calSoakMinutes"] = 10;
  days.trace.sightings.back().time = 100000;
  days.trace.lines = {{90, "calibration started — capacity before: 6137 mAh"},
                      {600, "calibration → soak"},
                      {6060, "calibration cancelled"},
                      {9000, "calibration → restore"}};
  const auto edits = textsOf(settingsOf(days).edits);
  ASSERT_EQ(edits.size(), 2U);
  EXPECT_THAT(edits[0], ::testing::HasSubstr(R"("calSoakMinutes":92)"));
  days.trace.lines[2].time = 660;
  EXPECT_THAT(textsOf(settingsOf(days).edits)[0], ::testing::HasSubstr(R"("calSoakMinutes":10)"));
}

// Samples at these moments.
ReportedDays samplesAt(const std::vector<double>& times) {
  ReportedDays days;
  for (const double time : times)
    days.trace.sightings.push_back({.time = time, .percent = 70, .plugged = true, .inHistory = true});
  return days;
}

TEST(ReportedSleep, liesInTheGaps) {
  EXPECT_TRUE(sleepsOf(samplesAt({0, 300, 630})).empty()) << "a line is at most 330 s late";
  const auto sleeps = sleepsOf(samplesAt({0, 300, 1000, 1300, 1600}));
  ASSERT_EQ(sleeps.size(), 1U);
  EXPECT_EQ(sleeps[0].from, 400);
  EXPECT_EQ(sleeps[0].until, 998);
  EXPECT_FALSE(sleeps[0].endsDark);
}

TEST(ReportedSleep, beginsWhereTheDaemonAnnouncesIt) {
  ReportedDays days = samplesAt({0, 300, 1000});
  days.trace.lines = {{310, "veille à 70% — grille fermée pour la nuit (plage 65–70%)"}};
  ASSERT_EQ(sleepsOf(days).size(), 1U);
  EXPECT_EQ(sleepsOf(days)[0].from, 310);
}

TEST(ReportedSleep, isInterruptedByDarkWakes) {
  const auto sleeps = sleepsOf(samplesAt({0, 300, 1000, 3000, 3300, 3600}));
  ASSERT_EQ(sleeps.size(), 2U);
  EXPECT_TRUE(sleeps[0].endsDark);
  EXPECT_FALSE(sleeps[1].endsDark);
  EXPECT_THAT(textsOf(sleepActions(sleeps)),
              ::testing::ElementsAre(R"(400 "close-lid")", R"(994 {"dark-wake":45.0})",
                                     ::testing::HasSubstr(R"("sleep")"), R"(2998 "open-lid")"));
}

TEST(ReportedSleep, isNotWhereTheDaemonDidNotRun) {
  ReportedDays days = samplesAt({0, 300, 5000});
  days.trace.lines = {{310, "Signal 15: charging, adapter and LED restored, exiting."},
                      {4999, "brisko-daemon started (event-driven) — …"}};
  EXPECT_TRUE(sleepsOf(days).empty());
}

TEST(ReportedSleep, isTakenFromTheLogOfMacOSIfThatCoversTheDays) {
  ReportedDays days = samplesAt({0, 300, 5000});
  days.powerEvents = {{400, PowerEventKind::sleep},
                      {500, PowerEventKind::darkWake},
                      {520, PowerEventKind::sleep},
                      {4000, PowerEventKind::wake}};
  const auto sleeps = sleepsOf(days);
  ASSERT_EQ(sleeps.size(), 2U);
  EXPECT_EQ(sleeps[0].darkSeconds, 20);
  EXPECT_EQ(sleeps[1].until, 4000);
  EXPECT_NE(sleepAt(sleeps, 450), nullptr);
  EXPECT_EQ(sleepAt(sleeps, 510), nullptr);
  days.trace.lines = {{300, "veille à 83% — …"}, {370, "veille à 83% — …"}, {518, "veille à 83% — …"}};
  EXPECT_EQ(sleepsOf(days)[0].from, 370) << "the daemon is told before, and macOS waits for 30 s";
  EXPECT_EQ(sleepsOf(days)[1].from, 518);
  days.trace.lines = {{272, "veille à 83% — …"}};
  EXPECT_EQ(sleepsOf(days)[0].from, 272) << "two minutes after a wake on the adapter";
  days.trace.lines.clear();
  days.powerEvents[0].time = 90000;
  EXPECT_EQ(sleepsOf(days).size(), 1U) << "it begins too late";
}

TEST(ReportedSleep, endsWhereTheMacIsStartedAgain) {
  for (const PowerEventKind last : {PowerEventKind::sleep, PowerEventKind::darkWake}) {
    ReportedDays days = samplesAt({0, 300, 9000, 20000});
    days.powerEvents = {{400, PowerEventKind::sleep}, {1000, last}, {12000, PowerEventKind::sleep}};
    days.powerEvents.push_back({15000, PowerEventKind::wake});
    days.trace.lines = {{1500, "Signal 15: charging, adapter and LED restored, exiting."},
                        {9000, "brisko-daemon started (event-driven) — …"}};
    const auto sleeps = sleepsOf(days);
    EXPECT_EQ(sleepAt(sleeps, 9500), nullptr);
    ASSERT_NE(sleepAt(sleeps, 13000), nullptr);
    EXPECT_EQ(sleepAt(sleeps, 13000)->from, 12000);
    for (const SleepSpan& sleep : sleeps) EXPECT_LE(sleep.darkSeconds, 45);
  }
}

// A wake that was dark would otherwise be full for some seconds, and the sleep after it planned anew.
TEST(ReportedSleep, showsWhetherScheduledWakesAreFull) {
  ReportedDays days = samplesAt({0, 300, 5000});
  days.trace.lines = {{100, "réveil programmé dans 20 min pour reprendre la charge en main"}};
  EXPECT_EQ(scheduledWakesAreFull(days), std::nullopt);
  days.powerEvents = {
      {105, PowerEventKind::sleep}, {1000, PowerEventKind::wake}, {1301, PowerEventKind::darkWake}};
  EXPECT_EQ(scheduledWakesAreFull(days), false);
  days.powerEvents.back().kind = PowerEventKind::wake;
  EXPECT_EQ(scheduledWakesAreFull(days), true);
  days.powerEvents.back().time = 1331;
  EXPECT_EQ(scheduledWakesAreFull(days), std::nullopt);
}

TEST(ReportedService, showsWhatHappenedToTheDaemonTheAppAndTheLimit) {
  struct Case {
    std::vector<LoggedLine> lines;
    std::vector<std::string> actions;
  };
  const std::string start = "brisko-daemon started (event-driven) — …";
  const std::string end = "Signal 15: charging, adapter and LED restored, exiting.";
  const Case cases[] = {
      {{{0, start}, {1000, end}, {1003, start}}, {R"(1000 "terminate")"}},
      {{{0, start}, {1000, end}, {1100, start}}, {R"(1000 "shutdown")", R"(1100 "boot")"}},
      {{{0, start}, {990, "charge released by the app — …"}, {1000, end}, {1100, start}},
       {R"(990 {"ask":"release"})", R"(1000 "unload")", R"(1100 "load")"}},
      {{{0, start}, {1000, "restart requested by the app — …"}, {1001, start}},
       {R"(1000 {"ask":"restart"})"}},
      {{{0, start}, {800, "→ state: hold"}, {1000, start}}, {R"(1000 "kill")"}},
      {{{0, start}, {1000, end}}, {R"(1000 "unload")"}},
      {{{0, start}, {100, "app missing at /Applications/Brisko.app — …"}, {400, "app is back — …"}},
       {R"(98 "app-deleted")", R"(398 "app-restored")"}},
      {{{0, "native limit before Brisko: 85% — given back if Brisko leaves"}}, {R"(-1 {"limit":85.0})"}},
      {{{100, "macOS limit changed outside Brisko (bfG0 reads 0) — setting 80% again"}},
       {R"(65 {"limit":100.0})"}},
      {{{100,
         "macOS charges to full until 1970-01-01 01:00:00 +0000 (asked in the Battery menu) — Brisko waits"}},
       {R"(95 {"charge-to-full":3505.0})"}},
  };
  for (const Case& each : cases) {
    ReportedDays days = samplesAt({0, 1200});
    days.trace.lines = each.lines;
    EXPECT_EQ(textsOf(serviceActions(days)), each.actions) << each.lines.back().text;
  }
}

TEST(ReportedService, hasTheLimitThatTheDaemonWouldHaveGivenBack) {
  ReportedDays days = samplesAt({0, 1200});
  EXPECT_EQ(nativeLimitAtBeginning(days), std::nullopt);
  days.stats = nlohmann::json{{"nativeBefore", 95}};
  EXPECT_EQ(nativeLimitAtBeginning(days), 95) << "what it was at the end";
  days.trace.lines = {{500, "macOS limit changed in System Settings while Brisko's is off: 90% — kept"},
                      {600, "macOS limit handed back: 90%"}};
  EXPECT_EQ(nativeLimitAtBeginning(days), 95) << "it read the limit later";
  days.trace.earlier = {{-900, "native limit before Brisko: 85% — given back if Brisko leaves"},
                        {-800, "macOS limit → 60%"}};
  EXPECT_EQ(nativeLimitAtBeginning(days), 85);
  days.trace.lines.erase(days.trace.lines.begin());
  EXPECT_EQ(nativeLimitAtBeginning(days), 90);
  days.trace.lines = {{600, "macOS limit handed back: off"}};
  EXPECT_EQ(nativeLimitAtBeginning(days), 100);
}

TEST(ReportedPower, worksOutWhenAnAdapterWasPulledOutWhileTheMacSlept) {
  ReportedDays days;
  days.trace.sightings = {{.time = 0, .percent = 50, .plugged = true},
                          {.time = 600, .percent = 50, .plugged = true},
                          {.time = 7200, .percent = 60, .plugged = false},
                          {.time = 7500, .percent = 59, .plugged = false}};
  const std::vector<SleepSpan> sleeps = {{.from = 600, .until = 7195}};
  const auto machine = virtual_mac::makeMachine(*virtual_mac::findModel("air13"));
  const auto plugs = plugEventsOf(days, sleeps, machine);
  ASSERT_EQ(plugs.size(), 2U);
  EXPECT_TRUE(plugs[1].unnoticed);
  // 10 or 11 % of 4427 mAh × 0.963 at what is left of 35 W.
  EXPECT_GT(plugs[1].time, 600 + 401);
  EXPECT_LT(plugs[1].time, 600 + 1000);
  days.trace.lines = {{600, "→ state: hold"}};
  EXPECT_EQ(plugEventsOf(days, sleeps, machine)[1].time, 7195) << "it did not charge asleep";
  days.trace.lines.clear();
  days.trace.sightings[2].percent = 92;
  EXPECT_FALSE(plugEventsOf(days, sleeps, machine)[1].unnoticed)
      << "the charger may have taken less and less";
}

TEST(ReportedPower, worksOutWhenAnAdapterCameWhileTheMacSlept) {
  ReportedDays days;
  days.trace.sightings = {{.time = 0, .percent = 50, .plugged = false},
                          {.time = 7200, .percent = 60, .plugged = true},
                          {.time = 7500, .percent = 63, .plugged = true}};
  const auto machine = virtual_mac::makeMachine(*virtual_mac::findModel("air13"));
  const auto sleeps = sleepsOf(days);
  const auto plugs = plugEventsOf(days, sleeps, machine);
  ASSERT_EQ(plugs.size(), 2U);
  EXPECT_TRUE(plugs[1].unnoticed);
  // 10 % of 4427 mAh × 0.963 at what 30 W leave for the battery.
  EXPECT_NEAR(plugs[1].time, 7200 - 660, 30);
  days.trace.sightings[1].percent = 51;
  EXPECT_FALSE(plugEventsOf(days, sleeps, machine)[1].unnoticed);
}

TEST(ReportedPower, worksOutWhenAnAdapterCameWhileNoDaemonRan) {
  ReportedDays days;
  days.trace.sightings = {{.time = 0, .percent = 50, .plugged = false},
                          {.time = 20001, .percent = 60, .plugged = true},
                          {.time = 20300, .percent = 61, .plugged = true}};
  days.trace.lines = {{10, "Signal 15: charging, adapter and LED restored, exiting."},
                      {20000, "brisko-daemon started (event-driven) — …"}};
  const auto machine = virtual_mac::makeMachine(*virtual_mac::findModel("air13"));
  const auto plugs = plugEventsOf(days, {}, machine);
  ASSERT_EQ(plugs.size(), 2U);
  EXPECT_NEAR(plugs[1].time, 20001 - 660, 30)
      << "10 % of 4427 mAh × 0.963 at what 30 W leave for the battery";
  EXPECT_FALSE(plugs[1].unnoticed) << "no sleep, which it would not have ended";
  days.trace.sightings[1].percent = 99;
  const double almostFull = plugEventsOf(days, {}, machine)[1].time;
  days.trace.sightings[1].percent = 100;
  EXPECT_LT(plugEventsOf(days, {}, machine)[1].time, almostFull - 3600)
      << "it has been full for a while before it is seen";
  days.trace.sightings[1].percent = 51;
  EXPECT_EQ(plugEventsOf(days, {}, machine)[1].time, 20001);
}

// A sleeping Mac takes next to nothing, and a dark wake a part of the load.
TEST(ReportedPower, keepsTheLoadOfTheAwakeMacOverSleepAndDarkWakes) {
  ReportedDays days;
  for (const auto& [time, watts] :
       {std::pair{0.0, -8.0}, {120.0, -8.0}, {1003.0, -0.1}, {1130.0, -3.0}, {2130.0, -0.1}, {3003.0, -0.1}})
    days.trace.sightings.push_back({.time = time, .percent = 70, .plugged = false, .watts = watts});
  const std::vector<SleepSpan> sleeps = {{.from = 200, .until = 1000, .endsDark = true, .darkSeconds = 180},
                                         {.from = 1180, .until = 3000}};
  const auto machine = virtual_mac::makeMachine(*virtual_mac::findModel("air13"));
  EXPECT_THAT(textsOf(loadActions(days, {{.time = 0}}, sleeps, machine)),
              ::testing::ElementsAre(R"(0 {"load":8.0})"));
  for (Sighting& sighting : days.trace.sightings) {
    if (sighting.time == 1130) sighting.watts = -9;
  }
  EXPECT_EQ(loadActions(days, {{.time = 0}}, sleeps, machine).size(), 2U) << "it was at least that";
}

// An adapter that gives less than the Mac needs leaves nothing for the empty battery.
TEST(ReportedPower, takesAllOfTheAdapterForAMacWhoseEmptyBatteryDoesNotCharge) {
  const auto machine = virtual_mac::makeMachine(*virtual_mac::findModel("air13"));
  const auto loads = [&](double wattsBefore, std::int64_t percent,
                         const std::vector<SleepSpan>& sleeps = {}) {
    ReportedDays days;
    for (const double time : {0.0, 100.0})
      days.trace.sightings.push_back({.time = time, .percent = 1, .plugged = false, .watts = -wattsBefore});
    for (const double time : {400.0, 700.0, 1000.0})
      days.trace.sightings.push_back({.time = time, .percent = percent, .plugged = true, .watts = 0});
    const std::vector<PlugEvent> plugs = {{.time = 0}, {.time = 300, .plugged = true, .adapterWatts = 30}};
    return textsOf(loadActions(days, plugs, sleeps, machine));
  };
  EXPECT_THAT(loads(20, 0), ::testing::ElementsAre(R"(0 {"load":20.0})", R"(300 {"load":28.2})"));
  EXPECT_THAT(loads(6, 0), ::testing::ElementsAre(R"(0 {"load":6.0})")) << "something else stops the charge";
  EXPECT_THAT(loads(20, 1), ::testing::ElementsAre(R"(0 {"load":20.0})")) << "likewise";
  EXPECT_THAT(loads(6, 0, {{.from = 200, .until = 290}}),
              ::testing::ElementsAre(R"(0 {"load":6.0})", R"(300 {"load":28.2})"))
      << "since it slept, it may work more";
}

TEST(ReportedPower, takesTheLoadFromWhatTheChargerLacks) {
  const auto machine = virtual_mac::makeMachine(*virtual_mac::findModel("pro14"));
  ReportedDays days;
  ChargeState state = ChargeState::allow;
  const auto loads = [&](double watts, double adapterWatts) {
    days.trace.sightings.clear();
    for (const double time : {0.0, 100.0})
      days.trace.sightings.push_back(
          {.time = time, .percent = 40, .state = state, .plugged = true, .watts = watts});
    const std::vector<PlugEvent> plugs = {{.time = 0, .plugged = true, .adapterWatts = adapterWatts}};
    return textsOf(loadActions(days, plugs, {}, machine));
  };
  EXPECT_THAT(loads(75, 96), ::testing::ElementsAre(R"(0 {"load":15.2})")) << "96 W × 0.94 − 75 W";
  EXPECT_TRUE(loads(100, 140).empty()) << "all that it takes";
  state = ChargeState::hold;
  EXPECT_THAT(loads(75, 96), ::testing::ElementsAre(R"(0 {"load":15.2})")) << "the stop has no effect";
  EXPECT_TRUE(loads(4, 96).empty()) << "a trickle";
}

// What the daemon does to the charge changes no load.
TEST(ReportedPower, takesTheLoadBackToWhereTheUseBegan) {
  ReportedDays days;
  days.trace.sightings = {
      {.time = 0, .percent = 90, .state = ChargeState::hold, .plugged = true},
      {.time = 1000, .percent = 90, .state = ChargeState::hold, .plugged = true},
      {.time = 1300, .percent = 88, .state = ChargeState::allow, .plugged = true},
      {.time = 1500, .percent = 87, .state = ChargeState::allow, .plugged = true, .watts = -20}};
  const auto machine = virtual_mac::makeMachine(*virtual_mac::findModel("air13"));
  const std::vector<PlugEvent> plugs = {{.time = 0, .plugged = true, .adapterWatts = 30}};
  EXPECT_THAT(textsOf(loadActions(days, plugs, {{.from = 500, .until = 990}}, machine)),
              ::testing::ElementsAre(R"(990 {"load":48.2})"));
}

TEST(ReportedPower, takesTheLoadFromThePowerOfTheBattery) {
  ReportedDays days;
  for (const auto& [time, watts] : {std::pair{0.0, -5.0}, {100.0, -5.0}, {400.0, -5.04}, {700.0, -9.0}})
    days.trace.sightings.push_back(
        {.time = time, .percent = 70, .plugged = false, .watts = watts, .inHistory = true});
  const auto machine = virtual_mac::makeMachine(*virtual_mac::findModel("air13"));
  const auto actions = loadActions(days, {{.time = 0}}, {}, machine);
  EXPECT_THAT(textsOf(actions), ::testing::ElementsAre(R"(0 {"load":5.0})", R"(510 {"load":9.0})"))
      << "half way between what the gauge published at 360 s and at 660 s";
}

// A history has a line in every minute in which the charge moves, and else few.
TEST(ReportedPower, takesTheMomentOfAnotherLoadFromTheCharge) {
  const auto machine = virtual_mac::makeMachine(*virtual_mac::findModel("air13"));
  const auto moment = [&](std::int64_t percent, double watts) {
    ReportedDays days;
    for (const auto& [time, shown, power] :
         {std::tuple{0.0, std::int64_t{70}, -5.0}, {60.0, 70, -5.0}, {360.0, percent, watts}}) {
      days.trace.sightings.push_back(
          {.time = time, .percent = shown, .plugged = false, .watts = power, .inHistory = true});
    }
    return loadActions(days, {{.time = 0}}, {}, machine).back().time;
  };
  EXPECT_EQ(moment(70, -76), 355) << "just before it shows";
  EXPECT_EQ(moment(40, -76), 60) << "more than it can have moved";
  EXPECT_NEAR(moment(67, -76), 300, 30);
  EXPECT_EQ(moment(70, -9), 210) << "the charge shows nothing: half way";
}

TEST(ReportedPower, lowersTheLoadWhereTheAdapterAloneFeedsTheMac) {
  ReportedDays days;
  for (const auto& [time, watts] : {std::pair{0.0, -20.0}, {100.0, -20.0}, {1000.0, 0.0}, {1300.0, 0.0}}) {
    days.trace.sightings.push_back({.time = time,
                                    .percent = 70,
                                    .state = ChargeState::hold,
                                    .plugged = true,
                                    .watts = watts,
                                    .inHistory = true});
  }
  const auto machine = virtual_mac::makeMachine(*virtual_mac::findModel("air13"));
  // 30 W × 0.94 and 20 W from the battery; then at most 28.2 W in all.
  const std::vector<PlugEvent> plugs = {{.time = 0, .plugged = true, .adapterWatts = 30}};
  EXPECT_THAT(textsOf(loadActions(days, plugs, {}, machine)),
              ::testing::ElementsAre(R"(0 {"load":48.2})", R"(60 {"load":2.8})"))
      << "at once, since the charge has not moved";
}

// What a sample shows is older than itself: here it is from before the adapter came.
TEST(ReportedPower, takesAWeakAdapterFromTheLoadBeforeItCame) {
  auto machine = virtual_mac::makeMachine(*virtual_mac::findModel("pro14"));
  machine.adapter.watts = 96;
  ReportedDays days;
  days.trace.sightings = {{.time = 0, .percent = 32, .plugged = false, .watts = -1},
                          {.time = 85, .percent = 32, .plugged = true, .watts = -9},
                          {.time = 240, .percent = 33, .plugged = true, .watts = 19.2},
                          {.time = 300, .percent = 34, .plugged = true, .watts = 19.2},
                          {.time = 367, .percent = 34, .plugged = false, .watts = 19.2},
                          {.time = 427, .percent = 34, .plugged = false, .watts = -4}};
  const auto plugs = plugEventsOf(days, {}, machine);
  ASSERT_EQ(plugs.size(), 3U);
  EXPECT_NEAR(plugs[1].adapterWatts, 30, 0.05);
  EXPECT_THAT(textsOf(loadActions(days, plugs, {}, machine)),
              ::testing::ElementsAre(R"(0 {"load":9.0})", R"(367 {"load":4.0})"));
  days.trace.sightings[2].watts = 80;
  EXPECT_EQ(plugEventsOf(days, {}, machine)[1].adapterWatts, 96) << "all that the charger takes";
  days.trace.sightings[2].watts = 19.2;
  days.trace.sightings[1].watts = 0;
  EXPECT_EQ(plugEventsOf(days, {}, machine)[1].adapterWatts, 96) << "the load is not known";
}

// As after the user has switched the history off: the summaries have no power.
TEST(ReportedPower, takesTheLoadFromTheChargeWhereTheHistoryIsSilent) {
  const auto machine = virtual_mac::makeMachine(*virtual_mac::findModel("air13"));
  ReportedDays days;
  const auto add = [&](double time, std::int64_t percent, bool plugged) {
    days.trace.sightings.push_back(
        {.time = time, .percent = percent, .state = ChargeState::hold, .plugged = plugged});
  };
  add(0, 70, false);
  for (const double time : {100.0, 400.0, 700.0, 1000.0})
    add(time, days.trace.sightings.back().percent - 1, false);
  const auto drained = loadActions(days, {{.time = 0}}, {}, machine);
  // Two points of 4427 mAh × 0.963 in ten minutes, at 11.9 V.
  EXPECT_THAT(textsOf(drained), ::testing::ElementsAre(R"(0 {"load":6.1})"));

  // The load before a sleep does not outlive it: for ten minutes the adapter alone feeds the Mac.
  days.trace.sightings.clear();
  for (const double time : {0.0, 100.0}) {
    add(time, 72, false);
    days.trace.sightings.back().watts = -47;
  }
  for (double time = 4000; time <= 4700; time += 50) add(time, 72, true);
  const std::vector<PlugEvent> plugs = {{.time = 0}, {.time = 3900, .plugged = true, .adapterWatts = 30}};
  EXPECT_THAT(textsOf(loadActions(days, plugs, {{.from = 1000, .until = 3990}}, machine)),
              ::testing::ElementsAre(R"(0 {"load":47.0})", R"(3990 {"load":2.8})"));
  // … and not where it moved by a point.
  for (std::size_t index = 10; index < days.trace.sightings.size(); ++index)
    days.trace.sightings[index].percent = 71;
  EXPECT_EQ(loadActions(days, plugs, {{.from = 1000, .until = 3990}}, machine).size(), 1U);
}

TEST(ReportedPower, takesNoLoadFromTheLastPointsOfAFullBatteryWhereTheHistoryIsSilent) {
  const auto machine = virtual_mac::makeMachine(*virtual_mac::findModel("air13"));
  ReportedDays days;
  for (const auto& [time, percent] : {std::pair{0.0, 100},
                                      {1500.0, 100},
                                      {3000.0, 99},
                                      {6000.0, 98},
                                      {6300.0, 97},
                                      {6600.0, 96},
                                      {6900.0, 95}})
    days.trace.sightings.push_back({.time = time, .percent = percent, .plugged = false});
  EXPECT_THAT(textsOf(loadActions(days, {{.time = 0}}, {}, machine)),
              ::testing::ElementsAre(R"(0 {"load":6.4})"))
      << "since the beginning";
}

// A battery that was replaced, or a gauge that learned.
TEST(Reconstruct, takesAnotherCapacityAtTheBeginningFromThePowerAndThePercentage) {
  auto members = test::sampleMembers();
  const auto capacityWith = [&](int tenthsOfWatts, bool charges = false) {
    std::string& history = members["history/2026-03-01.jsonl"];
    history.clear();
    for (int sample = 0; sample <= 24; ++sample) {
      const int percent = charges ? 60 + sample / 2 : 80 - sample / 2;
      history += std::string(R"({"g":)") + (charges ? "true" : "false") + R"(,"p":)" +
                 std::to_string(percent) + R"(,"s":"allow","t":)" +
                 std::to_string(1772352001 + 150 * sample) + R"(,"ct":300,"wt":)" +
                 std::to_string(charges ? tenthsOfWatts : -tenthsOfWatts) + "}\n";
    }
    const auto reading = readReport(test::archiveOf(members));
    EXPECT_TRUE(reading.days) << reading.error;
    const Reconstruction reconstruction = reconstruct(*reading.days);
    const std::string text = scenarioFileText(reconstruction, "mine.battery.json");
    const bool isInFile = text.find(R"("health")") != text.npos;
    EXPECT_EQ(isInFile, reconstruction.machine.battery.fullMAh != 6000);
    EXPECT_EQ(isInFile, !reconstruction.assumptions.empty());
    return reconstruction.machine.battery.fullMAh;
  };
  // A point in 300 s at about 12 V: 6000 mAh × 1 % are 0.7 Wh.
  EXPECT_EQ(capacityWith(85), 6000);
  EXPECT_EQ(capacityWith(95), 6000) << "the power is no exact measure";
  EXPECT_NEAR(capacityWith(40), 2900, 200);
  EXPECT_EQ(capacityWith(85, true), 6000);
  EXPECT_NEAR(capacityWith(160, true), 11000, 800) << "a charge shows it too";
}

TEST(Reconstruct, takesTheCapacityFromTheRunOfMostPoints) {
  auto machine = virtual_mac::makeMachine(*virtual_mac::findModel("pro14"));
  ReportedDays days;
  const auto drain = [&](double from, int first, int last, double watts) {
    for (int percent = first; percent >= last; --percent, from += 300) {
      days.trace.sightings.push_back(
          {.time = from, .percent = percent, .plugged = false, .watts = -watts, .inHistory = true});
    }
  };
  drain(0, 80, 50, 4);
  const double alone = capacityAtBeginning(days, machine);
  EXPECT_LT(alone, 0.7);
  drain(20000, 50, 38, 4.5);
  EXPECT_EQ(capacityAtBeginning(days, machine), alone);
  drain(40000, 80, 48, 4.2);
  EXPECT_NEAR(capacityAtBeginning(days, machine) / alone, 1.05, 0.02);
}

TEST(ReportedPower, takesAWeakAdapterFromTheChargeOfASleepingMac) {
  ReportedDays days;
  days.trace.sightings = {{.time = 0, .percent = 20, .plugged = false},
                          {.time = 600, .percent = 20, .plugged = true, .watts = 18.2},
                          {.time = 660, .percent = 21, .plugged = true, .watts = 18.2},
                          {.time = 4000, .percent = 30, .plugged = true, .watts = 28.1},
                          {.time = 4200, .percent = 31, .plugged = true, .watts = 18.2}};
  const std::vector<SleepSpan> sleeps = {{.from = 1000, .until = 3999}};
  auto machine = virtual_mac::makeMachine(*virtual_mac::findModel("pro14"));
  machine.adapter.watts = 96;
  const auto weak = plugEventsOf(days, sleeps, machine);
  ASSERT_EQ(weak.size(), 2U);
  EXPECT_NEAR(weak[1].adapterWatts, 30, 0.05);
  EXPECT_EQ(plugEventsOf(days, {}, machine)[1].adapterWatts, 96) << "the load may be what it lacks";
  days.trace.sightings[3].state = ChargeState::hold;
  EXPECT_NEAR(plugEventsOf(days, sleeps, machine)[1].adapterWatts, 30, 0.05)
      << "the daemon stopped the charge when it woke";
  days.trace.sightings[3].state = ChargeState::allow;
  days.trace.sightings[3].watts = 80;
  EXPECT_EQ(plugEventsOf(days, sleeps, machine)[1].adapterWatts, 96) << "all that the charger takes";
}

// A sleeping battery cools down in its own way, and a dark wake that shows nothing new must not end a pause
// for heat.
TEST(ReportedPower, setsTheTemperatureAtEachWake) {
  ReportedDays days;
  for (const auto& [time, temperature] : {std::pair{0.0, 28.0}, {2003.0, 27.5}, {4003.0, 26.8}})
    days.trace.sightings.push_back(
        {.time = time, .percent = 5, .hot = time < 4000, .temperatureC = temperature});
  const std::vector<SleepSpan> sleeps = {{.from = 100, .until = 2000, .endsDark = true, .darkSeconds = 45},
                                         {.from = 2100, .until = 3000, .endsDark = true, .darkSeconds = 5},
                                         {.from = 3005, .until = 4000}};
  std::vector<std::string> wakes;
  for (const std::string& text : textsOf(temperatureActions(days, sleeps))) {
    if (text.find("000 ") != text.npos) wakes.push_back(text);
  }
  EXPECT_THAT(wakes, ::testing::ElementsAre(R"(2000 {"temperature":27.5})", R"(3000 {"temperature":27.5})",
                                            R"(4000 {"temperature":26.8})"));
}

// The temperature of the virtual battery drifts, which matters where a pause may begin.
TEST(ReportedPower, keepsTheTemperatureWhereItIsNearALimit) {
  ReportedDays days;
  for (const auto& [time, temperature] : {std::pair{0.0, 29.9}, {100.0, 30.0}})
    days.trace.sightings.push_back({.time = time, .percent = 50, .temperatureC = temperature});
  const auto changes = [&](const std::vector<std::int64_t>& limits) {
    std::vector<std::string> texts = textsOf(temperatureActions(days, {}, limits));
    std::erase_if(texts, [](const std::string& text) { return text.find("ambient") != text.npos; });
    return texts;
  };
  EXPECT_THAT(changes({40}), ::testing::ElementsAre(R"(0 {"temperature":29.9})"));
  EXPECT_THAT(changes({40, 30}),
              ::testing::ElementsAre(R"(0 {"temperature":29.9})", R"(24 {"temperature":29.9})",
                                     R"(48 {"temperature":29.9})", R"(72 {"temperature":29.9})",
                                     R"(96 {"temperature":29.9})", R"(100 {"temperature":29.9})"))
      << "it was rounded to the limit, which it had not reached";
  days.trace.sightings.back().hot = true;
  EXPECT_EQ(changes({30}).back(), R"(100 {"temperature":30.0})");
}

TEST(Reconstruct, isAValidScenarioThatGivesTheChargeOnlyOnce) {
  const auto reading = readReport(test::archiveOf(test::sampleMembers()));
  ASSERT_TRUE(reading.days) << reading.error;
  const Reconstruction reconstruction = reconstruct(*reading.days);
  EXPECT_EQ(reconstruction.begin, 1772352000) << "the start of the daemon";
  EXPECT_EQ(reconstruction.machine.battery.fullMAh, 6000);
  const std::string text = scenarioFileText(reconstruction, "mine.battery.json");
  EXPECT_THAT(text, ::testing::HasSubstr(R"("dump":"mine.battery.json")"));
  const std::string charge = R"({"charge":70})";
  const std::size_t first = text.find(charge);
  ASSERT_NE(first, text.npos);
  EXPECT_EQ(text.find("\"charge\"", first + charge.size()), text.npos);
  EXPECT_LT(first, text.find("\"timeline\""));
  Diagnostics diagnostics("a test");
  EXPECT_TRUE(readScenario(scenarioText(reconstruction.scenario), diagnostics))
      << (diagnostics.none() ? "" : diagnostics.texts().front());
}

}  // namespace
}  // namespace brisko::lab::reconstruct_test
