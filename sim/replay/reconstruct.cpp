#include "sim/replay/reconstruct.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>
#include <optional>
#include <stdexcept>

#include "base/paths.h"
#include "sim/dump_import/dump_import.h"
#include "sim/dump_import/read_dump.h"
#include "sim/machine/models.h"
#include "sim/replay/dated_action.h"
#include "sim/replay/reported_power.h"
#include "sim/replay/reported_service.h"
#include "sim/replay/reported_settings.h"
#include "sim/replay/reported_sleep.h"

namespace brisko::lab {
namespace {

using virtual_mac::Machine;

constexpr double afterTheEnd = 30;

// --- The beginning

// The scenario begins with the start of the daemon if that is reported; otherwise the daemon was running.
struct Beginning {
  double time = 0;
  bool isStart = false;
};

Beginning beginningOf(const ReportedDays& days) {
  const double first =
      std::min_element(days.trace.sightings.begin(), days.trace.sightings.end(),
                       [](const Sighting& one, const Sighting& other) { return one.time < other.time; })
          ->time;
  for (const LoggedLine& line : days.trace.lines) {
    if (isStart(line.text) && std::abs(line.time - first) <= longestStartUp)
      return {.time = std::min(line.time, first), .isStart = true};
  }
  return {.time = first};
}

double uptimeAt(double begin, const Trace& trace) {
  constexpr double anHour = 3600;
  return anHour + std::fmod(begin - publicationSecond(trace) + 60, 60);
}

template <typename Kind, std::size_t count>
std::string nameOf(const std::array<std::pair<std::string_view, Kind>, count>& names, Kind kind) {
  for (const auto& [name, known] : names) {
    if (known == kind) return std::string(name);
  }
  return "none";
}

std::string dateText(double time) {
  const auto seconds = static_cast<std::time_t>(time);
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  std::array<char, 32> text{};
  static_cast<void>(std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts));
  return text.data();
}

ScenarioJson macOf(const virtual_mac::MachineOptions& options) {
  ScenarioJson mac = ScenarioJson::object();
  if (options.gate) mac["gate"] = nameOf(virtual_mac::gateNames, *options.gate);
  if (options.cut) mac["cut"] = nameOf(virtual_mac::cutNames, *options.cut);
  if (options.magSafeLight) mac["light"] = *options.magSafeLight;
  mac["macOS"] = options.macOS;
  if (!options.chargeLimit) mac["chargeLimit"] = false;
  mac["uptime"] = options.uptime;
  mac["start"] = dateText(options.startTime);
  return mac;
}

// The adapter of the report's end may be weaker than the one that charged the battery before.
double leastAdapterOf(const Trace& trace) {
  constexpr double aLittleWork = 3;
  double most = 0;
  for (const Sighting& sighting : trace.sightings) {
    if (sighting.plugged == true) most = std::max(most, sighting.watts.value_or(0));
  }
  return most > 0 ? (most + aLittleWork) / virtual_mac::adapterShare : 0;
}

Machine machineOf(const ReportedDays& days, const virtual_mac::MachineOptions& options) {
  if (days.registry.empty()) return virtual_mac::makeMachine(assumedModel(), options);
  std::string reason;
  const auto dump = readDump(days.registry, reason);
  auto machine = dump ? machineFromDump(*dump, nullptr, options, reason) : std::nullopt;
  if (!machine) throw std::logic_error("a report that was read has no battery: " + reason);
  machine->adapter.watts = std::max(machine->adapter.watts, leastAdapterOf(days.trace));
  return *machine;
}

// Another battery, or another calibration of its gauge, than at the end of the days.
void useEarlierCapacity(const ReportedDays& days, Reconstruction& result) {
  const double share = capacityAtBeginning(days, result.machine);
  if (share == 1) return;
  const double capacity = std::round(result.machine.battery.fullMAh * share);
  virtual_mac::apply(result.machine, {.kind = virtual_mac::ChangeKind::health, .number = capacity});
  result.scenario.before.push_back(measured("health", virtual_mac::ChangeKind::health, capacity));
  result.assumptions.push_back("At the beginning the battery held " +
                               std::to_string(std::llround(share * 100)) +
                               " % of what it holds at the end, as its power and its percentage show.");
}

// What a daemon that was running knew: whether the limit was reached, and the limit that it will give back.
ScenarioJson statsAtBeginning(const ReportedDays& days) {
  ScenarioJson stats = {{"atLimit", days.trace.sightings.front().state != ChargeState::allow}};
  if (const auto limit = nativeLimitAtBeginning(days)) stats["nativeBefore"] = *limit;
  return actionOf("write", {{"path", statsPath}, {"json", stats}});
}

// --- The timeline

class Timeline {
 public:
  Timeline(double begin, GeneratedScenario& scenario) : begin_(begin), scenario_(scenario) {}

