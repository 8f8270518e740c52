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
  std::array<double, 101> restVolts = {};  // of the pack
  double mAhPerPoint = 0;
};

// The second one publishes the current that the first one brings about.
void setCharge(Machine& machine, std::size_t percent) {
  for (int time = 0; time < 2; ++time)
    virtual_mac::apply(machine, {.kind = ChangeKind::charge, .number = static_cast<double>(percent)});
}

Charger chargerOf(Machine machine) {
  constexpr double strongWatts = 300;
  virtual_mac::apply(machine, {.kind = ChangeKind::plug, .number = strongWatts});
  virtual_mac::apply(machine, {.kind = ChangeKind::load, .number = 0.1});
  Charger charger;
  charger.mAhPerPoint = machine.battery.fullMAh * machine.battery.shownFull / 100;
  for (std::size_t percent = 0; percent <= 100; ++percent) {
    setCharge(machine, percent);
    const auto current = static_cast<double>(machine.gauge.currentMA);
    charger.watts[percent] = current * static_cast<double>(machine.gauge.voltageMV) / 1e6;
    charger.pointsPerSecond[percent] = current / 3600 / charger.mAhPerPoint;
  }
  virtual_mac::apply(machine, {.kind = ChangeKind::unplug});
  for (std::size_t percent = 0; percent <= 100; ++percent) {
    setCharge(machine, percent);
    charger.restVolts[percent] = static_cast<double>(machine.gauge.voltageMV) / 1000;
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

// When the values that were seen at this moment were published.
double publishedBy(double time, double publication) { return time - std::fmod(time - publication, 60); }

// Whether the values of this moment were published in the sleep that ended just before it.
bool isFromSleep(double time, double publication, const std::vector<SleepSpan>& sleeps) {
  return sleepAt(sleeps, time) == nullptr && sleepAt(sleeps, publishedBy(time, publication)) != nullptr;
}

// The first moments after a change, in which the current still moves.
constexpr double settling = 5;  // seconds

// A Mac that sleeps takes next to nothing, so what reaches its battery is what the adapter gives. None where
// it did not charge asleep.
std::optional<double> adapterFromSleep(const Trace& trace, double publication, double from, double until,
                                       const std::vector<SleepSpan>& sleeps, const Charger& charger,
                                       double usualWatts) {
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
  if (asleep <= 1) return std::nullopt;
  return std::min(std::max(asleep + sleepWatts, most) / virtual_mac::adapterShare, usualWatts);
}

// The load just before the adapter came, and what charges the battery just after it came, are all that the
// adapter gives, if the charger takes less than it could.
std::optional<double> adapterFromPlugging(const Trace& trace, double publication, double from, double until,
                                          const std::vector<SleepSpan>& sleeps, const Charger& charger) {
  constexpr double nearby = 360;  // seconds
  constexpr double noPower = 0.3;
  std::optional<double> load;
  for (const Sighting& sighting : trace.sightings) {
    if (!sighting.watts || sighting.time < from - nearby) continue;
    const double published = publishedBy(sighting.time, publication);
    if (sighting.time >= until || published > from + nearby) break;
    const bool isAwake = sleepAt(sleeps, published) == nullptr;
    if (published < from) {
      load = isAwake && *sighting.watts < 0 ? std::optional(-*sighting.watts) : std::nullopt;
    } else if (published >= from + settling && load) {
      const bool charges = isAwake && sighting.state == ChargeState::allow && *sighting.watts > noPower;
      const bool takesAll = *sighting.watts >= almost * chargerWatts(charger, sighting.percent);
      if (!charges || takesAll || sighting.percent >= taperPercent) return std::nullopt;
      return (*load + *sighting.watts) / virtual_mac::adapterShare;
    }
  }
  return std::nullopt;
}

// The Mac's own one, if nothing shows another.
double adapterIn(const Trace& trace, double publication, double from, double until,
                 const std::vector<SleepSpan>& sleeps, const Charger& charger, double usualWatts) {
  if (const auto asleep = adapterFromSleep(trace, publication, from, until, sleeps, charger, usualWatts))
    return *asleep;
  const auto awake = adapterFromPlugging(trace, publication, from, until, sleeps, charger);
  return std::min(awake.value_or(usualWatts), usualWatts);
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
  bool atMost;                      // the load is not higher, that is all
  std::size_t stretch;              // between two changes
  std::optional<double> from = {};  // since when, if that is known
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

std::optional<LoadReading> loadReading(const Sighting& sighting, std::size_t stretch, const Charger& charger,
                                       double adapterWatts) {
  if (adapterSuffices(sighting))
    return LoadReading{sighting.time, adapterWatts * virtual_mac::adapterShare, true, stretch};
  const auto load = loadIn(sighting, charger, adapterWatts);
  if (!load) return std::nullopt;
  return LoadReading{sighting.time, *load, false, stretch};
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

// The power of a sample is that of the moment at which the gauge last published, and so are the adapter and
// the state that go with it.
std::vector<LoadReading> loadReadings(const ReportedDays& days, const std::vector<double>& changes,
                                      const Charger& charger, const std::vector<PlugEvent>& plugs,
                                      const std::optional<LoadByHour>& hours) {
  const double publication = publicationSecond(days.trace);
  const auto& sightings = days.trace.sightings;
  std::vector<LoadReading> readings;
  for (auto sighting = sightings.begin(); sighting != sightings.end(); ++sighting) {
    if (!sighting->watts) continue;
    const double published = publishedBy(sighting->time, publication);
    const auto next = std::upper_bound(changes.begin(), changes.end(), published);
    if (next == changes.begin() || published - *std::prev(next) < settling) continue;
    auto then = sighting;
    while (then != sightings.begin() && then->time > published) --then;
    Sighting moment = *then;
    moment.time = published;
    moment.watts = sighting->watts;
    const auto stretch = static_cast<std::size_t>(next - changes.begin());
    const double adapterWatts = adapterAt(plugs, published);
    if (hours && !showsLoad(moment, charger)) {
      const double spare = adapterWatts * virtual_mac::adapterShare - std::max(*moment.watts, 0.0);
      const double usual = hours->at(hourOf(published));
      readings.push_back({published, std::max(std::min(usual, spare), leastLoad), false, stretch});
    } else if (const auto reading = loadReading(moment, stretch, charger, adapterWatts)) {
      readings.push_back(*reading);
    }
  }
  return readings;
}

// --- The load without a history

constexpr double nearHistory = 400;  // seconds; the history has a line every 300 s

// Summaries without a history show no power, but every change of the percentage: those of one stretch, far
// from all that the history has.
struct SilentRun {
  std::size_t stretch;
  std::vector<Sighting> sightings;
};

std::vector<SilentRun> silentRuns(const ReportedDays& days, const std::vector<double>& changes) {
  const auto& sightings = days.trace.sightings;
  std::vector<double> powers;
  for (const Sighting& sighting : sightings) {
    if (sighting.watts) powers.push_back(sighting.time);
  }
  std::vector<SilentRun> runs;
  for (const Sighting& sighting : sightings) {
    const auto power = std::lower_bound(powers.begin(), powers.end(), sighting.time - nearHistory);
    if (power != powers.end() && *power <= sighting.time + nearHistory) continue;
    const auto next = std::upper_bound(changes.begin(), changes.end(), sighting.time);
    const auto stretch = static_cast<std::size_t>(next - changes.begin());
    if (stretch == 0) continue;
    if (runs.empty() || runs.back().stretch != stretch) runs.push_back({stretch, {}});
    runs.back().sightings.push_back(sighting);
  }
  return runs;
}

// The power that moved the charge from one sighting to the other.
double wattsBetween(const Sighting& from, const Sighting& until, const Charger& charger) {
  const auto points = static_cast<double>(until.percent - from.percent);
  const double milliamperes = points * charger.mAhPerPoint / (until.time - from.time) * 3600;
  const auto percent = static_cast<std::size_t>(std::clamp<std::int64_t>(until.percent, 0, 100));
  return milliamperes * charger.restVolts[percent] / 1000;
}

// The charge moves by whole points, once a minute.
bool showsPower(const Sighting& from, const Sighting& until) {
  const double seconds = until.time - from.time;
  return seconds >= 600 || (seconds >= 240 && std::abs(until.percent - from.percent) >= 3);
}

// The load from how the percentage moves between two of its changes. Where it does not move for ten minutes,
// no power flows.
void addReadings(const SilentRun& run, double begin, const Charger& charger, double adapterWatts,
                 std::vector<LoadReading>& readings) {
  double since = begin;
  const auto add = [&](const Sighting& from, Sighting until, bool isShort = false) {
    constexpr double shortest = 120;
    if (isShort ? until.time - from.time < shortest : !showsPower(from, until)) return false;
    until.watts = wattsBetween(from, until, charger);
    if (auto reading = loadReading(until, run.stretch, charger, adapterWatts)) {
      reading->from = since;
      readings.push_back(*reading);
    }
    since = until.time;
    return true;
  };
  const Sighting* from = &run.sightings.front();
  const Sighting* before = from;
  const Sighting* edge = nullptr;  // the latest sighting with another percentage than the one before
  for (const Sighting& sighting : run.sightings) {
    if (sighting.percent != before->percent) {
      // What lies before the first edge shows power only where nothing moved.
      if (edge == nullptr) static_cast<void>(add(*from, *before));
      if (edge == nullptr || add(*from, sighting)) from = &sighting;
      edge = &sighting;
    }
    before = &sighting;
  }
  // At the end a rough value is better than the one before.
  if (edge != nullptr && edge != from && add(*from, *edge, true)) from = edge;
  if (edge == nullptr || edge == from) static_cast<void>(add(*from, *before));
}

std::vector<LoadReading> silentReadings(const ReportedDays& days, const std::vector<double>& changes,
                                        const Charger& charger, const std::vector<PlugEvent>& plugs) {
  std::vector<LoadReading> readings;
  for (const SilentRun& run : silentRuns(days, changes)) {
    const double first = run.sightings.front().time;
    const double change = changes[run.stretch - 1];
    addReadings(run, first - change > nearHistory ? first : change, charger, adapterAt(plugs, first),
                readings);
  }
  return readings;
}

// --- The temperature

constexpr double warmthOfWork = 5;  // °C that a working Mac adds to its surroundings

bool isFirstAfter(const SleepSpan& sleep, const Sighting& sighting) {
  constexpr double longestLead = 10;  // seconds from the wake to what the daemon writes first
  return sighting.time - sleep.until <= longestLead;
}

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
  const std::vector<double> changes = contextChanges(days, plugs, sleeps);
  const Charger charger = chargerOf(machine);
  auto readings = loadReadings(days, changes, charger, plugs, hours);
  for (const LoadReading& reading : silentReadings(days, changes, charger, plugs))
    readings.push_back(reading);
  std::stable_sort(readings.begin(), readings.end(),
                   [](const LoadReading& one, const LoadReading& other) { return one.time < other.time; });
  std::vector<DatedAction> actions;
  double now = -1;
  const LoadReading* before = nullptr;
  for (const LoadReading& reading : readings) {
    const bool isKnown = !reading.atMost || now > reading.watts;
    const double watts = !isKnown ? now : reading.atMost ? std::min(reading.watts / 10, 3.0) : reading.watts;
    const bool continues = before != nullptr && before->stretch == reading.stretch;
    const double from = reading.from ? *reading.from
                        : continues  ? (before->time + reading.time) / 2
                                     : changes[reading.stretch - 1];
    if (std::abs(watts - now) >= worthAChange) {
      actions.push_back({from, measured("load", ChangeKind::load, watts)});
      now = watts;
    }
    before = &reading;
  }
  return actions;
}

std::vector<DatedAction> temperatureActions(const ReportedDays& days, const std::vector<SleepSpan>& sleeps) {
  constexpr double worthAChange = 0.2;  // °C
  constexpr double worthMoving = 1;     // °C, of the surroundings
  constexpr double longestDrift = 120;  // seconds
  std::vector<DatedAction> actions;
  double surroundings = -1000;
  const Sighting* before = nullptr;
  double set = -1000;
  auto sleep = sleeps.begin();
  for (const Sighting& sighting : days.trace.sightings) {
    if (!sighting.temperatureC) continue;
    const double temperature = *sighting.temperatureC;
    // The sleeping battery has cooled down in its own way. What the daemon sees first when it wakes is what
    // it saw next; where it wrote nothing, it saw nothing new.
    for (; sleep != sleeps.end() && sleep->until <= sighting.time; ++sleep) {
      const double seen =
          isFirstAfter(*sleep, sighting) || before == nullptr ? temperature : *before->temperatureC;
      actions.push_back({sleep->until, measured("temperature", ChangeKind::temperature, seen)});
      set = seen;
    }
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
