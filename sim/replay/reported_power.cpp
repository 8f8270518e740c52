#include "sim/replay/reported_power.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <ctime>
#include <map>
#include <optional>

#include "policy/heat.h"

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

// In order of time.
ChargeState stateAt(const std::vector<StateChange>& states, double time) {
  const auto after =
      std::upper_bound(states.begin(), states.end(), time,
                       [](double moment, const StateChange& change) { return moment < change.time; });
  return after == states.begin() ? states.front().state : std::prev(after)->state;
}

// --- The adapter

constexpr std::int64_t taperPercent = 88;  // from there on the charger takes less and less
constexpr double unlimited = 1000;         // W: more than any charger takes

// Charging from one percentage to another, with at most this power.
double secondsOfCharge(const Charger& charger, std::int64_t from, std::int64_t until, double mostWatts) {
  constexpr double slowest = 1e-4;
  double seconds = 0;
  for (std::int64_t percent = std::max<std::int64_t>(from, 0); percent < std::min<std::int64_t>(until, 100);
       ++percent) {
    const auto index = static_cast<std::size_t>(percent);
    const double share = mostWatts / std::max(charger.watts[index], mostWatts);
    seconds += 1 / std::max(charger.pointsPerSecond[index] * share, slowest);
  }
  return seconds;
}

// Between two sightings, in a span in which nobody saw what happened, if there is one.
struct UnseenPlug {
  const Sighting* before = nullptr;
  const Sighting* after = nullptr;
  std::optional<Span> sleep = {};
  std::optional<Span> outage = {};
  bool chargesAsleep = false;
};

UnseenPlug plugBetween(const Sighting& before, const Sighting& after, const std::vector<SleepSpan>& sleeps,
                       const std::vector<Span>& outages, const std::vector<StateChange>& states) {
  UnseenPlug plug{.before = &before, .after = &after};
  for (const Span& outage : outages) {
    const bool liesBetween = outage.until > before.time && outage.from <= after.time &&
                             outage.until <= after.time + longestStartUp;
    if (liesBetween) plug.outage = outage;
  }
  const SleepSpan* sleep = sleepAt(sleeps, after.time - 8);
  if (plug.outage || sleep == nullptr || before.time > sleep->from + 120) return plug;
  plug.sleep = Span{sleep->from, sleep->until};
  plug.chargesAsleep = stateAt(states, sleep->from + 1) == ChargeState::allow;
  return plug;
}

// The latest moment at which an adapter can have come that has brought this charge since.
double plugTime(const UnseenPlug& plug, double from, const Charger& charger, double mostWatts) {
  constexpr double untilFull = 3600;  // seconds from the first 100 % on
  double seconds = secondsOfCharge(charger, plug.before->percent, plug.after->percent, mostWatts);
  if (plug.after->percent >= 100) seconds += untilFull;
  return std::max(plug.after->time - seconds, from + 10);
}

// With the adapter the charge would have risen for the whole sleep; none when it did.
std::optional<double> unplugTime(const UnseenPlug& plug, const Charger& charger, double mostWatts) {
  const std::int64_t reached = plug.after->percent;
  if (!plug.chargesAsleep || reached >= taperPercent) return std::nullopt;
  const auto after = [&](std::int64_t percent) {
    return plug.sleep->from + secondsOfCharge(charger, plug.before->percent, percent, mostWatts);
  };
  if (after(reached + 2) >= plug.sleep->until) return std::nullopt;
  return (after(reached) + after(reached + 1)) / 2;
}

void setTime(PlugEvent& event, const UnseenPlug& plug, const Charger& charger, double mostWatts) {
  constexpr std::int64_t worthWorkingOut = 2;  // percent
  const bool charged = plug.after->percent - plug.before->percent >= worthWorkingOut;
  event.time = plug.sleep ? plug.sleep->until : plug.after->time;
  event.unnoticed = false;
  if (event.plugged && charged && plug.outage)
    event.time = plugTime(plug, plug.outage->from, charger, mostWatts);
  if (!plug.sleep) return;
  if (event.plugged && charged) {
    event.time = plugTime(plug, plug.sleep->from, charger, mostWatts);
    event.unnoticed = true;
  } else if (!event.plugged) {
    const auto time = unplugTime(plug, charger, mostWatts);
    event.unnoticed = time.has_value();
    event.time = time.value_or(event.time);
  }
}

