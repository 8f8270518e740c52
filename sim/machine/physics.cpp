#include "sim/machine/physics.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "sim/machine/charge_limit.h"

namespace brisko::virtual_mac {
namespace {

constexpr double sleepWatts = 0.1;  // about 0.16 % an hour
constexpr double darkWatts = 3;     // at most, awake with the display off

// Near full the charger keeps the voltage constant, and the current falls with the remaining capacity.
constexpr double taperSeconds = 880;        // time constant
constexpr double endShareOfDesign = 0.045;  // charging ends at this share of the design capacity, in mA

// The battery's temperature follows what heats it.
constexpr double thermalSeconds = 1200;   // time constant
constexpr double settledC = 0.005;        // closer than this counts as settled
constexpr double warmestByLoadC = 6;      // what the rest of the Mac adds at most …
constexpr double halfWarmLoadWatts = 1;   // … and the load that adds half of it
constexpr double dischargingWarmthC = 3;  // at a current that empties the battery in one hour
constexpr double warmestByCurrentC = 40;  // no pack survives more
constexpr double settledMA = 1;

// Open-circuit voltage of three cells in series, V, at every twentieth of the gauge's charge.
constexpr std::array<double, 21> openVoltage{9.60,  10.88, 11.11, 11.25, 11.34, 11.42, 11.50,
                                             11.56, 11.60, 11.64, 11.69, 11.74, 11.80, 11.91,
                                             12.08, 12.22, 12.33, 12.43, 12.53, 12.72, 12.91};

double restVoltage(const Battery& battery) {
  constexpr auto steps = static_cast<double>(openVoltage.size() - 1);
  const double place = std::clamp(battery.chargeMAh / battery.fullMAh, 0.0, 1.0) * steps;
  const std::size_t below = std::min(static_cast<std::size_t>(place), openVoltage.size() - 2);
  const double share = place - static_cast<double>(below);
  return openVoltage[below] + (openVoltage[below + 1] - openVoltage[below]) * share;
}

// The current, in mA, at which `watts` leave the battery. An overloaded pack keeps half its voltage.
double drainFor(const Battery& battery, double watts) {
  const double rest = restVoltage(battery);
  const double loaded = std::max(rest - battery.resistanceOhm * watts / rest, rest / 2);
  return -1000 * watts / loaded;
}

// The current, in mA, at which `watts` enter the battery.
double chargeFor(const Battery& battery, double watts) {
  const double rest = restVoltage(battery);
  return 1000 * watts / (rest + battery.resistanceOhm * watts / rest);
}

double endMA(const Battery& battery) { return endShareOfDesign * battery.designMAh; }

double taperMA(const Battery& battery) {
  return (battery.fullMAh - battery.chargeMAh) * 3600 / taperSeconds + endMA(battery);
}

// The percentage shown rises with the charge to 99 % and then waits there for most of the taper: three
// straight lines.
struct ShownPoint {
  double share, percent;
};
std::array<ShownPoint, 4> shownCurve(const Battery& battery) {
  constexpr double shortestWait = 0.005;
  const double waitsFrom = 0.99 * battery.shownFull;
  const double showsFullFrom = std::max(battery.showsFullFrom, waitsFrom + shortestWait);
  return {{{0, 0}, {waitsFrom, 99}, {showsFullFrom, 99.5}, {1, 100}}};
}

// Reads the curve at `x` on one axis; returns the other.
double along(const std::array<ShownPoint, 4>& curve, double x, double ShownPoint::*given,
             double ShownPoint::*wanted) {
  std::size_t line = 0;
  while (line < 2 && x > curve[line + 1].*given) ++line;
  const ShownPoint& from = curve[line];
  const ShownPoint& to = curve[line + 1];
  return from.*wanted + (x - from.*given) / (to.*given - from.*given) * (to.*wanted - from.*wanted);
}

double shownLevel(const Battery& battery) {
  const double share = std::min(battery.chargeMAh / battery.fullMAh, 1.0);
  return along(shownCurve(battery), share, &ShownPoint::share, &ShownPoint::percent);
}

double shareShownAs(const Battery& battery, double percent) {
  return along(shownCurve(battery), percent, &ShownPoint::percent, &ShownPoint::share);
}

// What the charger asks for at this share of the full charge, before the taper.
double steadyMA(const Battery& battery, double share) {
  double most = battery.maxChargeMA;
  for (const ChargeStep& step : battery.steps) {
    if (share >= step.share) most = std::min(most, step.mostMA);
  }
  return most;
}

bool chargerIsOpen(const Machine& machine, const Flow& flow) {
  const Battery& battery = machine.battery;
  return letsCharge(flow.orders, shownLevel(battery), battery.bandCharging) &&
         limitLetsCharge(flow.limit, shownLevel(battery), battery.limitCharging);
}

// Above the limit some Macs run from the battery although the adapter is connected.
bool drainsToLimit(const Machine& machine, const Flow& flow) {
  return flow.drains && std::round(shownLevel(machine.battery)) > flow.limit;
}

double targetMA(const Machine& machine, const Flow& flow) {
  const Battery& battery = machine.battery;
  if (!battery.installed) return 0;
  const bool powersMac = flow.adapter && !drainsToLimit(machine, flow);
  const double missing = powersMac ? -flow.spareWatts : flow.needWatts;
  // An empty battery supplies nothing more; the Mac would have switched off.
  if (missing > 0) return battery.chargeMAh > 0 ? drainFor(battery, missing) : 0;
  if (!flow.adapter) return 0;
  const double most = chargeFor(battery, flow.spareWatts);
  if (!chargerIsOpen(machine, flow)) {
    // A trickle current flows only while there is room.
    return battery.chargeMAh < battery.fullMAh ? std::min(battery.trickleMA, most) : 0;
  }
  if (battery.fullyCharged) return 0;
  return std::min({steadyMA(battery, battery.chargeMAh / battery.fullMAh), taperMA(battery), most});
}

// The band's direction is remembered while the band is armed. Without a band charging is free, and a band
// that is armed later starts with that direction.
void followBand(Machine& machine, const Flow& flow) {
  Battery& battery = machine.battery;
  ChargeOrders band = flow.orders;
  band.stopped = false;
  battery.bandCharging = letsCharge(band, shownLevel(battery), battery.bandCharging);
}

// Without a limit charging is free, and a limit that is set later starts with that direction.
void followLimit(Battery& battery, const Flow& flow) {
  battery.limitCharging =
      flow.limit <= 0 || limitLetsCharge(flow.limit, shownLevel(battery), battery.limitCharging);
}

// Backward Euler with a quarter of `decaySeconds` as time constant: after that many seconds about a fiftieth
// of the change is left. 0 means at once.
void followTarget(Battery& battery) {
  const double missing = battery.targetMA - battery.currentMA;
  if (battery.decaySeconds <= 0 || std::abs(missing) < settledMA) {
    battery.currentMA = battery.targetMA;
  } else {
    battery.currentMA += missing / (1 + battery.decaySeconds / 4);
  }
}

void moveCharge(Machine& machine, const Flow& flow) {
  Battery& battery = machine.battery;
  const double charge = battery.chargeMAh + battery.currentMA / 3600;
  battery.chargeMAh = std::clamp(charge, 0.0, battery.fullMAh);
  if (charge <= 0 && battery.currentMA < 0) battery.currentMA = 0;
  if (flow.adapter && charge >= battery.fullMAh && chargerIsOpen(machine, flow)) battery.fullyCharged = true;
  if (shownLevel(battery) < rechargeLevel) battery.fullyCharged = false;
}

void moveTemperature(Machine& machine, const Flow& flow) {
  double& temperature = machine.battery.temperatureC;
  const double rest = restingTemperature(machine, flow.needWatts);
  const double missing = rest - temperature;
  temperature = std::abs(missing) < settledC ? rest : temperature + missing / thermalSeconds;
}

double needOf(const Machine& machine) {
  if (!machine.system.poweredOn) return 0;
  if (machine.system.asleep) return sleepWatts;
  const double load = machine.surroundings.loadWatts;
  return machine.sleep.dark ? std::min(load, darkWatts) : load;
}

// What the charger requests; none while charging is closed or done, or without an adapter.
std::int64_t askedNow(const Machine& machine, const Flow& flow) {
  if (!flow.adapter || !chargerIsOpen(machine, flow)) return 0;
  return std::max<std::int64_t>(std::llround(machine.battery.targetMA), 0);
}

// The natural logarithm of a number above 1, accurate to 0.06: halvings, and a straight line for the rest.
double roughLogarithm(double number) {
  constexpr double ofTwo = 0.693;
  double halvings = 0;
  for (; number >= 2; number /= 2) ++halvings;
  return ofTwo * (halvings + number - 1);
}

// At the present current, or what the later steps allow of it, and then along the taper.
std::int64_t minutesToFull(const Machine& machine) {
  const Battery& battery = machine.battery;
  const auto current = static_cast<double>(machine.gauge.currentMA);
  auto charge = static_cast<double>(machine.gauge.rawMAh);
  const double end = endMA(battery);
  if (current <= end) return std::llround(60 * std::max(battery.fullMAh - charge, 0.0) / current);
  const double last = std::min(current, steadyMA(battery, 1));
  const double taperFrom = battery.fullMAh - (last - end) * taperSeconds / 3600;
  double hours = 0;
  for (const double until : {battery.steps[0].share, battery.steps[1].share, 1.0}) {
    const double reached = std::min(until * battery.fullMAh, taperFrom);
    if (reached <= charge) continue;
    hours += (reached - charge) / std::min(current, steadyMA(battery, charge / battery.fullMAh));
    charge = reached;
  }
  return std::llround(60 * hours + taperSeconds / 60 * roughLogarithm(last / end));
}

std::int64_t minutesNow(const Machine& machine) {
  const Gauge& gauge = machine.gauge;
  if (machine.powerSource.charging) return gauge.currentMA > 0 ? minutesToFull(machine) : -1;
  if (machine.powerSource.onAdapter) return 0;
  if (gauge.currentMA >= 0) return -1;
  return std::llround(60 * static_cast<double>(gauge.rawMAh) / static_cast<double>(-gauge.currentMA));
}

void takeLightBack(Machine& machine) {
  SmcKey* light = machine.smc.lightTaken ? placeOf(machine, keyCode("ACLC")) : nullptr;
  if (light != nullptr) releaseKey(*light);
}

// powerd publishes the gauge's last values with the adapter's state as powerd knows it.
void publishPowerSource(Machine& machine) {
  PowerSource& source = machine.powerSource;
  const PowerSource before = source;
  source.percent = machine.gauge.percent;
  source.charging = source.onAdapter && machine.gauge.charging;
  source.full = source.onAdapter && machine.gauge.full;
  source.minutes = minutesNow(machine);
  if (source.charging != before.charging || source.full != before.full) takeLightBack(machine);
  const bool same = source.percent == before.percent && source.charging == before.charging &&
                    source.full == before.full && source.minutes == before.minutes;
  if (!same) ++source.changes;
}

}  // namespace

Flow flowOf(const Machine& machine) {
  Flow flow{};
  flow.orders = chargeOrders(machine);
  flow.limit = static_cast<double>(enforcedLimit(machine));
  flow.drains = machine.limit.drains && flow.limit > 0;
  flow.adapter = machine.adapter.present && !flow.orders.adapterCut;
  flow.needWatts = needOf(machine);
  flow.spareWatts = machine.adapter.watts * adapterShare - flow.needWatts;
  return flow;
}

bool passSecond(Machine& machine, const Flow& flow) {
  Battery& battery = machine.battery;
  const Battery before = battery;
  if (battery.installed) {
    followBand(machine, flow);
    followLimit(battery, flow);
    battery.targetMA = targetMA(machine, flow);
    followTarget(battery);
    moveCharge(machine, flow);
  }
  moveTemperature(machine, flow);
  return battery.chargeMAh != before.chargeMAh || battery.currentMA != before.currentMA ||
         battery.targetMA != before.targetMA || battery.temperatureC != before.temperatureC ||
         battery.fullyCharged != before.fullyCharged || battery.bandCharging != before.bandCharging ||
         battery.limitCharging != before.limitCharging;
}

void setShownLevel(Battery& battery, double percent) {
  battery.fullyCharged = percent >= 100;
  battery.chargeMAh =
      battery.fullyCharged ? battery.fullMAh : battery.fullMAh * shareShownAs(battery, percent);
}

double packVoltage(const Machine& machine) {
  const Battery& battery = machine.battery;
  if (!battery.installed) return 0;
  return std::max(restVoltage(battery) + battery.resistanceOhm * battery.currentMA / 1000, 0.0);
}

double restingTemperature(const Machine& machine, double needWatts) {
  const Battery& battery = machine.battery;
  const double byLoad = warmestByLoadC * needWatts / (needWatts + halfWarmLoadWatts);
  const double share = battery.currentMA / battery.fullMAh;
  const double byCurrent = share > 0 ? battery.chargingWarmthC * share : -dischargingWarmthC * share;
  return machine.surroundings.ambientC + byLoad + std::min(byCurrent, warmestByCurrentC);
}

void publishGauge(Machine& machine) {
  const Battery& battery = machine.battery;
  const Flow flow = flowOf(machine);
  Gauge& gauge = machine.gauge;
  gauge.publishedAt = machine.now;
  gauge.percent = std::llround(level(machine));
  gauge.rawMAh = battery.installed ? std::llround(battery.chargeMAh) : 0;
  gauge.currentMA = std::llround(battery.currentMA);
  gauge.voltageMV = std::llround(packVoltage(machine) * 1000);
  gauge.temperatureCentiC = std::llround(battery.temperatureC * 100);
  gauge.full = battery.installed && flow.adapter && battery.fullyCharged;
  gauge.charging =
      battery.installed && flow.adapter && chargerIsOpen(machine, flow) && !gauge.full && gauge.currentMA > 0;
  gauge.askedMA = askedNow(machine, flow);
  publishPowerSource(machine);
}

void publishAdapterState(Machine& machine) {
  PowerSource& source = machine.powerSource;
  source.stateDueAt = -1;
  const bool connected = externalIsConnected(machine);
  if (source.onAdapter == connected) return;
  source.onAdapter = connected;
  takeLightBack(machine);
  const std::uint64_t before = source.changes;
  publishPowerSource(machine);
  source.changes = before + 1;  // one publication, whatever else it contains
}

void settle(Machine& machine, bool reachedBefore) {
  const Flow flow = flowOf(machine);
  Battery& battery = machine.battery;
  if (battery.installed) {
    if (flow.orders.bandArmed) followBand(machine, flow);
    followLimit(battery, flow);
    battery.targetMA = targetMA(machine, flow);
    if (battery.decaySeconds <= 0) battery.currentMA = battery.targetMA;
  }
  if (flow.adapter != reachedBefore) machine.gauge.askedMA = askedNow(machine, flow);
  PowerSource& source = machine.powerSource;
  if (externalIsConnected(machine) == source.onAdapter || source.stateDueAt >= 0) return;
  if (source.lagSeconds <= 0) {
    publishAdapterState(machine);
  } else {
    source.stateDueAt = machine.now + source.lagSeconds;
  }
}

double level(const Machine& machine) {
  return machine.battery.installed ? std::clamp(shownLevel(machine.battery), 0.0, 100.0) : 0.0;
}

bool adapterReachesBattery(const Machine& machine) {
  return machine.adapter.present && !chargeOrders(machine).adapterCut;
}

double mostChargeMA(const Battery& battery, double percent) {
  return steadyMA(battery, shareShownAs(battery, percent));
}

bool externalIsConnected(const Machine& machine) {
  return machine.adapter.staysConnectedWhenCut ? machine.adapter.present : adapterReachesBattery(machine);
}

bool chargingIsOpen(const Machine& machine) {
  return letsCharge(chargeOrders(machine), level(machine), machine.battery.bandCharging) &&
         limitLetsCharge(static_cast<double>(enforcedLimit(machine)), level(machine),
                         machine.battery.limitCharging);
}

}  // namespace brisko::virtual_mac
