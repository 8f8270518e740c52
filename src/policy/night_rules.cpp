#include "policy/night_rules.h"

#include <algorithm>
#include <cmath>

namespace brisko {
namespace {

// From here on a scheduled wake is worth it: a dark wake lasts 45 s with an adapter, and an idle sleep is put
// off by a wake that comes within a minute.
constexpr std::int64_t shortestWait = 3;      // minutes
constexpr std::int64_t longestWait = 180;     // minutes
constexpr std::int64_t batteryInterval = 60;  // minutes between two wakes without an adapter
constexpr double margin = 1.1;

std::int64_t wholeMinutes(double minutes) {
  constexpr auto least = static_cast<double>(shortestWait);
  constexpr auto most = static_cast<double>(longestWait);
  return static_cast<std::int64_t>(std::clamp(minutes, least, most));
}

NightDecision decideOnBattery(const NightInputs& inputs, double minutes) {
  const bool inBand = inputs.pct >= inputs.band.lower;
  if (inBand || inputs.wakesLeft < 1 || inputs.batteryWakesLeft < 1) return {.step = NightStep::close};
  return {.step = NightStep::wake,
          .minutes = inputs.firstOnBattery ? wholeMinutes(minutes) : batteryInterval};
}

// Near the limit the shortest wait may pass it. In the band there is nothing to gain by that, and below the
// band not more than a point may be lost by it.
bool shouldCloseNear(const NightInputs& inputs) {
  constexpr std::int64_t tolerated = 1;
  const double minutes = minutesBelow(inputs.band.upper + tolerated, inputs.pct, inputs.speed);
  return inputs.pct >= inputs.band.lower || minutes < static_cast<double>(shortestWait);
}

// A battery with little of its capacity left gains several points between two readings of its gauge. In the
// band charging is rather stopped early than two points too late.
bool mayLeap(const NightInputs& inputs) {
  constexpr std::int64_t tolerated = 2;
  return inputs.pct >= inputs.band.lower &&
         minutesBelow(inputs.band.upper + tolerated, inputs.pct, inputs.speed) < 0;
}

}  // namespace

double fastestSpeed(const ChargerReadings& readings) {
  constexpr double mostC = 1.25;  // of the design capacity: more than any battery was seen to take
  constexpr double leastVolts = 9;
  constexpr double leastHealth = 0.75;  // of a battery whose capacity cannot be read
  constexpr double shownShare = 0.95;   // of the capacity is shown as 100 %
  constexpr double unknown = 2.5;       // points a minute
  constexpr double minutesPerHour = 60;
  if (!readings.designMAh || *readings.designMAh < 1) return unknown;
  const auto design = static_cast<double>(*readings.designMAh);
  const double full = readings.fullMAh && *readings.fullMAh > 0 ? static_cast<double>(*readings.fullMAh)
                                                                : leastHealth * design;
  double most = mostC * design;
  if (readings.adapterWatts) {
    const double volts = static_cast<double>(readings.voltageMV.value_or(0)) / 1000;
    most = std::min(most, 1000 * static_cast<double>(*readings.adapterWatts) / std::max(volts, leastVolts));
  }
  return 100 * most / (shownShare * full) / minutesPerHour;
}

double expectedSpeed(double fastest, const std::optional<Gain>& gain) {
  constexpr double longEnough = 3;   // minutes
  constexpr double roundedAway = 1;  // points, at most, by the two readings together
  if (!gain || gain->minutes < longEnough) return fastest;
  const auto points = static_cast<double>(std::max<std::int64_t>(gain->points, 0));
  return std::min(fastest, (points + roundedAway) / gain->minutes);
}

double minutesBelow(std::int64_t limit, std::int64_t pct, double speed) {
  constexpr double roundedAway = 0.5;  // points, by the reading
  constexpr double gaugeMinutes = 1;   // that the reading may be old
  const double reached = static_cast<double>(pct) + roundedAway + speed * gaugeMinutes;
  return (static_cast<double>(limit) - reached) / (speed * margin);
}

bool planHolds(const NightPlan& plan, const NightReading& reading) {
  constexpr double roundedAway = 1;
  const double since = (reading.now - plan.plannedAt) / 60;
  const auto gained = static_cast<double>(reading.pct - plan.pct);
  return plan.wakeAt > reading.now && since >= 0 && plan.undisturbed && plan.onAdapter == reading.onAdapter &&
         plan.adapterWatts == reading.adapterWatts && gained <= reading.fastest * (since + 1) + roundedAway;
}

void noteLoss(NightPlan& plan, std::int64_t pct) {
  plan.lost += std::max<std::int64_t>(plan.lastPct - pct, 0);
  plan.lastPct = pct;
}

std::optional<Gain> gainSince(const NightPlan& plan, const NightReading& reading) {
  const bool same = plan.onAdapter && reading.onAdapter && plan.adapterWatts == reading.adapterWatts;
  if (!same || !plan.undisturbed || reading.now < plan.plannedAt) return std::nullopt;
  const double awake = reading.uptime - plan.uptime;
  const double asleep = std::max(reading.now - plan.plannedAt - awake, 0.0);
  return Gain{.points = reading.pct - plan.pct + plan.lost, .minutes = asleep / 60};
}

BedtimePlan planBedtime(const BedtimeInputs& inputs) {
  constexpr std::int64_t noLimit = 100;
  const bool endless = inputs.band.upper >= noLimit;
  if (!inputs.limited || (endless && !inputs.onAdapter)) return BedtimePlan::leaveAlone;
  if (inputs.pct >= inputs.band.lower) return BedtimePlan::close;
  return endless ? BedtimePlan::leaveAlone : BedtimePlan::takeStep;
}

NightDecision decideNight(const NightInputs& inputs) {
  const double minutes = minutesBelow(inputs.band.upper, inputs.pct, inputs.speed);
  if (!inputs.onAdapter) return decideOnBattery(inputs, minutes);
  const bool near = minutes < static_cast<double>(shortestWait);
  if (near && inputs.mayStayAwake && !mayLeap(inputs)) return {.step = NightStep::stayAwake};
  if (inputs.wakesLeft < 1 || (near && shouldCloseNear(inputs))) return {.step = NightStep::close};
  return {.step = NightStep::wake, .minutes = wholeMinutes(minutes)};
}

ChargeState stateAtNight(const NightStateInputs& inputs) {
  const bool opens = inputs.wanted == ChargeState::allow && inputs.state == ChargeState::hold;
  const bool staysClosed = !inputs.onAdapter || inputs.pct >= inputs.lower;
  return opens && staysClosed ? ChargeState::hold : inputs.wanted;
}

}  // namespace brisko
