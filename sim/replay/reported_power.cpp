#include "sim/replay/reported_power.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>
#include <map>
#include <optional>

namespace brisko::lab {
namespace {

using virtual_mac::ChangeKind;
using virtual_mac::Machine;

// What the charger takes at each percentage, with an adapter that never is too weak.
struct Charger {
  std::array<double, 101> watts = {};
  std::array<double, 101> pointsPerSecond = {};
};

Charger chargerOf(Machine machine) {
  constexpr double strongWatts = 300;
  virtual_mac::apply(machine, {.kind = ChangeKind::plug, .number = strongWatts});
  virtual_mac::apply(machine, {.kind = ChangeKind::load, .number = 0.1});
  Charger charger;
  const double mAhPerPoint = machine.battery.fullMAh * machine.battery.shownFull / 100;
  for (std::size_t percent = 0; percent <= 100; ++percent) {
    // The second one publishes the current that the first one brings about.
    for (int time = 0; time < 2; ++time)
      virtual_mac::apply(machine, {.kind = ChangeKind::charge, .number = static_cast<double>(percent)});
    const auto current = static_cast<double>(machine.gauge.currentMA);
    charger.watts[percent] = current * static_cast<double>(machine.gauge.voltageMV) / 1e6;
    charger.pointsPerSecond[percent] = current / 3600 / mAhPerPoint;
  }
  return charger;
}

// --- The adapter

// Charging from one percentage to another.
double secondsOfCharge(const Charger& charger, std::int64_t from, std::int64_t until) {
  constexpr double slowest = 1e-4;
  double seconds = 0;
  for (std::int64_t percent = std::max<std::int64_t>(from, 0); percent < std::min<std::int64_t>(until, 100);
       ++percent)
    seconds += 1 / std::max(charger.pointsPerSecond[static_cast<std::size_t>(percent)], slowest);
  return seconds;
}

PlugEvent plugBetween(const Sighting& before, const Sighting& after, const std::vector<SleepSpan>& sleeps,
                      const Charger& charger) {
  constexpr std::int64_t worthWorkingOut = 2;  // percent
  PlugEvent event{.time = after.time, .plugged = *after.plugged};
  const SleepSpan* sleep = sleepAt(sleeps, after.time - 8);
  if (sleep == nullptr || before.time > sleep->from + 120) return event;
  event.time = sleep->until;
  if (!event.plugged || after.percent - before.percent < worthWorkingOut) return event;
  const double seconds = secondsOfCharge(charger, before.percent, after.percent);
  event.time = std::max(after.time - seconds, sleep->from + 10);
  event.unnoticed = true;
  return event;
}

constexpr double leastLoad = 0.1;          // W
constexpr double almost = 0.9;             // of what the charger takes
constexpr std::int64_t taperPercent = 88;  // from there on it takes less and less

double chargerWatts(const Charger& charger, std::int64_t percent) {
  return charger.watts[static_cast<std::size_t>(std::clamp<std::int64_t>(percent, 0, 100))];
}

// Whether the values of this moment were published in the sleep that ended just before it.
bool isFromSleep(double time, double publication, const std::vector<SleepSpan>& sleeps) {
  const double published = time - std::fmod(time - publication, 60);
  return sleepAt(sleeps, time) == nullptr && sleepAt(sleeps, published) != nullptr;
}

// A Mac that sleeps takes next to nothing, so what reaches its battery is what the adapter gives.
double adapterIn(const Trace& trace, double publication, double from, double until,
                 const std::vector<SleepSpan>& sleeps, const Charger& charger, double usualWatts) {
  constexpr double sleepWatts = 0.1;
  double asleep = 0;
  double most = 0;
  for (const Sighting& sighting : trace.sightings) {
    if (sighting.time < from || sighting.time >= until || sighting.plugged != true) continue;
    const double watts = sighting.watts.value_or(0);
    most = std::max(most, watts);
    const bool charges = sighting.state == ChargeState::allow && sighting.percent < taperPercent;
    if (charges && isFromSleep(sighting.time, publication, sleeps)) {
      // A stronger one gives the charger all that it takes.
      if (watts >= almost * chargerWatts(charger, sighting.percent)) return usualWatts;
      asleep = std::max(asleep, watts);
    }
  }
  if (asleep <= 1) return usualWatts;
  return std::min(std::max(asleep + sleepWatts, most) / virtual_mac::adapterShare, usualWatts);
}

// --- The load

// What the battery and the adapter do from a moment on.
struct Context {
  double from;
  bool plugged;
  ChargeState state;
};

std::vector<double> contextChanges(const ReportedDays& days, const std::vector<PlugEvent>& plugs,
                                   const std::vector<SleepSpan>& sleeps) {
  std::vector<double> changes{days.begin()};
  for (const PlugEvent& plug : plugs) changes.push_back(plug.time);
  for (const SleepSpan& sleep : sleeps) {
    changes.push_back(sleep.from);
    changes.push_back(sleep.until);
  }
  for (const LoggedLine& line : days.trace.lines) {
    if (isStart(line.text)) changes.push_back(line.time);
  }
  const Sighting* before = nullptr;
  for (const Sighting& sighting : days.trace.sightings) {
    if (before != nullptr && before->state != sighting.state) changes.push_back(sighting.time);
    before = &sighting;
  }
  std::sort(changes.begin(), changes.end());
  return changes;
}

struct LoadReading {
  double time;
  double watts;
  bool atMost;          // the load is not higher, that is all
  std::size_t stretch;  // between two changes
};

// A battery that gives nothing beside an adapter: the adapter alone feeds the Mac.
bool adapterSuffices(const Sighting& sighting) {
  constexpr double noPower = 0.05;
  return sighting.plugged == true && sighting.state != ChargeState::discharge &&
         std::abs(*sighting.watts) < noPower;
}

// The load that the power of the battery shows; none where it shows nothing.
std::optional<double> loadIn(const Sighting& sighting, const Charger& charger, double adapterWatts) {
  constexpr double noPower = 0.3;
  const double watts = *sighting.watts;
  const double available = adapterWatts * virtual_mac::adapterShare;
  if (sighting.state == ChargeState::discharge || sighting.plugged == false)
    return watts < -0.05 ? std::optional(-watts) : std::nullopt;
  if (watts < -noPower) return available - watts;
  const bool charges = sighting.state == ChargeState::allow && watts > noPower;
  if (!charges || sighting.percent >= taperPercent) return std::nullopt;
  if (watts >= almost * chargerWatts(charger, sighting.percent)) return std::min(available / 10, 3.0);
  return std::max(available - watts, leastLoad);
}

double adapterAt(const std::vector<PlugEvent>& plugs, double time) {
  double watts = 0;
  for (const PlugEvent& plug : plugs) {
    if (plug.time <= time && plug.plugged) watts = plug.adapterWatts;
  }
  return watts;
}

// Whether the power of the battery shows the load at all.
bool showsLoad(const Sighting& sighting, const Charger& charger) {
  constexpr double noPower = 0.3;
  const double watts = *sighting.watts;
  if (sighting.plugged == false || sighting.state == ChargeState::discharge || watts < -noPower) return true;
  return watts > noPower && sighting.percent < taperPercent &&
         watts < almost * chargerWatts(charger, sighting.percent);
}

std::size_t hourOf(double time) {
  const auto seconds = static_cast<std::time_t>(time);
  std::tm parts{};
  ::localtime_r(&seconds, &parts);
  return static_cast<std::size_t>(parts.tm_hour);
}

double medianOf(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

std::vector<LoadReading> loadReadings(const ReportedDays& days, const std::vector<double>& changes,
                                      const Charger& charger, const std::vector<PlugEvent>& plugs,
                                      const std::optional<LoadByHour>& hours) {
  // The gauge publishes once a minute, so right after a change a sample shows the power before it.
  constexpr double stale = 62;
  std::vector<LoadReading> readings;
  for (const Sighting& sighting : days.trace.sightings) {
    if (!sighting.watts) continue;
    const auto next = std::upper_bound(changes.begin(), changes.end(), sighting.time);
    if (next == changes.begin() || sighting.time - *std::prev(next) < stale) continue;
    const double adapterWatts = adapterAt(plugs, sighting.time);
    const auto stretch = static_cast<std::size_t>(next - changes.begin());
    if (hours && !showsLoad(sighting, charger)) {
      const double spare = adapterWatts * virtual_mac::adapterShare - std::max(*sighting.watts, 0.0);
      const double usual = hours->at(hourOf(sighting.time));
      readings.push_back({sighting.time, std::max(std::min(usual, spare), leastLoad), false, stretch});
    } else if (adapterSuffices(sighting)) {
      readings.push_back({sighting.time, adapterWatts * virtual_mac::adapterShare, true, stretch});
    } else if (const auto load = loadIn(sighting, charger, adapterWatts)) {
      readings.push_back({sighting.time, *load, false, stretch});
    }
  }
  return readings;
}

// --- The temperature

constexpr double warmthOfWork = 5;  // °C that a working Mac adds to its surroundings

}  // namespace

// The gauge publishes once a minute. Most changes of the percentage are seen in the same second of a minute.
double publicationSecond(const Trace& trace) {
  std::map<std::int64_t, int> seconds;
  const Sighting* before = nullptr;
  for (const Sighting& sighting : trace.sightings) {
    const bool changed = before != nullptr && before->percent != sighting.percent;
    if (changed) ++seconds[std::llround(sighting.time) % 60];
    before = &sighting;
  }
  const auto most = std::max_element(seconds.begin(), seconds.end(), [](const auto& one, const auto& other) {
    return one.second < other.second;
  });
  return most == seconds.end() ? 0 : static_cast<double>(most->first);
}

LoadByHour loadByHour(const Trace& trace, const Machine& machine) {
  constexpr double noPower = 0.05;
  std::array<std::vector<double>, 24> readings;
  std::vector<double> all;
  for (const Sighting& sighting : trace.sightings) {
    const bool onBattery = sighting.plugged == false || sighting.state == ChargeState::discharge;
    if (!onBattery || sighting.watts.value_or(0) > -noPower) continue;
    readings.at(hourOf(sighting.time)).push_back(-*sighting.watts);
    all.push_back(-*sighting.watts);
  }
  const double usual = all.empty() ? machine.surroundings.loadWatts : medianOf(all);
  LoadByHour hours{};
  for (std::size_t hour = 0; hour < hours.size(); ++hour)
    hours.at(hour) = readings.at(hour).empty() ? usual : medianOf(readings.at(hour));
  return hours;
}

std::vector<PlugEvent> plugEventsOf(const ReportedDays& days, const std::vector<SleepSpan>& sleeps,
                                    const Machine& machine) {
  const Charger charger = chargerOf(machine);
  std::vector<PlugEvent> events;
  const Sighting* before = nullptr;
  for (const Sighting& sighting : days.trace.sightings) {
    if (!sighting.plugged) continue;
    if (before == nullptr) {
      events.push_back({.time = days.begin(), .plugged = *sighting.plugged});
    } else if (*before->plugged != *sighting.plugged) {
      events.push_back(plugBetween(*before, sighting, sleeps, charger));
    }
    before = &sighting;
  }
  const double publication = publicationSecond(days.trace);
  for (std::size_t index = 0; index < events.size(); ++index) {
    const double until = index + 1 < events.size() ? events[index + 1].time : days.end() + 1;
    events[index].adapterWatts =
        adapterIn(days.trace, publication, events[index].time, until, sleeps, charger, machine.adapter.watts);
  }
  return events;
}

std::vector<DatedAction> loadActions(const ReportedDays& days, const std::vector<PlugEvent>& plugs,
                                     const std::vector<SleepSpan>& sleeps, const Machine& machine,
                                     const std::optional<LoadByHour>& hours) {
  constexpr double worthAChange = 0.1;  // W: the history's precision
  constexpr double publicationLag = 30;
  const std::vector<double> changes = contextChanges(days, plugs, sleeps);
  const auto readings = loadReadings(days, changes, chargerOf(machine), plugs, hours);
  std::vector<DatedAction> actions;
  double now = -1;
  const LoadReading* before = nullptr;
  for (const LoadReading& reading : readings) {
    const bool isKnown = !reading.atMost || now > reading.watts;
    const double watts = !isKnown ? now : reading.atMost ? std::min(reading.watts / 10, 3.0) : reading.watts;
    const bool continues = before != nullptr && before->stretch == reading.stretch;
    const double from =
        continues ? (before->time + reading.time) / 2 - publicationLag : changes[reading.stretch - 1];
    if (std::abs(watts - now) >= worthAChange) {
      actions.push_back({from, measured("load", ChangeKind::load, watts)});
      now = watts;
    }
    before = &reading;
  }
  return actions;
}

std::vector<DatedAction> temperatureActions(const ReportedDays& days) {
  constexpr double worthAChange = 0.2;  // °C
  constexpr double worthMoving = 1;     // °C, of the surroundings
  constexpr double longestDrift = 120;  // seconds
  std::vector<DatedAction> actions;
  double surroundings = -1000;
  const Sighting* before = nullptr;
  double set = -1000;
  for (const Sighting& sighting : days.trace.sightings) {
    if (!sighting.temperatureC) continue;
    const double temperature = *sighting.temperatureC;
    const bool turns = before != nullptr && before->hot != sighting.hot;
    const bool drifts = before != nullptr && sighting.time - before->time > longestDrift;
    if (!turns && !drifts && std::abs(temperature - set) < worthAChange) continue;
    if (std::abs(temperature - warmthOfWork - surroundings) >= worthMoving) {
      surroundings = temperature - warmthOfWork;
      actions.push_back({sighting.time, measured("ambient", ChangeKind::ambient, surroundings)});
    }
    actions.push_back({sighting.time, measured("temperature", ChangeKind::temperature, temperature)});
    set = temperature;
    before = &sighting;
  }
  return actions;
}

}  // namespace brisko::lab
