#include "doctor_proof/true_alarms.h"

#include <algorithm>
#include <cmath>
#include <deque>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

#include "base/json_file.h"
#include "base/paths.h"
#include "base/settings.h"
#include "sim/machine/charge_limit.h"
#include "sim/machine/physics.h"
#include "why_proof/asked_mac.h"

namespace brisko::proof {
namespace {

using client::Evidence;
using sim::Simulation;
using virtual_mac::Machine;

constexpr double day = 86'400;
constexpr double noWatts = 0.5;  // less is no current

// What an alarm is compared with.
struct Context {
  const Evidence& evidence;
  const Simulation& simulation;
  const MachineWatch& watch;
};

// --- The service

bool isNotLoaded(const Context& context) { return !context.simulation.serviceIsLoaded(); }
bool doesNotRun(const Context& context) { return !context.simulation.daemonRuns(); }

// Without a status the daemon that runs has been told to erase everything.
bool writesNothing(const Context& context) {
  return context.watch.wasAsked("purge") && context.simulation.daemonRuns() &&
         !context.simulation.read(statusPath);
}

bool wasReleased(const Context& context) {
  return context.watch.wasAsked("release") && context.simulation.daemonRuns() &&
         chargingIsOpen(context.simulation.machine());
}

bool lacksTheApp(const Context& context) {
  return context.watch.appWasMissing() && chargingIsOpen(context.simulation.machine());
}

// --- The settings

// That the user wrote; what is in force of them is within the ranges.
bool hasNumberOutOfRange(const Context& context) {
  const auto file = parseJson(context.simulation.read(defaultConfigPath).value_or(""));
  if (!file || !file->is_object()) return false;
  const auto settings = parseConfig(*file);
  Json inForce = configObject(settings);
  // These are only limited where they are used.
  inForce["limit"] = std::clamp<std::int64_t>(settings.limit, 20, 100);
  inForce["hysteresis"] = std::clamp<std::int64_t>(settings.hysteresis, 1, 20);
  inForce["historyDays"] = std::clamp<std::int64_t>(settings.historyDays, 7, 3650);
  return std::any_of(file->items().begin(), file->items().end(), [&](const auto& item) {
    return item.value().is_number() && inForce.contains(item.key()) && inForce[item.key()] != item.value();
  });
}

bool hasArgumentsOfItsOwn(const Context&) {
  const std::vector<std::string>& words = askedMac().arguments;
  return std::any_of(words.begin(), words.end(), [](const std::string& word) {
    return word == "--limit" || word == "--lower" || word == "--config";
  });
}

// --- The machine

bool hasClosedKeys(const Context& context) {
  const Machine& machine = context.simulation.machine();
  return machine.system.macOS >= 27 && !hasLimit(machine);
}

// Whether all sights within so many seconds were so.
bool lasted(const std::deque<Sight>& sights, double seconds, bool (*isSo)(const Sight& sight)) {
  std::optional<double> since;
  for (const Sight& sight : sights) {
    if (!isSo(sight)) {
      since.reset();
      continue;
    }
    since = since.value_or(sight.time);
    if (sight.time - *since >= seconds) return true;
  }
  return false;
}

// A band of the firmware stops no charge below its upper edge, and a pause for heat may come there. What the
// daemon saw of it counts until it can see it again.
bool chargedAgainstOrders(const Context& context) {
  constexpr double longEnough = 60;  // the current takes a moment to end
  return lasted(context.watch.since(day), longEnough, [](const Sight& sight) {
    constexpr double noCurrent = 20;  // mA
    return sight.isStopped && sight.adapter && sight.currentMA > noCurrent;
  });
}

bool drainsOnAdapter(const Context& context) {
  const Machine& machine = context.simulation.machine();
  return machine.battery.currentMA < 0 && machine.adapter.present;
}

// The Mac takes all that its adapter gives. The history may be some minutes behind.
bool hasNoCurrent(const Context& context) {
  constexpr double lately = 900;
  constexpr double longEnough = 240;
  return lasted(context.watch.since(lately), longEnough, [](const Sight& sight) {
    return sight.adapter && sight.isOpen && std::abs(sight.watts) <= noWatts;
  });
}

// A pause for heat lasts until the battery is colder than three degrees below the limit.
bool isHot(const Context& context) {
  constexpr double recovery = 3;
  constexpr double tick = 150;  // seconds
  const auto coldest = static_cast<double>(context.evidence.state.settings.thermalLimit) - recovery;
  const auto sights = context.watch.since(tick);
  return std::any_of(sights.begin(), sights.end(),
                     [coldest](const Sight& sight) { return sight.temperatureC >= coldest; });
}

// --- Calibrations

std::int64_t highestPercent(const std::deque<Sight>& sights) {
  return std::max_element(sights.begin(), sights.end(),
                          [](const Sight& one, const Sight& other) { return one.percent < other.percent; })
      ->percent;
}
std::int64_t lowestPercent(const std::deque<Sight>& sights) {
  return std::min_element(sights.begin(), sights.end(),
                          [](const Sight& one, const Sight& other) { return one.percent < other.percent; })
      ->percent;
}

// Awake and full on the adapter. Asleep a soak does not count.
double soakedSeconds(const std::deque<Sight>& sights) {
  double seconds = 0;
  for (std::size_t index = 0; index + 1 < sights.size(); ++index) {
    const Sight& sight = sights[index];
    if (sight.awake && sight.adapter && sight.percent == 100) seconds += sights[index + 1].time - sight.time;
  }
  return seconds;
}

// For a day the battery has not done what the phase waits for.
bool hasStuckCalibration(const Context& context) {
  const client::CalibrationStatus& calibration = context.evidence.state.status->calibration;
  const auto sights = context.watch.since(day);
  if (!context.watch.calibrationWasAskedFor(day)) return false;
  switch (calibration.phase) {
    case CalPhase::fill:
    case CalPhase::refill:
      return highestPercent(sights) < 100;
    case CalPhase::drain:
      return lowestPercent(sights) > context.evidence.state.settings.calDrain;
    case CalPhase::soak:
      return soakedSeconds(sights) < static_cast<double>(calibration.soakSeconds);
    case CalPhase::restore:
      return lowestPercent(sights) > context.evidence.state.settings.limit;
    case CalPhase::idle:
      break;
  }
  return false;
}

}  // namespace

bool isTrue(const client::CheckedResult& alarm, const Evidence& evidence, const Simulation& simulation,
            const MachineWatch& watch) {
  static const std::map<std::string, bool (*)(const Context&)> truths{
      {"D01", isNotLoaded},
      {"D03", doesNotRun},
      {"D13", writesNothing},
      {"D14", writesNothing},
      {"D15", lacksTheApp},
      {"D16", wasReleased},
      {"D21", hasNumberOutOfRange},
      {"D22", hasArgumentsOfItsOwn},
      {"D24", chargedAgainstOrders},
      {"D29", hasClosedKeys},
      {"D31", drainsOnAdapter},
      {"D32", hasNoCurrent},
      {"D33", isHot},
      {"D36", hasStuckCalibration},
  };
  const auto truth = truths.find(alarm.check->id);
  return truth != truths.end() && truth->second({evidence, simulation, watch});
}

}  // namespace brisko::proof