  // Of actions at the same second, those that were added first come first.
  void add(std::vector<DatedAction> actions) {
    for (DatedAction& action : actions) {
      const auto at = static_cast<std::int64_t>(std::floor(action.time - begin_));
      if (at > scenario_.seconds) continue;
      if (at <= 0) {
        scenario_.before.push_back(std::move(action.action));
      } else {
        scenario_.timedActions.push_back({at, std::move(action.action)});
      }
    }
  }

  void sort() {
    std::stable_sort(scenario_.timedActions.begin(), scenario_.timedActions.end(),
                     [](const TimedAction& one, const TimedAction& other) { return one.at < other.at; });
  }

 private:
  double begin_;
  GeneratedScenario& scenario_;
};

std::vector<DatedAction> plugActions(const std::vector<PlugEvent>& plugs) {
  std::vector<DatedAction> actions;
  const bool sleepsOn =
      std::any_of(plugs.begin(), plugs.end(), [](const PlugEvent& plug) { return plug.unnoticed; });
  if (sleepsOn) actions.push_back({0, actionOf("adapter-wakes", 0)});
  for (const PlugEvent& plug : plugs) {
    actions.push_back({plug.time, plug.plugged
                                      ? measured("plug", virtual_mac::ChangeKind::plug, plug.adapterWatts)
                                      : ScenarioJson("unplug")});
  }
  return actions;
}

DatedAction chargeAtBeginning(const ReportedDays& days) {
  return {0, actionOf("charge", days.trace.sightings.front().percent)};
}

// In the order in which actions at the same moment have to happen: the gauge publishes the charge at the
// beginning once everything else is as it was.
void addActions(const ReportedDays& days, const Machine& machine, const SettingsOverTime& settings,
                Purpose purpose, Timeline& timeline) {
  const bool otherSettings = purpose == Purpose::otherSettings;
  const std::vector<SleepSpan> reportedSleeps = sleepsOf(days);
  const std::vector<PlugEvent> plugs = plugEventsOf(days, reportedSleeps, machine);
  const std::vector<SleepSpan> sleeps =
      otherSettings ? withoutOwnWakes(reportedSleeps, days.trace) : reportedSleeps;
  const auto hours = otherSettings ? std::optional(loadByHour(days.trace, machine)) : std::nullopt;
  timeline.add({{0, "quiet-nights"}});
  // Otherwise they are as those of any Mac.
  if (const auto full = scheduledWakesAreFull(days))
    timeline.add({{0, actionOf("scheduled-wakes", *full ? 1 : 0)}});
  timeline.add(serviceActions(days));
  timeline.add(plugActions(plugs));
  timeline.add(loadActions(days, plugs, reportedSleeps, machine, hours));
  if (settings.heatMatters || otherSettings)
    timeline.add(temperatureActions(days, reportedSleeps, settings.heatLimits));
  timeline.add({chargeAtBeginning(days)});
  timeline.add(settings.edits);
  timeline.add(sleepActions(sleeps));
  timeline.sort();
}

ScenarioJson daemonOf(const ReportedDays& days) {
  ScenarioJson daemon = ScenarioJson::object();
  if (!days.arguments.empty()) daemon["arguments"] = days.arguments;
  return daemon;
}

}  // namespace

Reconstruction reconstruct(const ReportedDays& days, Purpose purpose) {
  const Beginning beginning = beginningOf(days);
  virtual_mac::MachineOptions options = days.options;
  options.startTime = beginning.time;
  options.uptime = uptimeAt(beginning.time, days.trace);
  const SettingsOverTime settings = settingsOf(days);

  Reconstruction result{.machine = machineOf(days, options),
                        .registry = days.registry,
                        .begin = beginning.time,
                        .assumptions = days.assumptions};
  GeneratedScenario& scenario = result.scenario;
  useEarlierCapacity(days, result);
  scenario.description = "The days of a report from " + dateText(beginning.time) + " UTC on.";
  scenario.mac = macOf(options);
  scenario.daemon = daemonOf(days);
  scenario.settings = settings.first;
  scenario.seconds = static_cast<std::int64_t>(days.end() - beginning.time + afterTheEnd);
  if (!beginning.isStart) scenario.before.push_back(statsAtBeginning(days));
  Timeline timeline(beginning.time, scenario);
  addActions(days, result.machine, settings, purpose, timeline);
  return result;
}

std::string scenarioFileText(const Reconstruction& reconstruction, const std::string& registryName) {
  GeneratedScenario scenario = reconstruction.scenario;
  scenario.mac["dump"] = registryName;
  return scenarioText(scenario);
}

}  // namespace brisko::lab
