#include "sim/machine/machine.h"

#include <algorithm>
#include <cmath>

#include "sim/machine/charge_limit.h"
#include "sim/machine/client_requirement.h"
#include "sim/machine/controller.h"
#include "sim/machine/physics.h"
#include "sim/machine/sleep.h"

namespace brisko::virtual_mac {
namespace {

// Sets the clock to `time`. Physics has been simulated up to there, or has nothing to do until then.
void moveClock(Machine& machine, double time) {
  if (machine.system.asleep) machine.system.sleptSeconds += time - machine.now;
  machine.now = time;
}

// The gauge's next publication time after `second`.
double nextPublication(const Machine& machine, double second) {
  const double start = std::floor(machine.system.bootedAt);
  return start + (std::floor((second - start) / gaugePeriod) + 1) * gaugePeriod;
}

// Simulates the whole seconds up to and including `time`, as long as nothing else happens. If asked to, stops
// right after a publication that others must be told of, and then returns true.
bool passSeconds(Machine& machine, double time, bool stopAtNotice) {
  const Flow flow = flowOf(machine);
  const std::uint64_t changes = machine.powerSource.changes;
  const double last = std::floor(time);
  double second = std::floor(machine.now);
  double publication = nextPublication(machine, second);
  while (second < last) {
    second += 1;
    // When a second changes nothing, neither do the following ones before the next publication.
    if (!passSecond(machine, flow)) second = std::max(second, std::min(last, publication));
    if (second < publication) continue;
    publication += gaugePeriod;
    moveClock(machine, second);
    publishGauge(machine);
    if (stopAtNotice && !machine.system.asleep && machine.powerSource.changes != changes) return true;
  }
  moveClock(machine, time);
  return false;
}

// Events other than the passing of time. Of events due at the same instant, the system takes its keys back
// first, then powerd publishes, then come sleep events, then macOS's limit, and last the planned changes in
// the order in which they were planned.
struct DueEvent {
  double at = never;
  SmcKey* release = nullptr;
  bool adapterState = false;
  bool sleep = false;
  bool limit = false;
  Planned* planned = nullptr;
};

DueEvent nextDueEvent(Machine& machine) {
  DueEvent next;
  for (SmcKey& key : machine.smc.keys) {
    if (key.releaseAt >= 0 && key.releaseAt < next.at) next = {.at = key.releaseAt, .release = &key};
  }
  const double stateDueAt = machine.powerSource.stateDueAt;
  if (stateDueAt >= 0 && stateDueAt < next.at) next = {.at = stateDueAt, .adapterState = true};
  const double sleepAt = nextSleepEvent(machine);
  if (sleepAt < next.at) next = {.at = sleepAt, .sleep = true};
  const double limitAt = nextLimitEvent(machine);
  if (limitAt < next.at) next = {.at = limitAt, .limit = true};
  for (Planned& planned : machine.planned) {
    if (!planned.pending || planned.at > next.at) continue;
    const bool sooner = planned.at < next.at;
    const bool plannedSooner = next.planned != nullptr && planned.order < next.planned->order;
    if (sooner || plannedSooner) next = {.at = planned.at, .planned = &planned};
  }
  return next;
}

// Returns true when a process must be told of it.
bool applyDueEvent(Machine& machine, const DueEvent& due) {
  const std::uint64_t changes = machine.powerSource.changes;
  const std::uint32_t notices = machine.sleep.noticesSent;
  const std::uint64_t requests = machine.control.sent;
  const bool asleep = machine.system.asleep;
  bool signal = false;
  if (due.release != nullptr) {
    const bool reached = adapterReachesBattery(machine);
    releaseKey(*due.release);
    settle(machine, reached);
  } else if (due.adapterState) {
    publishAdapterState(machine);
  } else if (due.sleep) {
    applySleepEvent(machine);
  } else if (due.limit) {
    applyLimitEvent(machine);
  } else {
    due.planned->pending = false;
    signal = due.planned->change.kind == ChangeKind::signal;
    apply(machine, due.planned->change);
  }
  if (signal || machine.sleep.noticesSent != notices || machine.system.asleep != asleep) return true;
  if (machine.control.sent != requests) return true;
  return !asleep && machine.powerSource.changes != changes;
}

bool move(Machine& machine, double time, bool stopAtNotice) {
  if (!(time >= machine.now)) return false;
  while (true) {
    const DueEvent next = nextDueEvent(machine);
    // A change planned for the past happens now.
    const double until = std::max(std::min(next.at, time), machine.now);
    if (passSeconds(machine, until, stopAtNotice)) return true;
    if (next.at > time) return false;
    if (applyDueEvent(machine, next) && stopAtNotice) return true;
  }
}

Battery makeBattery(const Model& model, double percent) {
  Battery battery{};
  battery.installed = true;
  battery.designMAh = model.designMAh;
  battery.fullMAh = model.fullMAh;
  battery.reserveMAh = model.reserveMAh;
  battery.cycles = model.cycles;
  battery.shownFull = model.shownFull;
  battery.showsFullFrom = usualShowsFullFrom;
  battery.maxChargeMA = model.maxChargeMA;
  battery.steps = model.steps;
  battery.chargingWarmthC = model.chargingWarmthC;
  battery.resistanceOhm = model.resistanceOhm;
  battery.bandCharging = true;
  setShownLevel(battery, percent);
  return battery;
}

System makeSystem(const MachineOptions& options) {
  System system{};
  system.macOS = options.macOS;
  system.bootedAt = options.startTime - options.uptime;
  system.poweredOn = true;
  system.capabilities = fullWake;
  system.capabilitiesReadable = true;
  system.daemonTeam = shortText(appTeam);
  system.daemonSignatureReadable = true;
  return system;
}

// Brings everything to rest and publishes it, as if the machine had been in this state for a while.
void comeToRest(Machine& machine) {
  machine.powerSource.stateDueAt = -1;
  machine.powerSource.onAdapter = externalIsConnected(machine);
  settle(machine, adapterReachesBattery(machine));
  machine.battery.currentMA = machine.battery.targetMA;
  machine.battery.temperatureC = restingTemperature(machine, machine.surroundings.loadWatts);
  publishGauge(machine);
  machine.powerSource.changes = 0;
}

}  // namespace

ShortText shortText(std::string_view text) {
  ShortText result{};
  std::copy_n(text.begin(), std::min(text.size(), result.size() - 1), result.begin());
  return result;
}

std::string_view textOf(const ShortText& text) {
  const auto* end = std::find(text.begin(), text.end(), '\0');
  return {text.data(), static_cast<std::size_t>(end - text.begin())};
}

Machine makeMachine(const Model& model, const MachineOptions& options) {
  Machine machine{};
  machine.version = machineVersion;
  machine.model = shortText(model.title);
  machine.now = options.startTime;
  machine.speed = 1;
  machine.machineAnchor = options.startTime;
  machine.system = makeSystem(options);
  machine.sleep = freshSleep();
  machine.limit = freshLimit(options.chargeLimit);
  machine.layout = options.macOS >= 27 ? RegistryLayout::nested : RegistryLayout::flat;
  makeKeys(machine, options.gate.value_or(model.gate), options.cut.value_or(model.cut),
           options.magSafeLight.value_or(model.magSafeLight));
  machine.battery = makeBattery(model, options.percent);
  machine.adapter = {.present = options.plugged, .watts = model.adapterWatts, .staysConnectedWhenCut = false};
  machine.surroundings = {.loadWatts = model.loadWatts, .ambientC = 25};
  comeToRest(machine);
  return machine;
}

void advance(Machine& machine, double time) { (void)move(machine, time, false); }

bool advanceToNotice(Machine& machine, double time) { return move(machine, time, true); }

bool plan(Machine& machine, double at, const Change& change) {
  for (Planned& planned : machine.planned) {
    if (planned.pending) continue;
    planned = {.at = at, .order = machine.plannedSoFar++, .pending = true, .change = change};
    return true;
  }
  return false;
}

void boot(Machine& machine) {
  System& system = machine.system;
  system.bootedAt = machine.now;
  system.sleptSeconds = 0;
  system.asleep = false;
  system.poweredOn = true;
  system.capabilities = fullWake;
  system.capabilitiesReadable = true;
  endSleep(machine);
  startLimitService(machine);
  settle(machine, adapterReachesBattery(machine));
  publishGauge(machine);
}

void shutDown(Machine& machine) {
  machine.system.poweredOn = false;
  machine.system.asleep = false;
  endSleep(machine);
  machine.pendingSignals = 0;
  machine.control.requests = {};
  settle(machine, adapterReachesBattery(machine));
}

double wallClock(const Machine& machine) { return machine.now + machine.system.wallOffset; }

double uptimeOf(const Machine& machine) {
  const System& system = machine.system;
  return system.poweredOn ? machine.now - system.bootedAt - system.sleptSeconds : 0.0;
}

}  // namespace brisko::virtual_mac