constexpr double leastLoad = 0.1;  // W
constexpr double almost = 0.9;     // of what the charger takes

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

constexpr double sleepWatts = 0.1;

// A Mac that sleeps takes next to nothing, so what reaches its battery is what the adapter gives. None where
// it did not charge asleep.
std::optional<double> adapterFromSleep(const Trace& trace, double publication, double from, double until,
                                       const std::vector<SleepSpan>& sleeps, const Charger& charger,
                                       double usualWatts) {
  const std::vector<StateChange> states = statesOf(trace);
  double asleep = 0;
  double most = 0;
  for (const Sighting& sighting : trace.sightings) {
    if (sighting.time < from || sighting.time >= until || sighting.plugged != true) continue;
    const double watts = sighting.watts.value_or(0);
    most = std::max(most, watts);
    // The charge may have been stopped in the moment of the wake.
    const bool charges = stateAt(states, publishedBy(sighting.time, publication)) == ChargeState::allow &&
                         sighting.percent < taperPercent;
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

// Those at which somebody may have begun to use the Mac otherwise.
std::vector<double> changesOfUse(const ReportedDays& days, const std::vector<PlugEvent>& plugs,
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
  std::sort(changes.begin(), changes.end());
  return changes;
}

// And those at which the daemon changed what the battery does.
std::vector<double> contextChanges(const ReportedDays& days, std::vector<double> changes) {
  ChargeState state = days.trace.sightings.front().state;
  for (const StateChange& change : statesOf(days.trace)) {
    if (change.state != state) changes.push_back(change.time);
    state = change.state;
  }
  std::sort(changes.begin(), changes.end());
  return changes;
}

enum class Bound : std::uint8_t {
  exact,
  atMost,
  atLeast,
  exhausted,  // at least all that the adapter gives, or something else stops the charge
};

struct LoadReading {
  double time;
  double watts;
  Bound bound;
  std::size_t stretch;              // between two changes
  std::optional<double> from = {};  // since when, if that is known
  std::int64_t percent = 0;         // that the gauge showed, without a meaning where `from` is known …
  double batteryWatts = 0;          // … and what flowed into the battery
};

// A battery that gives nothing beside an adapter: the adapter alone feeds the Mac.
bool adapterSuffices(const Sighting& sighting) {
  constexpr double noPower = 0.05;
  return sighting.plugged == true && sighting.state != ChargeState::discharge &&
         std::abs(*sighting.watts) < noPower;
}

// An adapter that gives the Mac all it has: an empty battery adds nothing, and charges at once when something
// is left for it.
bool adapterIsExhausted(const Sighting& sighting) {
  return adapterSuffices(sighting) && sighting.state == ChargeState::allow && sighting.percent == 0;
}

// The load that the power of the battery shows; none where it shows nothing.
std::optional<double> loadIn(const Sighting& sighting, double available) {
  constexpr double noPower = 0.3;
  constexpr double clearlyCharging = 5;
  const double watts = *sighting.watts;
  if (sighting.state == ChargeState::discharge || sighting.plugged == false)
    return watts < -0.05 ? std::optional(-watts) : std::nullopt;
  if (watts < -noPower) return available - watts;
  // It may charge in a hold too, when the stop has no effect.
  const bool charges = watts > (sighting.state == ChargeState::allow ? noPower : clearlyCharging);
  if (!charges || sighting.percent >= taperPercent) return std::nullopt;
  return std::max(available - watts, leastLoad);
}

// Of what the charger takes, which falls within each percent. How the percentage moves shows it less well.
constexpr double everythingMeasured = 0.98;
constexpr double everythingEstimated = 0.85;

std::optional<LoadReading> loadReading(const Sighting& sighting, std::size_t stretch, const Charger& charger,
                                       double adapterWatts, double everything) {
  const double available = adapterWatts * virtual_mac::adapterShare;
  if (adapterIsExhausted(sighting)) return LoadReading{sighting.time, available, Bound::exhausted, stretch};
  if (adapterSuffices(sighting)) return LoadReading{sighting.time, available, Bound::atMost, stretch};
  const auto load = loadIn(sighting, available);
  if (!load) return std::nullopt;
  const bool takesAll = *sighting.watts >= everything * chargerWatts(charger, sighting.percent);
  return LoadReading{sighting.time, *load, takesAll ? Bound::atMost : Bound::exact, stretch};
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

// In a dark wake the Mac takes only a part of its load.
bool isInDarkWake(const std::vector<SleepSpan>& sleeps, double time) {
  const auto after =
      std::upper_bound(sleeps.begin(), sleeps.end(), time,
                       [](double moment, const SleepSpan& sleep) { return moment < sleep.from; });
  if (after == sleeps.begin()) return false;
  const SleepSpan& before = *std::prev(after);
  return before.endsDark && time >= before.until && time <= before.until + before.darkSeconds;
}

// The power of a sample is that of the moment at which the gauge last published, and so are the adapter and
// the state that go with it. A sleeping Mac does not show the load that it has when it is awake.
std::vector<LoadReading> loadReadings(const ReportedDays& days, const std::vector<double>& changes,
                                      const Charger& charger, const std::vector<PlugEvent>& plugs,
                                      const std::vector<SleepSpan>& sleeps,
                                      const std::optional<LoadByHour>& hours) {
  const double publication = publicationSecond(days.trace);
  const auto& sightings = days.trace.sightings;
  const std::vector<StateChange> states = statesOf(days.trace);
  std::vector<LoadReading> readings;
  for (auto sighting = sightings.begin(); sighting != sightings.end(); ++sighting) {
    if (!sighting->watts) continue;
    const double published = publishedBy(sighting->time, publication);
    const auto next = std::upper_bound(changes.begin(), changes.end(), published);
    if (next == changes.begin() || published - *std::prev(next) < settling) continue;
    if (sleepAt(sleeps, published) != nullptr) continue;
    auto then = sighting;
    while (then != sightings.begin() && then->time > published) --then;
    Sighting moment = *then;
    moment.time = published;
    moment.watts = sighting->watts;
    moment.state = stateAt(states, published);
    const auto stretch = static_cast<std::size_t>(next - changes.begin());
    const double adapterWatts = adapterAt(plugs, published);
    if (hours && !showsLoad(moment, charger)) {
      const double spare = adapterWatts * virtual_mac::adapterShare - std::max(*moment.watts, 0.0);
      const double usual = hours->at(hourOf(published));
      readings.push_back({published, std::max(std::min(usual, spare), leastLoad), Bound::exact, stretch});
      readings.back().percent = moment.percent;
      readings.back().batteryWatts = *moment.watts;
    } else if (auto reading = loadReading(moment, stretch, charger, adapterWatts, everythingMeasured)) {
      if (reading->bound == Bound::exact && isInDarkWake(sleeps, published)) reading->bound = Bound::atLeast;
      reading->percent = moment.percent;
      reading->batteryWatts = *moment.watts;
      readings.push_back(*reading);
    }
  }
  return readings;
}

// The load that the reading leaves, in watts.
double loadAfter(double before, bool mayHaveChanged, const LoadReading& reading) {
  constexpr double littleWork = 3;
  const bool fits =
      (reading.bound == Bound::atMost && before <= reading.watts) ||
      (reading.bound != Bound::exact && reading.bound != Bound::atMost && before >= reading.watts);
  if (fits) return before;
  // A Mac that took far less than the adapter gives has some other reason not to charge.
  if (reading.bound == Bound::exhausted && before < reading.watts / 2 && !mayHaveChanged) return before;
  return reading.bound == Bound::atMost ? std::min(reading.watts / 10, littleWork) : reading.watts;
}

// When the power changed from that of one reading to that of the next: in the middle, unless the points by
// which the charge moved show it better.
double changeBetween(const LoadReading& before, const LoadReading& reading, const Charger& charger) {
  constexpr double worthWorkingOut = 2;  // points between a change at once and one at the end
  const double seconds = reading.time - before.time;
  const auto percent = static_cast<std::size_t>(std::clamp<std::int64_t>(reading.percent, 0, 100));
  const double joulesPerPoint = charger.mAhPerPoint * 3.6 * charger.restVolts[percent];
  const double gained = reading.batteryWatts - before.batteryWatts;
  if (reading.from || before.from || std::abs(gained) * seconds < worthWorkingOut * joulesPerPoint)
    return (before.time + reading.time) / 2;
  const auto points = static_cast<double>(reading.percent - before.percent);
  const double late = (points * joulesPerPoint - before.batteryWatts * seconds) / gained;
  return std::max(reading.time - std::max(late, settling), before.time);
}

// Whether the load may have changed since the reading before. Plugging the Mac in is no sign of that; a sleep
// is.
bool wasUsedOtherwise(const LoadReading* before, const LoadReading& reading,
                      const std::vector<double>& uses) {
  if (before == nullptr) return false;
  const auto first = std::upper_bound(uses.begin(), uses.end(), before->time);
  return std::upper_bound(first, uses.end(), reading.time) - first > 1;
}

// From when on the load is what the reading shows.
double beginningOf(const LoadReading& reading, const LoadReading* before, const std::vector<double>& changes,
                   const std::vector<double>& uses, const Charger& charger) {
  const bool continues = before != nullptr && before->stretch == reading.stretch;
  const double stretchBegin = changes[reading.stretch - 1];
  const double from =
      reading.from.value_or(continues ? changeBetween(*before, reading, charger) : stretchBegin);
  if (from != stretchBegin) return from;
  // Of what the daemon does the load does not depend.
  const double useBegin = *std::prev(std::upper_bound(uses.begin(), uses.end(), stretchBegin));
  return before == nullptr || before->time < useBegin ? useBegin : from;
}

// --- The load without a history

constexpr std::int64_t almostFull = 99;  // percent
constexpr double nearHistory = 400;      // seconds; the history has a line every 300 s

// Summaries without a history show no power, but every change of the percentage: those of one stretch, far
// from all that the history has.
struct SilentRun {
  std::size_t stretch;
  double begin;
  std::vector<Sighting> sightings;
};

bool isFed(const Sighting& sighting) {
  return sighting.plugged == true && sighting.state != ChargeState::discharge;
}

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
    if (runs.empty() || runs.back().stretch != stretch) runs.push_back({stretch, sighting.time, {}});
    // A full battery shows its last points for longer than the others.
    if (sighting.percent < almostFull || isFed(sighting)) runs.back().sightings.push_back(sighting);
  }
  std::erase_if(runs, [](const SilentRun& run) { return run.sightings.empty(); });
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
    if (auto reading = loadReading(until, run.stretch, charger, adapterWatts, everythingEstimated)) {
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
    const double first = run.begin;
    const double change = changes[run.stretch - 1];
    addReadings(run, first - change > nearHistory ? first : change, charger, adapterAt(plugs, first),
                readings);
  }
  return readings;
}

// --- The temperature

constexpr double longestPause = 700;  // seconds between two sightings of an awake Mac
constexpr double warmthOfWork = 5;    // °C that a working Mac adds to its surroundings

// Whether a pause for heat may begin or end at this temperature.
bool isNearALimit(double temperature, const std::vector<std::int64_t>& heatLimits) {
  constexpr double nearby = 1;
  return std::any_of(heatLimits.begin(), heatLimits.end(), [temperature](std::int64_t limit) {
    const double above = temperature - static_cast<double>(limit);
    return above > -heatRecovery - nearby && above < nearby;
  });
}

// The tenth of a degree that the daemon saw on this side of a limit: it may have been rounded to the limit.
double seenTemperature(const Sighting& sighting, const std::vector<std::int64_t>& heatLimits) {
  constexpr double tenth = 0.1;
  const double temperature = *sighting.temperatureC;
  for (const std::int64_t limit : heatLimits) {
    const double above = temperature - static_cast<double>(limit);
    if (!sighting.hot && std::abs(above) < tenth / 2) return temperature - tenth;
    if (sighting.hot && std::abs(above + heatRecovery) < tenth / 2) return temperature + tenth;
  }
  return temperature;
}

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

double capacityAtBeginning(const ReportedDays& days, const Machine& machine) {
  constexpr double longestGap = 330;   // seconds; the history has a line every 300 s
  constexpr std::int64_t enough = 10;  // points
  constexpr double precision = 0.2;    // of what power and percentage show together
  const Charger charger = chargerOf(machine);
  constexpr double leastCharge = 5;  // W
  const Sighting* first = nullptr;   // of a run in one direction, from a change of the percentage on
  const Sighting* before = nullptr;  // of the same run
  double milliampereSeconds = 0;
  std::optional<double> found;
  double mostPoints = 0;
  for (const Sighting& sighting : days.trace.sightings) {
    if (!sighting.watts || !sighting.inHistory) continue;
    const bool drains = sighting.plugged == false && *sighting.watts < -leastLoad && sighting.percent > 0 &&
                        sighting.percent < almostFull;
    const bool charges = isFed(sighting) && *sighting.watts > leastCharge && sighting.percent < taperPercent;
    const bool flows = drains || charges;
    const bool continues = flows && before != nullptr && (*before->watts < 0) == drains &&
                           sighting.time - before->time <= longestGap;
    const bool changes = continues && sighting.percent != before->percent;
    if (!continues) first = nullptr;
    if (continues && first != nullptr) {
      const double rest = charger.restVolts[static_cast<std::size_t>(sighting.percent)];
      const double volts = rest + machine.battery.resistanceOhm * *sighting.watts / rest;
      milliampereSeconds += *sighting.watts / volts * 1000 * (sighting.time - before->time);
    }
    if (changes && first == nullptr) {
      first = &sighting;
      milliampereSeconds = 0;
    }
    before = flows ? &sighting : nullptr;
    if (!changes || std::abs(sighting.percent - first->percent) < enough) continue;
    // The longer a run, the better its share. Where a later one shows another capacity, the first one ends.
    const auto points = static_cast<double>(sighting.percent - first->percent);
    const double share = milliampereSeconds / 3600 / points / charger.mAhPerPoint;
    if (found && std::abs(std::log(share / *found)) > precision) break;
    if (!found && std::abs(std::log(share)) <= precision) return 1;
    if (std::abs(points) < mostPoints) continue;
    found = share;
    mostPoints = std::abs(points);
  }
  return found.value_or(1);
}

std::vector<PlugEvent> plugEventsOf(const ReportedDays& days, const std::vector<SleepSpan>& sleeps,
                                    const Machine& machine) {
  const Charger charger = chargerOf(machine);
  const std::vector<Span> outages = outagesOf(days.trace, days.end());
  const std::vector<StateChange> states = statesOf(days.trace);
  std::vector<PlugEvent> events;
  std::vector<UnseenPlug> unseen;
  const Sighting* before = nullptr;
  for (const Sighting& sighting : days.trace.sightings) {
    if (!sighting.plugged) continue;
    if (before == nullptr || *before->plugged != *sighting.plugged) {
      unseen.push_back(before == nullptr ? UnseenPlug{}
                                         : plugBetween(*before, sighting, sleeps, outages, states));
      events.push_back({.time = days.begin(), .plugged = *sighting.plugged});
      if (before != nullptr) setTime(events.back(), unseen.back(), charger, unlimited);
    }
    before = &sighting;
  }
  const double publication = publicationSecond(days.trace);
  for (std::size_t index = 0; index < events.size(); ++index) {
    const double until = index + 1 < events.size() ? events[index + 1].time : days.end() + 1;
    events[index].adapterWatts =
        adapterIn(days.trace, publication, events[index].time, until, sleeps, charger, machine.adapter.watts);
  }
  // A weak adapter brings the charge more slowly.
  for (std::size_t index = 1; index < events.size(); ++index) {
    const double adapterWatts = events[events[index].plugged ? index : index - 1].adapterWatts;
    setTime(events[index], unseen[index], charger, adapterWatts * virtual_mac::adapterShare - sleepWatts);
  }
  return events;
}

std::vector<DatedAction> loadActions(const ReportedDays& days, const std::vector<PlugEvent>& plugs,
                                     const std::vector<SleepSpan>& sleeps, const Machine& machine,
                                     const std::optional<LoadByHour>& hours) {
  constexpr double worthAChange = 0.1;  // W: the history's precision
  const std::vector<double> uses = changesOfUse(days, plugs, sleeps);
  const std::vector<double> changes = contextChanges(days, uses);
  const Charger charger = chargerOf(machine);
  auto readings = loadReadings(days, changes, charger, plugs, sleeps, hours);
  for (const LoadReading& reading : silentReadings(days, changes, charger, plugs))
    readings.push_back(reading);
  std::stable_sort(readings.begin(), readings.end(),
                   [](const LoadReading& one, const LoadReading& other) { return one.time < other.time; });
  std::vector<DatedAction> actions;
  double now = machine.surroundings.loadWatts;
  const LoadReading* before = nullptr;
  for (const LoadReading& reading : readings) {
    const double watts = loadAfter(now, wasUsedOtherwise(before, reading, uses), reading);
    const double from = beginningOf(reading, before, changes, uses, charger);
    if (std::abs(watts - now) >= worthAChange) {
      actions.push_back({from, measured("load", ChangeKind::load, watts)});
      now = watts;
    }
    before = &reading;
  }
  return actions;
}

std::vector<DatedAction> temperatureActions(const ReportedDays& days, const std::vector<SleepSpan>& sleeps,
                                            const std::vector<std::int64_t>& heatLimits) {
  constexpr double worthAChange = 0.2;  // °C
  constexpr double worthMoving = 1;     // °C, of the surroundings
  constexpr double longestDrift = 120;  // seconds
  constexpr double drift = 24;          // seconds, near a limit
  std::vector<DatedAction> actions;
  double surroundings = -1000;
  const Sighting* before = nullptr;
  double set = -1000;
  double setAt = 0;
  auto sleep = sleeps.begin();
  const auto put = [&](double time, double temperature) {
    actions.push_back({time, measured("temperature", ChangeKind::temperature, temperature)});
    set = temperature;
    setAt = time;
  };
  for (const Sighting& sighting : days.trace.sightings) {
    if (!sighting.temperatureC) continue;
    const double temperature = seenTemperature(sighting, heatLimits);
    const bool isNear = isNearALimit(temperature, heatLimits);
    // The sleeping battery has cooled down in its own way. What the daemon sees first when it wakes is what
    // it saw next; where it wrote nothing, it saw nothing new.
    for (; sleep != sleeps.end() && sleep->until <= sighting.time; ++sleep)
      put(sleep->until, isFirstAfter(*sleep, sighting) || before == nullptr ? temperature : set);
    // Until the next sighting it stays what it was.
    if (isNear && before != nullptr && sighting.time - setAt < longestPause) {
      while (sighting.time - setAt > drift) put(setAt + drift, set);
    }
    const bool turns = before != nullptr && before->hot != sighting.hot;
    const bool drifts = before != nullptr && sighting.time - before->time > longestDrift;
    if (!turns && !drifts && !isNear && std::abs(temperature - set) < worthAChange) continue;
    if (std::abs(temperature - warmthOfWork - surroundings) >= worthMoving) {
      surroundings = temperature - warmthOfWork;
      actions.push_back({sighting.time, measured("ambient", ChangeKind::ambient, surroundings)});
    }
    put(sighting.time, temperature);
    before = &sighting;
  }
  return actions;
}

}  // namespace brisko::lab
