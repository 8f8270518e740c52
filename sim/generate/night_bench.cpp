#include "sim/generate/night_bench.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

#include "base/options.h"
#include "hardware/scheduled_wake.h"
#include "sim/generate/rng.h"
#include "sim/invariants/invariant_checker.h"
#include "sim/machine/faults.h"
#include "sim/machine/models.h"
#include "sim/scenario/checked_simulation.h"

namespace brisko::lab {
namespace {

using virtual_mac::ChangeKind;

constexpr std::uint64_t benchStream = 5;
constexpr double hourSeconds = 3600;
constexpr double dusk = 1772398800;                // 2026-03-01 21:00:00 UTC
constexpr double seven = dusk + 10 * hourSeconds;  // in the morning
constexpr double bandWidth = 5;                    // the default

// Adapters that come with the model or are often used with it.
std::vector<double> adaptersOf(const std::string& model) {
  if (model == "air13") return {30, 35, 67};
  if (model == "pro14") return {30, 67, 96};
  return {45, 67, 140};
}

std::string textOf(const char* form, double number) {
  std::array<char, 32> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), form, number));
  return text.data();
}

// ---------------------------------------------------------------------------------------------------------
// One night

virtual_mac::Machine machineFor(const NightPlan& plan) {
  const bool plugged = plan.bedtime == Bedtime::onAdapter;
  virtual_mac::Machine machine =
      virtual_mac::makeMachine(*virtual_mac::findModel(plan.model),
                               {.startTime = dusk, .percent = plan.percentAtDusk, .plugged = plugged});
  machine.adapter.watts = plan.adapterWatts;
  virtual_mac::apply(machine, virtual_mac::findFault(plan.nights)->change);
  for (const auto& [kind, number] : {std::pair{ChangeKind::scheduledWakes, plan.promoted ? 1.0 : 0.0},
                                     std::pair{ChangeKind::adapterWakes, plan.adapterWakes ? 1.0 : 0.0},
                                     std::pair{ChangeKind::batteryWakes, plan.batteryWakeSeconds}}) {
    virtual_mac::apply(machine, {.kind = kind, .number = number});
  }
  return machine;
}

// Asleep on its adapter, with nothing that stops charging.
double percentWithoutLimit(const NightPlan& plan, const virtual_mac::Machine& atBedtime) {
  virtual_mac::Machine machine = virtual_mac::makeMachine(
      *virtual_mac::findModel(plan.model),
      {.startTime = atBedtime.now, .percent = virtual_mac::level(atBedtime), .plugged = true});
  machine.adapter.watts = plan.adapterWatts;
  virtual_mac::apply(machine, {.kind = ChangeKind::closeLid});
  virtual_mac::advance(machine, seven);
  return virtual_mac::level(machine);
}

// Sleeps on battery until it is plugged in. Returns what the daemon's wakes cost meanwhile, in points.
double sleepOnBattery(double seconds, CheckedSimulation& simulation) {
  constexpr double fallsAsleep = 30;  // seconds
  simulation.pass(fallsAsleep);
  virtual_mac::Machine undisturbed = simulation.machine();
  const auto unwritten = std::make_unique<virtual_mac::Journal>();
  for (const double date : simulation.pendingWakes())
    virtual_mac::cancelEvent(undisturbed, *unwritten, date, wakeEventID, wakeEventType);
  simulation.pass(seconds - fallsAsleep);
  virtual_mac::advance(undisturbed, simulation.machine().now);
  return std::max(0.0, virtual_mac::level(undisturbed) - virtual_mac::level(simulation.machine()));
}

// The scheduled wakes that came: neither cancelled in time nor still to come.
std::uint64_t wakesThatCame(const CheckedSimulation& simulation) {
  std::uint64_t count = 0;
  for (const virtual_mac::JournalEntry& entry : simulation.entriesSinceCheckpoint()) {
    if (entry.status != 0) continue;
    double date = 0;
    std::memcpy(&date, entry.bytes.data(), sizeof date);
    if (entry.command == virtual_mac::journalScheduled) ++count;
    if (entry.command == virtual_mac::journalCancelled && date > entry.time) --count;
  }
  return count - simulation.pendingWakes().size();
}

// Returns the points that were lost on battery to scheduled wakes.
double goToBed(const NightPlan& plan, CheckedSimulation& simulation) {
  const auto plug = [&] { simulation.change({.kind = ChangeKind::plug, .number = plan.adapterWatts}); };
  const auto closeLid = [&] {
    simulation.setCheckpoint();
    simulation.change({.kind = ChangeKind::closeLid});
  };
  simulation.pass(plan.usedSeconds);
  if (plan.bedtime == Bedtime::pluggedIn) {
    plug();
    simulation.pass(plan.pluggedAfter);
  }
  closeLid();
  if (plan.bedtime != Bedtime::pluggedAsleep) return 0;
  const double lost = sleepOnBattery(plan.pluggedAfter, simulation);
  plug();
  return lost;
}

