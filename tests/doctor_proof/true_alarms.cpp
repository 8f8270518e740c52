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
constexpr double week = 7 * day;
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

// No key of the controller holds the charge, and macOS's own limit at most as its user chose it.
bool isGivenBack(const Context& context) {
  const Machine& machine = context.simulation.machine();
  const virtual_mac::ChargeOrders orders = chargeOrders(machine);
  const std::int64_t limit = enforcedLimit(machine);
  return !orders.stopped && !orders.bandArmed && !orders.adapterCut &&
         (limit == 0 || limit == context.watch.limitByHand());
}

bool wasReleased(const Context& context) {
  return context.watch.wasAsked("release") && context.simulation.daemonRuns() && isGivenBack(context);
}

bool lacksTheApp(const Context& context) { return context.watch.appWasMissing() && isGivenBack(context); }

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

// Whether this Mac has one of the keys and its macOS leaves it open.
bool hasOneOf(const Machine& machine, std::initializer_list<std::string_view> names) {
  return std::any_of(names.begin(), names.end(), [&](std::string_view name) {
    const virtual_mac::SmcKey* key = findKey(machine, virtual_mac::keyCode(name));
    return key != nullptr && key->present && key->size > 0 && key->readStatus == 0;
  });
}

bool hasNoWayToStop(const Context& context) {
  return !hasOneOf(context.simulation.machine(), {"CHTE", "CH0B", "bfF0"});
}

// Where macOS closed the keys, the one that is left is not used alone.
bool hasNoWayToDischarge(const Context& context) {
  return hasClosedKeys(context) || !hasOneOf(context.simulation.machine(), {"CHIE", "CH0I", "CH0J"});
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
// daemon saw of it counts until it sees a stop that works, which can be days later. The order has to be older
// than the charge: the current takes a moment to end.
bool chargedAgainstOrders(const Context& context) {
  constexpr double noCurrent = 20;  // mA
  const auto sights = context.watch.since(week);
  for (std::size_t index = 2; index < sights.size(); ++index) {
    const Sight& before = sights[index - 1];
    const Sight& sight = sights[index];
    const double leastMAh = noCurrent * (sight.time - before.time) / 3600;
    if (sights[index - 2].isStopped && before.isStopped && sight.isStopped && before.adapter &&
        sight.adapter && sight.chargeMAh - before.chargeMAh > leastMAh)
      return true;
  }
  return false;
}

// The charge rose past the limit while nobody was at the Mac. The last wake planned may be days old.
bool chargedPastTheLimitAsleep(const Context& context) {
  const auto sights = context.watch.since(week);
  for (std::size_t index = 1; index < sights.size(); ++index) {
    const Sight& before = sights[index - 1];
    const Sight& sight = sights[index];
    if (!before.awake && sight.percent > sight.limit + 1 && sight.chargeMAh > before.chargeMAh) return true;
  }
  return false;
}

constexpr double lately = 900;  // seconds: the history may be some minutes behind
constexpr double longEnough = 240;

bool drainsOnAdapter(const Context& context) {
  return lasted(context.watch.since(lately), longEnough,
                [](const Sight& sight) { return sight.adapter && sight.isOpen && sight.watts < -noWatts; });
}

// The Mac takes all that its adapter gives.
bool takesAllOfAdapter(const Context& context) {
  return lasted(context.watch.since(lately), longEnough, [](const Sight& sight) {
    return sight.adapter && sight.isOpen && std::abs(sight.watts) <= noWatts;
  });
}

// The user is to get more, for which the keys are open, but he has set a limit in macOS's own settings too.
// Where the daemon drives that limit itself, nothing of the machine tells its limit from the user's.
bool isStoppedByLimitOfUser(const Context& context) {
  const std::int64_t limit = enforcedLimit(context.simulation.machine());
  const auto file = parseJson(context.simulation.read(defaultConfigPath).value_or(""));
  if (!file || !parseConfig(*file).enabled || hasNoWayToStop(context)) return false;
  return limit > 0 && limit == context.watch.limitByHand() &&
         lasted(context.watch.since(lately), longEnough, [](const Sight& sight) {
           return sight.adapter && !sight.isStopped && !sight.isOpen && std::abs(sight.watts) <= noWatts;
         });
}

bool hasNoCurrent(const Context& context) {
  return takesAllOfAdapter(context) || isStoppedByLimitOfUser(context);
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
      {"D07", hasNoWayToStop},
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
      {"D35", hasNoWayToDischarge},
      {"D36", hasStuckCalibration},
      {"D37", chargedPastTheLimitAsleep},
  };
  const auto truth = truths.find(alarm.check->id);
  return truth != truths.end() && truth->second({evidence, simulation, watch});
}

}  // namespace brisko::proof
