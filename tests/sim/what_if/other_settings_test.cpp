// Days that are played with other settings than theirs.

#include "sim/what_if/other_settings.h"

#include "sim/replay/reported_power.h"
#include "sim/replay/reported_sleep.h"
#include "sim/what_if/prepared_days.h"
#include "support/testing.h"

namespace brisko::lab::other_settings_test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr double hour = 3600;
constexpr double day = 24 * hour;
constexpr double morning = 1772352000;  // 2026-03-01T08:00:00Z

std::vector<std::string> textsOf(const GeneratedScenario& scenario) {
  std::vector<std::string> texts;
  for (const TimedAction& timed : scenario.timedActions)
    texts.push_back(std::to_string(timed.at) + " " + timed.action.dump());
  return texts;
}

TEST(OtherSettings, replaceTheirKeysThroughoutAndLeaveTheOthersAsTheyWere) {
  Reconstruction reconstruction;
  GeneratedScenario& scenario = reconstruction.scenario;
  scenario.settings = ScenarioJson{{"limit", 80}, {"hysteresis", 5}};
  scenario.before = {actionOf("settings", {{"limit", 85}}), "unplug"};
  scenario.timedActions = {{60, actionOf("settings", {{"limit", 90}, {"discharge", true}})},
                           {120, actionOf("settings", {{"limit", 75}})},
                           {180, actionOf("plug", 30)}};
  setThroughout({{"limit", 70}, {"thermal", true}}, reconstruction);
  EXPECT_EQ(scenario.settings->dump(), R"({"limit":70,"hysteresis":5,"thermal":true})");
  EXPECT_THAT(scenario.before, ElementsAre(ScenarioJson("unplug")));
  EXPECT_THAT(textsOf(scenario), ElementsAre(R"(60 {"settings":{"discharge":true}})", R"(180 {"plug":30})"));

  Reconstruction withoutFile;
  setThroughout({{"limit", 70}}, withoutFile);
  EXPECT_EQ(withoutFile.scenario.settings->dump(), R"({"limit":70})");
}

Sighting sample(double time, bool plugged, double watts) {
  return {.time = time,
          .percent = 70,
          .state = plugged ? ChargeState::hold : ChargeState::allow,
          .plugged = plugged,
          .temperatureC = 30,
          .watts = watts,
          .inHistory = true};
}

TEST(LoadByHour, isTheMedianOfThatHourOnTheBattery) {
  Trace trace;
  for (const double watts : {4.0, 9.0, 5.0})
    trace.sightings.push_back(sample(morning + watts, false, -watts));
  trace.sightings.push_back(sample(morning + 30, true, -20));  // an adapter that is too weak
  trace.sightings.push_back(sample(morning + 3 * hour, false, -8));
  trace.sightings.push_back(sample(morning + 4 * hour, false, 0));  // just unplugged
  Sighting discharge = sample(morning + 5 * hour, true, -7);
  discharge.state = ChargeState::discharge;
  trace.sightings.push_back(discharge);
  ::setenv("TZ", "UTC", 1);
  virtual_mac::Machine machine = virtual_mac::makeMachine(assumedModel());
  machine.surroundings.loadWatts = 6.5;
  LoadByHour hours = loadByHour(trace, machine);
  EXPECT_EQ(hours[8], 5);
  EXPECT_EQ(hours[11], 8);
  EXPECT_EQ(hours[13], 7) << "also while the adapter is cut";
  EXPECT_EQ(hours[12], 7) << "the median of all: 4, 5, 7, 8, 9";
  EXPECT_EQ(hours[0], 7);
  trace.sightings.resize(0);
  trace.sightings.push_back(sample(morning, true, 0));
  EXPECT_EQ(loadByHour(trace, machine)[8], 6.5) << "never on the battery";
}