// ---------------------------------------------------------------------------------------------------------
// Many nights

// The value that this share of them, in order, does not exceed.
double quantile(std::vector<double> values, double share) {
  std::sort(values.begin(), values.end());
  const double place = std::ceil(share * static_cast<double>(values.size())) - 1;
  return values[static_cast<std::size_t>(std::max(place, 0.0))];
}

std::vector<double> valuesOf(const std::vector<const Night*>& nights,
                             const std::function<double(const NightResult&)>& value) {
  std::vector<double> values;
  for (const Night* night : nights) values.push_back(value(night->result));
  return values;
}

std::string line(const std::string& name, const std::vector<const Night*>& nights) {
  const auto atSeven = valuesOf(nights, [](const NightResult& result) { return result.percentAtSeven; });
  const auto above = valuesOf(nights, [](const NightResult& result) { return result.above; });
  const auto below = valuesOf(nights, [](const NightResult& result) { return result.below; });
  const auto wakes =
      valuesOf(nights, [](const NightResult& result) { return static_cast<double>(result.wakes); });
  const auto shortOfBand =
      std::count_if(below.begin(), below.end(), [](double points) { return points > 0; });
  std::string text = "| " + name + " | " + std::to_string(nights.size());
  for (const double share : {0.5, 0.0, 1.0}) text += " | " + textOf("%.1f", quantile(atSeven, share));
  for (const double share : {0.5, 0.99, 1.0}) text += " | " + textOf("%.1f", quantile(above, share));
  text += " | " + std::to_string(shortOfBand) + " | " + textOf("%.1f", quantile(below, 1));
  for (const double share : {0.5, 1.0}) text += " | " + textOf("%.0f", quantile(wakes, share));
  return text + " |\n";
}

using Results = std::vector<const NightResult*>;

std::size_t countOf(const Results& results, const std::function<bool(const NightResult&)>& applies) {
  return static_cast<std::size_t>(std::count_if(results.begin(), results.end(),
                                                [&](const NightResult* result) { return applies(*result); }));
}

double mostOf(const Results& results, const std::function<double(const NightResult&)>& value) {
  double most = 0;
  for (const NightResult* result : results) most = std::max(most, value(*result));
  return most;
}

// "1990 of 2000 (99.5 %)"
std::string shareText(std::size_t count, std::size_t all) {
  const double share = all > 0 ? 100 * static_cast<double>(count) / static_cast<double>(all) : 100;
  return std::to_string(count) + " of " + std::to_string(all) + " (" + textOf("%.1f", share) + " %)";
}

std::string goalsOf(const Results& results) {
  const std::size_t near = countOf(results, [](const NightResult& result) { return result.above <= 1; });
  const std::size_t inReach = countOf(results, [](const NightResult& result) { return result.bandInReach; });
  const std::size_t reached =
      countOf(results, [](const NightResult& result) { return result.bandInReach && result.below <= 0; });
  const double worst = mostOf(results, [](const NightResult& result) { return result.above; });
  const double lost = mostOf(results, [](const NightResult& result) { return result.batteryLost; });
  const double wakes =
      mostOf(results, [](const NightResult& result) { return static_cast<double>(result.scheduledWakes); });
  return "  at most 1 point above the limit: " + shareText(near, results.size()) + ", worst " +
         textOf("%.1f", worst) + "\n  in the band in the morning, where the adapter could bring it there: " +
         shareText(reached, inReach) + "\n  lost on battery to scheduled wakes: " + textOf("%.2f", lost) +
         " points at most\n  scheduled wakes a night: " + textOf("%.0f", wakes) + " at most\n";
}

std::string chargeClass(double percent) {
  if (percent < 50) return "dusk below 50 %";
  if (percent < 75) return "dusk 50 to 75 %";
  return percent <= 80 ? "dusk 75 to 80 %" : "dusk above 80 %";
}

// The classes that a night belongs to, one of each kind, in the order of the table.
std::vector<std::string> classesOf(const NightPlan& plan) {
  return {plan.model,
          plan.model + ", " + textOf("%.0f W", plan.adapterWatts),
          chargeClass(plan.percentAtDusk),
          std::string(nameOf(plan.bedtime)),
          plan.promoted ? "scheduled wakes full" : "scheduled wakes dark",
          plan.nights,
          plan.adapterWakes ? "the adapter wakes it" : "the adapter does not wake it"};
}

}  // namespace

