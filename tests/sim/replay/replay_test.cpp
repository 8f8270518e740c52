// A report is replayed as it was, and less so when something of it is wrong.

#include <functional>

#include "replay_proof/generated_report.h"
#include "sim/replay/comparison.h"
#include "sim/replay/play.h"
#include "sim/replay/reported_days.h"
#include "support/testing.h"

namespace brisko::lab::replay_test {
namespace {

// Two days of a Mac that is used on the battery, is charged to its limit, and sleeps.
GeneratedScenario twoDays() {
  constexpr std::int64_t hour = 3600;
  GeneratedScenario scenario{.description = "Two days.", .seconds = 48 * hour};
  scenario.mac = {
      {"model", "pro14"}, {"macOS", 26}, {"percent", 70}, {"plugged", true}, {"start", "2026-03-01 08:00"}};
  scenario.settings = ScenarioJson{{"limit", 80}, {"hysteresis", 5}};
  for (std::int64_t day = 0; day < 2; ++day) {
    const std::int64_t begin = day * 24 * hour;
    const auto add = [&](std::int64_t at, ScenarioJson action) {
      scenario.timedActions.push_back({begin + at, std::move(action)});
    };
    add(1 * hour, actionOf("load", 11));
    add(2 * hour, "unplug");
    add(3 * hour, actionOf("load", 7));
    add(5 * hour, "plug");
    add(8 * hour, "unplug");
    add(9 * hour, "plug");
    add(12 * hour, actionOf("settings", {{"limit", day == 0 ? 60 : 90}, {"discharge", true}}));
    add(16 * hour, "close-lid");
    add(23 * hour, "open-lid");
  }
  return scenario;
}

struct Figures {
  double hold, allow, discharge, charge;
  bool departs;
};

Figures figuresOf(const ReportedDays& days, const Reconstruction& reconstruction) {
  const Comparison comparison = compare(days.trace, play(reconstruction));
  const auto share = [&](ChargeState state) {
    return comparison.states[static_cast<std::size_t>(state)].share();
  };
  return {share(ChargeState::hold), share(ChargeState::allow), share(ChargeState::discharge),
          comparison.chargeShare(), !comparison.departures.empty()};
}

// Removes the actions of this name but the first ones.
void removeActions(GeneratedScenario& scenario, const std::string& name, std::size_t kept) {
  std::erase_if(scenario.timedActions, [&](const TimedAction& action) {
    const bool matches = action.action.is_object() ? action.action.contains(name) : action.action == name;
    return matches && (kept == 0 || kept-- == 0);
  });
}

TEST(Replay, agreesWithItsReportAndLessSoWhenTheCapacityTheAdapterOrTheSettingsAreWrong) {
  const auto report = proof::reportOf(twoDays(), {});
  ASSERT_EQ(report.failure, "");
  const ReportReading reading = readReport(report.archive);
  ASSERT_TRUE(reading.days) << reading.error;
  const ReportedDays& days = *reading.days;
  const Reconstruction right = reconstruct(days);

  const Figures figures = figuresOf(days, right);
  EXPECT_GE(figures.hold, 0.97);
  EXPECT_GE(figures.allow, 0.97);
  EXPECT_GE(figures.discharge, 0.97);
  EXPECT_GE(figures.charge, 0.95);
  EXPECT_FALSE(figures.departs);

  Reconstruction wrong = right;
  wrong.machine.battery.fullMAh *= 0.6;
  wrong.machine.battery.chargeMAh *= 0.6;
  const Figures smaller = figuresOf(days, wrong);
  EXPECT_LT(smaller.charge, 0.95);
  EXPECT_TRUE(smaller.departs);

  wrong = right;
  removeActions(wrong.scenario, "unplug", 0);
  const Figures plugged = figuresOf(days, wrong);
  EXPECT_LT(plugged.charge, 0.95);
  EXPECT_LT(plugged.allow, 0.97);
  EXPECT_TRUE(plugged.departs);

  wrong = right;
  removeActions(wrong.scenario, "settings", 0);
  const Figures unset = figuresOf(days, wrong);
  EXPECT_LT(unset.charge, 0.95);
  EXPECT_LT(unset.discharge, 0.5);
  EXPECT_TRUE(unset.departs);
}

}  // namespace
}  // namespace brisko::lab::replay_test
