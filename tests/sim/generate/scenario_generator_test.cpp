// Generated scenarios: the same everywhere, valid, and with every action.

#include "sim/generate/scenario_generator.h"

#include <algorithm>
#include <set>
#include <string>

#include "sim/machine/faults.h"
#include "sim/scenario/scenario.h"
#include "support/testing.h"

namespace brisko::lab::scenario_generator_test {
namespace {

using namespace test;

std::string textOf(std::uint64_t seed, std::int64_t days, Faults faults) {
  return scenarioText(generateScenario(seed, days, faults));
}

// FNV-1a
std::uint64_t hashOf(const std::string& text) {
  std::uint64_t hash = 0xcbf29ce484222325U;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3U;
  return hash;
}

std::string nameOfAction(const ScenarioJson& action) {
  return action.is_string() ? action.get<std::string>() : action.begin().key();
}

std::set<std::string> actionsOf(const GeneratedScenario& scenario) {
  std::set<std::string> names;
  for (const ScenarioJson& action : scenario.before) names.insert(nameOfAction(action));
  for (const TimedAction& timedAction : scenario.timedActions) names.insert(nameOfAction(timedAction.action));
  return names;
}

std::vector<std::string> diagnosticsFor(const GeneratedScenario& scenario) {
  Diagnostics diagnostics("description");
  static_cast<void>(readScenario(scenarioText(scenario), diagnostics));
  return diagnostics.texts();
}

// --- The same everywhere

TEST(ScenarioGenerator, generatesTheSameBytesInEveryRunWithEveryCompiler) {
  EXPECT_THAT(textOf(17, 1, Faults::none), StartsWith(R"({
  "description": "Seed 17, 1 day, faults none: a student.",
  "mode": "invariants",
  "mac": {"model":"pro16","gate":"firmware-band","cut":"ch0i","macOS":26,"chargeLimit":false,"percent":81,"plugged":true,"uptime":2000000,"start":"2026-08-11 15:06"},
  "daemon": {"arguments":["--app","/Applications/Brisko.app"]},
  "settings": {"enabled":true,"limit":80,"discharge":false,"led":true,"blinkSeconds":2.0,"thermal":true,"thermalLimit":31,"topUp":false,"topUpHours":0,"hysteresis":5,"history":true,"historyDays":365,"calibrate":false,"calDrain":15,"calSoakMinutes":60,"resetStats":false},
  "before": [{"scheduled-wakes":0},"quiet-nights",{"battery-wakes":40},{"adapter-wakes":1},{"cut-keeps-external":1},{"late-capabilities":0}],
  "timeline": [
    {"at":"+37 min 57 s","do":{"load":9}},
    {"at":"+50 min 9 s","do":"close-lid"},
    {"at":"+18 min 6 s","do":"open-lid"},
    {"at":"+1 min","do":"plug"},)"));
  std::uint64_t all = 0;
  for (std::uint64_t seed = 1; seed <= 40; ++seed) {
    for (const Faults faults : {Faults::none, Faults::some, Faults::all}) {
      all = all * 31 + hashOf(textOf(seed, 14, faults));
    }
  }
  EXPECT_EQ(all, 7084065150155899172U)
      << "scenarios are generated differently than before: every seed now means something else";
}

TEST(ScenarioGenerator, differsFromSeedToSeed) {
  std::set<std::string> texts;
  for (std::uint64_t seed = 1; seed <= 50; ++seed) texts.insert(textOf(seed, 1, Faults::none));
  EXPECT_EQ(texts.size(), 50U);
}

TEST(ScenarioGenerator, hasTheSameMacAndUserWithAnyFaults) {
  const GeneratedScenario calm = generateScenario(5, 10, Faults::none);
  const GeneratedScenario withFaults = generateScenario(5, 10, Faults::all);
  EXPECT_EQ(calm.mac, withFaults.mac);
  EXPECT_GT(withFaults.timedActions.size(), calm.timedActions.size());
  for (const TimedAction& timedAction : calm.timedActions) {
    EXPECT_TRUE(std::any_of(
        withFaults.timedActions.begin(), withFaults.timedActions.end(),
        [&](const TimedAction& one) { return one.at == timedAction.at && one.action == timedAction.action; }))
        << timedAction.action;
  }
}

// --- Valid

TEST(ScenarioGenerator, generatesValidScenarios) {
  for (std::uint64_t seed = 1; seed <= 1000; ++seed) {
    ASSERT_THAT(diagnosticsFor(generateScenario(seed, 1, Faults::all)), IsEmpty()) << "seed " << seed;
  }
}

TEST(ScenarioGenerator, generatesATimelineInOrder) {
  for (std::uint64_t seed = 1; seed <= 50; ++seed) {
    const GeneratedScenario scenario = generateScenario(seed, 7, Faults::all);
    std::int64_t now = 0;
    for (const TimedAction& timedAction : scenario.timedActions) {
      EXPECT_GE(timedAction.at, now);
      now = timedAction.at;
    }
    EXPECT_LE(now, scenario.seconds);
    EXPECT_EQ(scenario.seconds, 7 * 86400);
  }
}

// --- What happens

TEST(ScenarioGenerator, usesEveryFaultOfTheList) {
  std::set<std::string> happened;
  for (std::uint64_t seed = 1; seed <= 150; ++seed) {
    happened.merge(actionsOf(generateScenario(seed, 30, Faults::all)));
  }
  for (const virtual_mac::Fault& fault : virtual_mac::faults()) {
    EXPECT_THAT(happened, Contains(std::string(fault.name)));
  }
  for (const std::string& name : ownActionNames()) {
    // A daemon that is always restarted is never started by an action.
    if (name != "start") {
      EXPECT_THAT(happened, Contains(name));
    }
  }
}

TEST(ScenarioGenerator, keepsNumbersInTheirRanges) {
  // Other numbers would be rejected; this test covers those that are drawn rarely.
  for (std::uint64_t seed = 1001; seed <= 1020; ++seed) {
    EXPECT_THAT(diagnosticsFor(generateScenario(seed, 30, Faults::all)), IsEmpty()) << "seed " << seed;
  }
}

TEST(ScenarioGenerator, generatesOnlyEverydayActionsWithoutFaults) {
  std::set<std::string> daily(everydayActions().begin(), everydayActions().end());
  for (const char* own : {"settings", "settings-replaced", "settings-file", "ask", "app-deleted", "app-moved",
                          "app-restored", "shutdown", "boot", "load", "unload"}) {
    daily.insert(own);
  }
  for (std::uint64_t seed = 1; seed <= 150; ++seed) {
    for (const std::string& name : actionsOf(generateScenario(seed, 30, Faults::none))) {
      EXPECT_THAT(daily, Contains(name)) << "seed " << seed;
    }
  }
}

TEST(ScenarioGenerator, generatesFewerFaultsWithSomeThanWithAll) {
  std::size_t some = 0;
  std::size_t all = 0;
  for (std::uint64_t seed = 1; seed <= 50; ++seed) {
    const std::size_t none = generateScenario(seed, 30, Faults::none).timedActions.size();
    some += generateScenario(seed, 30, Faults::some).timedActions.size() - none;
    all += generateScenario(seed, 30, Faults::all).timedActions.size() - none;
  }
  EXPECT_GT(some, 50U * 3);
  EXPECT_GT(all, 3 * some);
}

TEST(ScenarioGenerator, describesItsSeedDaysAndFaultsInASentence) {
  EXPECT_THAT(generateScenario(17, 30, Faults::some).description,
              StartsWith("Seed 17, 30 days, faults some: a"));
}

TEST(ScenarioGenerator, passesGuardsOnToTheSameMacAndUser) {
  const GeneratedScenario without = generateScenario(5, 10, Faults::all);
  GeneratedScenario with = generateScenario(5, 10, Faults::all, "night,menu");
  ScenarioJson& arguments = with.daemon["arguments"];
  ASSERT_GE(arguments.size(), 2U);
  EXPECT_EQ(arguments[arguments.size() - 2], "--guard");
  EXPECT_EQ(arguments.back(), "night,menu");
  arguments.erase(arguments.size() - 1);
  arguments.erase(arguments.size() - 1);
  if (arguments.empty()) with.daemon.erase("arguments");
  EXPECT_EQ(scenarioText(with), scenarioText(without));
}

}  // namespace
}  // namespace brisko::lab::scenario_generator_test