TEST(LoadByHour, isTheLoadWhereTheAdapterHidesIt) {
  ::setenv("TZ", "UTC", 1);
  const virtual_mac::Machine machine = virtual_mac::makeMachine(assumedModel());
  LoadByHour hours{};
  hours[8] = 9;
  hours[9] = 500;  // more than any adapter gives
  ReportedDays days;
  for (const double minutes : {0.0, 10.0, 70.0, 75.0})
    days.trace.sightings.push_back(sample(morning + minutes * 60, true, 0));
  const std::vector<PlugEvent> plugs{{.time = morning, .plugged = true, .adapterWatts = 30}};
  const auto loads = [&](const std::optional<LoadByHour>& byHour) {
    std::vector<double> watts;
    for (const DatedAction& action : loadActions(days, plugs, {}, machine, byHour))
      watts.push_back(action.action.at("load").get<double>());
    return watts;
  };
  const double most = std::round(30 * virtual_mac::adapterShare * 10) / 10;
  EXPECT_THAT(loads(hours), ElementsAre(9, most)) << "as far as the adapter can have given it";
  EXPECT_NE(loads(std::nullopt), loads(hours));
  // On the battery the history shows the load.
  for (Sighting& sighting : days.trace.sightings) {
    sighting.plugged = false;
    sighting.watts = -4;
  }
  EXPECT_THAT(loads(hours), ElementsAre(4));
}

TEST(OwnWakes, areLeftOutAsFarAsTheLogShowsThem) {
  Trace trace;
  trace.lines = {{1000, "réveil programmé dans 60 min pour reprendre la charge en main"}};
  const auto sleepsWith = [&](double wake) {
    return withoutOwnWakes({{.from = 1000, .until = wake, .endsDark = true, .darkSeconds = 30},
                            {.from = wake + 30, .until = 20000}},
                           trace);
  };
  for (const double wake : {4600.0, 4600.0 - 90, 4600.0 + 90}) {
    const auto merged = sleepsWith(wake);
    ASSERT_EQ(merged.size(), 1U) << wake;
    EXPECT_EQ(merged[0].from, 1000);
    EXPECT_EQ(merged[0].until, 20000);
    EXPECT_FALSE(merged[0].endsDark);
  }
  for (const double wake : {4600.0 - 91, 4600.0 + 91}) EXPECT_EQ(sleepsWith(wake).size(), 2U) << wake;
  // Somebody opened the Mac at that time.
  EXPECT_EQ(withoutOwnWakes({{.from = 1000, .until = 4600}, {.from = 9000, .until = 20000}}, trace).size(),
            2U);
}

// A sample at the same time of so many days.
ReportedDays sampledDays(int count) {
  ReportedDays days;
  for (int number = 0; number < count; ++number)
    days.trace.sightings.push_back(sample(morning + number * day, true, 0));
  return days;
}

TEST(PreparedDays, areRefusedIfTheyAreTooFew) {
  EXPECT_EQ(whyTooFew(sampledDays(3).trace), "");
  EXPECT_EQ(whyTooFew(sampledDays(2).trace),
            "the history has only 2 days of those asked for; at least 3 are needed");
  EXPECT_EQ(whyTooFew(sampledDays(1).trace),
            "the history has only 1 day of those asked for; at least 3 are needed");
}

TEST(PreparedDays, nameWhatTheHistoryDoesNotShow) {
  ::setenv("TZ", "UTC", 1);
  ReportedDays days = sampledDays(5);
  EXPECT_THAT(prepare(days).assumptions, Contains(HasSubstr("never ran on its battery")));
  days.trace.sightings[1].plugged = false;
  days.trace.sightings[1].watts = -5;
  days.trace.lines = {{morning + day + 1, "a line"}};
  days.brokenLines = 1;
  auto assumptions = prepare(days).assumptions;
  EXPECT_THAT(assumptions, Contains(HasSubstr("on battery at the same hour of the day")));
  EXPECT_THAT(assumptions, Contains(HasSubstr("The log begins on 2 March 2026")));
  EXPECT_THAT(assumptions, Contains("1 line that is broken is left out."));
  EXPECT_THAT(assumptions, ::testing::Not(Contains(HasSubstr("temperature"))));
  days.trace.lines[0].time = morning + day;
  for (Sighting& sighting : days.trace.sightings) sighting.temperatureC.reset();
  assumptions = prepare(days).assumptions;
  EXPECT_THAT(assumptions, ::testing::Not(Contains(HasSubstr("The log begins"))));
  EXPECT_THAT(assumptions, Contains("The battery's temperature was not recorded."));
}

}  // namespace
}  // namespace brisko::lab::other_settings_test
