#include "doctor_proof/machine_watch.h"

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "base/json_file.h"
#include "base/options.h"
#include "base/settings.h"
#include "sim/machine/charge_limit.h"
#include "sim/machine/controller.h"
#include "sim/machine/physics.h"

namespace brisko::proof {
namespace {

using lab::ScenarioJson;
using virtual_mac::Machine;

constexpr double longest = 8 * 86'400;  // seconds that sights are kept
constexpr const char* app = "/Applications/Brisko.app";

std::int64_t limitIn(const std::string& settings) {
  return parseConfig(parseJson(settings).value_or(Json::object())).limit;
}

Sight sightOf(const sim::Simulation& simulation) {
  const Machine& machine = simulation.machine();
  const virtual_mac::ChargeOrders orders = chargeOrders(machine);
  const virtual_mac::Gauge& gauge = machine.gauge;
  return {.time = machine.now,
          .percent = gauge.percent,
          .limit = limitIn(simulation.read(defaultConfigPath).value_or("")),
          .temperatureC = static_cast<double>(gauge.temperatureCentiC) / 100,
          .watts = static_cast<double>(gauge.currentMA) * static_cast<double>(gauge.voltageMV) / 1e6,
          .chargeMAh = machine.battery.chargeMAh,
          .adapter = adapterReachesBattery(machine),
          .awake = machine.system.poweredOn && !machine.system.asleep && !machine.sleep.dark,
          .isOpen = chargingIsOpen(machine),
          .isStopped = orders.stopped || orders.bandArmed};
}

bool asksToCalibrate(const ScenarioJson& settings) {
  return settings.is_object() && settings.value("calibrate", false);
}

// The settings that an action writes, whatever way it takes; null if it writes none.
ScenarioJson settingsIn(const ScenarioJson& action) {
  if (!action.is_object()) return nullptr;
  for (const char* name : {"settings", "settings-replaced", "settings-file"}) {
    if (action.contains(name)) return action[name];
  }
  if (!action.contains("ask") || !action["ask"].is_object()) return nullptr;
  return action["ask"].value("settings", ScenarioJson());
}

}  // namespace

void MachineWatch::see(const sim::Simulation& simulation) {
  sights_.push_back(sightOf(simulation));
  while (sights_.front().time < sights_.back().time - longest) sights_.pop_front();
  std::error_code unused;
  const bool isMissing = !std::filesystem::exists(simulation.path(app), unused);
  appWasMissing_ = simulation.daemonRuns() && (appWasMissing_ || isMissing);
}

bool MachineWatch::wasAsked(std::string_view request) const {
  const double now = sights_.back().time - begin_;
  return std::any_of(scenario_.timedActions.begin(), scenario_.timedActions.end(),
                     [&](const lab::TimedAction& each) {
                       return static_cast<double>(each.at) <= now && each.action.is_object() &&
                              each.action.contains("ask") && each.action["ask"] == request;
                     });
}

std::optional<std::int64_t> MachineWatch::limitByHand() const {
  const double now = sights_.back().time - begin_;
  std::optional<std::int64_t> limit;
  for (const lab::TimedAction& each : scenario_.timedActions) {
    if (static_cast<double>(each.at) <= now && each.action.is_object() && each.action.contains("limit"))
      limit = each.action["limit"].get<std::int64_t>();
  }
  return limit;
}

bool MachineWatch::calibrationWasAskedFor(double secondsAgo) const {
  const double until = sights_.back().time - begin_ - secondsAgo;
  if (until < 0) return false;
  if (asksToCalibrate(scenario_.settings.value_or(nullptr))) return true;
  return std::any_of(
      scenario_.timedActions.begin(), scenario_.timedActions.end(), [&](const lab::TimedAction& each) {
        return static_cast<double>(each.at) <= until && asksToCalibrate(settingsIn(each.action));
      });
}

std::deque<Sight> MachineWatch::since(double seconds) const {
  const double from = sights_.back().time - seconds;
  std::deque<Sight> recent;
  for (auto sight = sights_.rbegin(); sight != sights_.rend(); ++sight) {
    if (!recent.empty() && sight->time < from) break;
    recent.push_front(*sight);
  }
  return recent;
}

}  // namespace brisko::proof
