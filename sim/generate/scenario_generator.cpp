#include "sim/generate/scenario_generator.h"

#include <array>
#include <string>
#include <utility>

#include "sim/generate/fault_generator.h"
#include "sim/generate/night_generator.h"
#include "sim/generate/user_generator.h"

// No two random numbers may be drawn in the arguments of one call: compilers differ in the order in which
// they evaluate them.

namespace brisko::lab {
namespace {

// The same seed gives the same Mac and the same user, whatever faults are generated for them.
constexpr std::uint64_t macStream = 1;
constexpr std::uint64_t userStream = 2;
constexpr std::uint64_t faultStream = 3;
constexpr std::uint64_t nightStream = 4;

struct Model {
  const char* name;
  const char* charge;
  const char* cut;
};
constexpr std::array models{Model{"air13", "chte", "chie"}, Model{"pro14", "ch0b0c", "ch0i"},
                            Model{"pro16", "firmware-band", "ch0j"}};

std::string twoDigits(std::int64_t number) { return (number < 10 ? "0" : "") + std::to_string(number); }

struct GeneratedMac {
  ScenarioJson words = ScenarioJson::object();
  MacTraits traits = {};
  std::int64_t clock = 0;  // at the beginning, seconds since midnight
};

void chooseKeys(GeneratedMac& mac, Rng& rng) {
  const Model model = rng.oneOf(models);
  mac.words["model"] = model.name;
  mac.traits = {.charge = model.charge, .cut = model.cut};
  if (rng.oneIn(4)) {
    mac.traits.charge = rng.oneOf(std::array{"chte", "ch0b0c", "firmware-band"});
    mac.words["gate"] = mac.traits.charge;
  }
  if (rng.oneIn(4)) {
    mac.traits.cut = rng.oneOf(std::array{"chie", "ch0i", "ch0j", "none"});
    mac.words["cut"] = mac.traits.cut;
  }
  if (rng.oneIn(5)) mac.words["light"] = rng.oneIn(2);
}

void chooseSystem(GeneratedMac& mac, Rng& rng) {
  mac.traits.macOS = rng.oneOf(std::array{15, 15, 26, 26, 26, 27, 27});
  if (rng.oneIn(8)) mac.traits.macOS = rng.between(15, 27);
  mac.words["macOS"] = mac.traits.macOS;
  const bool limit = !rng.oneIn(5);
  if (mac.traits.macOS >= 26 && !limit) mac.words["chargeLimit"] = false;
  // A Mac without any charge key can be held only by macOS's own limit.
  if (mac.traits.macOS >= 26 && limit && rng.oneIn(8)) {
    mac.traits.charge = "none";
    mac.words["gate"] = "none";
  }
}

GeneratedMac makeMac(Rng& rng) {
  GeneratedMac mac;
  chooseKeys(mac, rng);
  chooseSystem(mac, rng);
  mac.words["percent"] = rng.oneIn(6) ? rng.between(0, 100) : rng.between(35, 95);
  mac.words["plugged"] = rng.percent(65);
  mac.words["uptime"] = rng.oneOf(std::array{20, 90, 600, 3600, 86400, 2000000});
  const std::int64_t month = rng.between(1, 12);
  const std::int64_t day = rng.between(1, 28);
  const std::int64_t hour = rng.between(0, 23);
  const std::int64_t minute = rng.between(0, 59);
  mac.clock = hour * 3600 + minute * 60;
  mac.words["start"] =
      "2026-" + twoDigits(month) + "-" + twoDigits(day) + " " + twoDigits(hour) + ":" + twoDigits(minute);
  return mac;
}

ScenarioJson makeDaemon(Rng& rng) {
  ScenarioJson arguments = ScenarioJson::array();
  if (rng.percent(70)) arguments.insert(arguments.end(), {"--app", "/Applications/Brisko.app"});
  if (rng.oneIn(6)) arguments.insert(arguments.end(), {"--limit", std::to_string(rng.between(20, 100))});
  if (rng.oneIn(8)) arguments.insert(arguments.end(), {"--lower", std::to_string(rng.between(20, 90))});
  ScenarioJson daemon = ScenarioJson::object();
  if (!arguments.empty()) daemon["arguments"] = arguments;
  return daemon;
}

// No random number is drawn for it, so the same seed is the same Mac and user with and without guards.
void addGuard(const std::string& guard, ScenarioJson& daemon) {
  ScenarioJson& arguments = daemon["arguments"];
  if (arguments.is_null()) arguments = ScenarioJson::array();
  arguments.insert(arguments.end(), {"--guard", guard});
}

void addFaults(const GeneratedMac& mac, Faults faults, std::uint64_t seed, GeneratedScenario& scenario,
               Timeline& timeline) {
  if (faults == Faults::none) return;
  Rng rng(seed, faultStream);
  for (ScenarioJson& quirk : randomQuirks(rng)) scenario.before.push_back(std::move(quirk));
  const ScenarioJson settings = scenario.settings.value_or(randomSettings(rng));
  if (faults == Faults::some) return addCommonFaults(mac.traits, settings, rng, timeline);
  if (rng.oneIn(15)) scenario.settings = oddSettings(rng);
  if (rng.oneIn(30)) scenario.daemon["environment"] = {{"BRISKO_PRETEND_MACOS", "27"}};
  if (rng.oneIn(40)) scenario.daemon["environment"] = {{"BRISKO_PRETEND_NO_NATIVE", "1"}};
  addAllFaults(mac.traits, settings, rng, timeline);
}

}  // namespace

std::string_view nameOf(Faults faults) {
  constexpr std::array<std::string_view, 3> names{"none", "some", "all"};
  return names[static_cast<std::size_t>(faults)];
}

std::span<const std::string_view> everydayActions() {
  static constexpr std::array<std::string_view, 20> names{"plug",
                                                          "unplug",
                                                          "load",
                                                          "ambient",
                                                          "close-lid",
                                                          "open-lid",
                                                          "sleep",
                                                          "idle-sleep",
                                                          "wake",
                                                          "limit",
                                                          "charge-to-full",
                                                          "terminate",
                                                          "scheduled-wakes",
                                                          "battery-wakes",
                                                          "adapter-wakes",
                                                          "cut-keeps-external",
                                                          "late-capabilities",
                                                          "quiet-nights",
                                                          "upkeep-nights",
                                                          "busy-nights"};
  return names;
}

GeneratedScenario generateScenario(std::uint64_t seed, std::int64_t days, Faults faults,
                                   const std::string& guard) {
  GeneratedScenario scenario{.seconds = days * secondsOfDay};
  Rng macRng(seed, macStream);
  const GeneratedMac mac = makeMac(macRng);
  scenario.mac = mac.words;
  Rng nightRng(seed, nightStream);
  scenario.before = randomNights(nightRng);
  Timeline timeline(mac.clock, scenario.seconds);

  Rng userRng(seed, userStream);
  const Habits habits = randomHabits(userRng);
  const ScenarioJson settings = randomSettings(userRng);
  if (!userRng.oneIn(15)) scenario.settings = settings;
  scenario.daemon = makeDaemon(userRng);
  if (!guard.empty()) addGuard(guard, scenario.daemon);
  addUserActions(days, habits, settings, userRng, timeline);

  addFaults(mac, faults, seed, scenario, timeline);
  scenario.timedActions = timeline.takeAll();
  scenario.description = "Seed " + std::to_string(seed) + ", " + std::to_string(days) +
                         (days == 1 ? " day" : " days") + ", faults " + std::string(nameOf(faults)) + ": " +
                         habits.name + ".";
  return scenario;
}

}  // namespace brisko::lab
