// Reducing a scenario to the relevant steps.

#include "sim/generate/shrink.h"

#include <algorithm>
#include <string>

#include "support/testing.h"

namespace brisko::lab::shrink_test {
namespace {

using namespace test;

// A scenario of a hundred timed actions, an hour apart, named by their numbers.
GeneratedScenario longScenario() {
  GeneratedScenario scenario{.description = "Long.", .seconds = 101 * 3600};
  scenario.mac = {{"model", "pro14"}, {"percent", 42}};
  scenario.daemon = {{"arguments", {"--limit", "70"}}};
  scenario.settings = {{"limit", 80}, {"discharge", true}};
  scenario.before = {"light-taken"};
  for (int number = 1; number <= 100; ++number)
    scenario.timedActions.push_back({number * 3600, std::to_string(number)});
  return scenario;
}

std::vector<std::string> namesIn(const GeneratedScenario& scenario) {
  std::vector<std::string> names;
  for (const TimedAction& timedAction : scenario.timedActions)
    names.push_back(timedAction.action.get<std::string>());
  return names;
}

bool has(const GeneratedScenario& scenario, const std::string& name) {
  const auto names = namesIn(scenario);
  return std::find(names.begin(), names.end(), name) != names.end();
}

std::int64_t timeOf(const GeneratedScenario& scenario, const std::string& name) {
  for (const TimedAction& timedAction : scenario.timedActions) {
    if (timedAction.action == name) return timedAction.at;
  }
  return -1;
}

// Fails at the time that `when` returns, or passes if that is negative.
using When = std::function<double(const GeneratedScenario&)>;

TryOut tryOutOf(const When& when, std::size_t* most = nullptr) {
  return [when, most](const std::vector<GeneratedScenario>& candidates) -> std::optional<StillFailing> {
    if (most != nullptr) *most = std::max(*most, candidates.size());
    for (std::size_t index = 0; index < candidates.size(); ++index) {
      const double seconds = when(candidates[index]);
      if (seconds >= 0 && seconds <= static_cast<double>(candidates[index].seconds))
        return StillFailing{index, seconds};
    }
    return std::nullopt;
  };
}

Shrunk shrunkWith(const When& when, const ShrinkBounds& bounds = {}) {
  const GeneratedScenario scenario = longScenario();
  return shrink(scenario, when(scenario), bounds, tryOutOf(when));
}

TEST(Shrinking, keepsTheRelevantActionsInOrder) {
  const Shrunk shrunk = shrunkWith([](const GeneratedScenario& scenario) {
    return has(scenario, "17") && has(scenario, "58") ? static_cast<double>(timeOf(scenario, "58")) + 5
                                                      : -1.0;
  });
  EXPECT_THAT(namesIn(shrunk.scenario), ElementsAre("17", "58"));
  EXPECT_LT(shrunk.tries, 200U);
}

TEST(Shrinking, keepsNothingIfNothingIsRelevant) {
  const Shrunk shrunk = shrunkWith([](const GeneratedScenario&) { return 10.0; });
  EXPECT_THAT(namesIn(shrunk.scenario), IsEmpty());
  EXPECT_THAT(shrunk.scenario.seconds, Le(80));
}

TEST(Shrinking, endsSoonAfterTheFailure) {
  const Shrunk shrunk = shrunkWith([](const GeneratedScenario& scenario) {
    return has(scenario, "30") ? static_cast<double>(timeOf(scenario, "30")) + 7200 : -1.0;
  });
  EXPECT_EQ(namesIn(shrunk.scenario), std::vector<std::string>{"30"});
  EXPECT_LE(shrunk.scenario.seconds, timeOf(shrunk.scenario, "30") + 7300);
}

TEST(Shrinking, keepsRelevantTimes) {
  // The two must be two hours apart.
  const Shrunk shrunk = shrunkWith([](const GeneratedScenario& scenario) {
    const std::int64_t pause = timeOf(scenario, "40") - timeOf(scenario, "20");
    return has(scenario, "20") && has(scenario, "40") && pause >= 7200
               ? static_cast<double>(timeOf(scenario, "40"))
               : -1.0;
  });
  EXPECT_THAT(namesIn(shrunk.scenario), ElementsAre("20", "40"));
  EXPECT_EQ(timeOf(shrunk.scenario, "20"), 60);
  EXPECT_EQ(timeOf(shrunk.scenario, "40"), 60 + 7200);
}

TEST(Shrinking, resetsTheMacAndTheSettingsToTheDefaults) {
  const Shrunk shrunk = shrunkWith([](const GeneratedScenario& scenario) {
    return scenario.settings && scenario.settings->contains("discharge") ? 100.0 : -1.0;
  });
  EXPECT_EQ(shrunk.scenario.settings, (ScenarioJson{{"discharge", true}}));
  EXPECT_TRUE(shrunk.scenario.mac.empty());
  EXPECT_TRUE(shrunk.scenario.daemon.empty());
  EXPECT_TRUE(shrunk.scenario.before.empty());
}

TEST(Shrinking, continuesOnlyWithFailingScenarios) {
  const auto when = [](const GeneratedScenario& scenario) {
    return scenario.timedActions.size() % 7 == 2 ? 360000.0 : -1.0;
  };
  const GeneratedScenario scenario = longScenario();
  const Shrunk shrunk = shrink(scenario, 360000.0, {}, tryOutOf(when));
  EXPECT_EQ(shrunk.scenario.timedActions.size() % 7, 2U);
}

TEST(Shrinking, limitsItsAttempts) {
  const Shrunk shrunk = shrunkWith(
      [](const GeneratedScenario& scenario) { return scenario.timedActions.size() > 49 ? 360000.0 : -1.0; },
      {.tries = 20, .atOnce = 1});
  EXPECT_LE(shrunk.tries, 20U);
  EXPECT_GT(shrunk.scenario.timedActions.size(), 49U);
}

TEST(Shrinking, runsNoMoreAttemptsAtOnceThanAllowed) {
  std::size_t most = 0;
  const When when = [](const GeneratedScenario& scenario) { return has(scenario, "50") ? 180001.0 : -1.0; };
  static_cast<void>(shrink(longScenario(), 180001.0, {.atOnce = 3}, tryOutOf(when, &most)));
  EXPECT_EQ(most, 3U);
}

}  // namespace
}  // namespace brisko::lab::shrink_test