std::string_view nameOf(Bedtime bedtime) {
  constexpr std::array<std::string_view, 3> names{"on the adapter for a while", "plugged in and closed",
                                                  "plugged in asleep"};
  return names[static_cast<std::size_t>(bedtime)];
}

NightPlan planNight(std::uint64_t seed) {
  Rng rng(seed, benchStream);
  NightPlan plan{};
  constexpr std::array models{"air13", "pro14", "pro16"};
  plan.model = rng.oneOf(models);
  plan.adapterWatts = rng.oneOf(adaptersOf(plan.model));
  plan.percentAtDusk = static_cast<double>(rng.between(10, 95));
  plan.bedtime = static_cast<Bedtime>(rng.between(0, 2));
  plan.promoted = rng.oneIn(2);
  constexpr std::array nights{"quiet-nights", "upkeep-nights", "busy-nights"};
  plan.nights = rng.oneOf(nights);
  plan.adapterWakes = rng.percent(75);
  plan.batteryWakeSeconds = static_cast<double>(rng.between(5, 45));
  plan.usedSeconds = static_cast<double>(rng.between(300, 5400));
  const bool asleep = plan.bedtime == Bedtime::pluggedAsleep;
  plan.pluggedAfter = static_cast<double>(asleep ? rng.between(60, 3600) : rng.between(2, 20));
  return plan;
}

NightResult spendNight(const NightPlan& plan, const NightOptions& options) {
  sim::SimulationSetup setup{.machine = machineFor(plan)};
  if (options.guard) setup.arguments = {"--guard", *options.guard};
  CheckedSimulation simulation(setup);
  simulation.write(defaultConfigPath, "{\"limit\":" + std::to_string(options.limit) + "}");
  simulation.begin();
  NightResult result;
  result.batteryLost = goToBed(plan, simulation);
  const double atBedtime = virtual_mac::level(simulation.machine());
  const std::uint64_t wakesBefore = simulation.machine().sleep.wakes;
  result.bandInReach =
      percentWithoutLimit(plan, simulation.machine()) >= static_cast<double>(options.limit) - bandWidth;
  simulation.pass(seven - simulation.machine().now);

  const auto limit = static_cast<double>(options.limit);
  result.percentAtSeven = virtual_mac::level(simulation.machine());
  result.above = std::max(0.0, simulation.highest() - std::max(limit, atBedtime));
  result.below = std::max(0.0, limit - bandWidth - result.percentAtSeven);
  result.wakes = simulation.machine().sleep.wakes - wakesBefore;
  result.scheduledWakes = wakesThatCame(simulation);
  if (const auto violation = simulation.violation()) {
    result.violation = numbered(violation->invariant) + " Seen: " + violation->seen;
  }
  return result;
}

std::string nightTable(const std::vector<Night>& nights) {
  std::string text =
      "| nights | count | % at seven: median | least | most | points above: median | 99 of 100 | worst | "
      "nights below the band | worst | wakes: median | most |\n|---|---|---|---|---|---|---|---|---|---|---|"
      "---|\n";
  std::vector<const Night*> all;
  for (const Night& night : nights) all.push_back(&night);
  if (all.empty()) return text;
  text += line("all", all);
  const std::size_t kinds = classesOf(nights.front().plan).size();
  for (std::size_t kind = 0; kind < kinds; ++kind) {
    std::vector<std::pair<std::string, std::vector<const Night*>>> classes;
    for (const Night& night : nights) {
      const std::string name = classesOf(night.plan)[kind];
      auto found = std::find_if(classes.begin(), classes.end(),
                                [&name](const auto& entry) { return entry.first == name; });
      if (found == classes.end()) found = classes.insert(classes.end(), {name, {}});
      found->second.push_back(&night);
    }
    std::sort(classes.begin(), classes.end());
    for (const auto& [name, members] : classes) text += line(name, members);
  }
  return text;
}

std::string nightGoals(const std::vector<Night>& nights) {
  std::vector<const NightResult*> counted;
  std::vector<const NightResult*> others;
  for (const Night& night : nights) {
    const bool unseen = night.plan.bedtime == Bedtime::pluggedAsleep && !night.plan.adapterWakes;
    (unseen ? others : counted).push_back(&night.result);
  }
  return "\nWhere plugging in wakes the Mac, or it is plugged in before:\n" + goalsOf(counted) +
         "Where it was plugged in asleep and that did not wake it:\n" + goalsOf(others);
}

}  // namespace brisko::lab
