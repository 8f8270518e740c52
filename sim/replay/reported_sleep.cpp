#include "sim/replay/reported_sleep.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string_view>

namespace brisko::lab {
namespace {

// While the Mac is awake and the daemon keeps a history, a line is written at the latest after 300 s and one
// tick.
constexpr double longestSilence = 330;
// Longer wakes are somebody's at the Mac.
constexpr double longestDarkWake = 200;
constexpr double darkLoadWatts = 3.6;
// From the wake to what the daemon writes first.
constexpr double fullWakeLead = 2;
constexpr double darkWakeLead = 6;
// How long a dark wake lasts that left one line.
constexpr double darkSecondsOnAdapter = 45;
constexpr double darkSecondsOnBattery = 20;

// Somebody who pulls the adapter out closes the lid.
constexpr double sleepAfterUnplugging = 5;
// Nothing is written in the last minutes before a sleep in which nothing changes: it began somewhere in them.
constexpr double shortestWait = 5;
constexpr double longestWait = 100;

// A moment at which the daemon wrote something.
struct Trail {
  double time;
  const Sighting* sighting;  // null for a line of the log
  const LoggedLine* line;
};

std::vector<Trail> trailsOf(const Trace& trace) {
  std::vector<Trail> trails;
  for (const Sighting& sighting : trace.sightings) trails.push_back({sighting.time, &sighting, nullptr});
  for (const LoggedLine& line : trace.lines) trails.push_back({line.time, nullptr, &line});
  std::stable_sort(trails.begin(), trails.end(),
                   [](const Trail& one, const Trail& other) { return one.time < other.time; });
  return trails;
}

bool announcesSleep(const LoggedLine& line) {
  constexpr std::array beginnings{"veille à ", "réveil programmé dans ",
                                  "⚠️ impossible de programmer un réveil"};
  return std::any_of(beginnings.begin(), beginnings.end(),
                     [&](const char* beginning) { return line.text.starts_with(beginning); });
}

bool startsOrEndsDaemon(const Trail& trail) {
  return trail.line != nullptr && (isStart(trail.line->text) || isEnd(trail.line->text));
}

// What was written between two gaps.
struct Cluster {
  std::size_t first, last;  // trails
};

std::vector<Cluster> clustersOf(const std::vector<Trail>& trails) {
  std::vector<Cluster> clusters;
  for (std::size_t index = 0; index < trails.size(); ++index) {
    const bool begins = index == 0 || trails[index].time - trails[index - 1].time > longestSilence;
    if (begins) clusters.push_back({index, index});
    clusters.back().last = index;
  }
  return clusters;
}

// The last summary may come in the same second as the line that announces the sleep.
bool endsAnnounced(const std::vector<Trail>& trails, const Cluster& cluster) {
  constexpr double sameMoment = 3;
  for (std::size_t index = cluster.last + 1; index-- > cluster.first;) {
    if (trails[cluster.last].time - trails[index].time > sameMoment) return false;
    if (trails[index].line != nullptr && announcesSleep(*trails[index].line)) return true;
  }
  return false;
}

bool unplugsAtEnd(const std::vector<Trail>& trails, const Cluster& cluster) {
  const Sighting* last = trails[cluster.last].sighting;
  if (last == nullptr || last->plugged != false) return false;
  for (std::size_t index = cluster.last; index-- > cluster.first;) {
    const Sighting* before = trails[index].sighting;
    if (before != nullptr && before->time < last->time) return before->plugged == true;
  }
  return false;
}

double sleepAfter(const std::vector<Trail>& trails, const Cluster& cluster, double next) {
  const double last = trails[cluster.last].time;
  if (endsAnnounced(trails, cluster)) return last;
  if (unplugsAtEnd(trails, cluster)) return last + sleepAfterUnplugging;
  const double before = cluster.last > cluster.first ? trails[cluster.last - 1].time : last;
  const double wait = std::clamp((last - before) / 2, shortestWait, longestWait);
  return std::min(last + wait, (last + next) / 2);
}

bool isDarkWake(const std::vector<Trail>& trails, const Cluster& cluster) {
  if (trails[cluster.last].time - trails[cluster.first].time > longestDarkWake) return false;
  if (endsAnnounced(trails, cluster)) return false;
  for (std::size_t index = cluster.first; index <= cluster.last; ++index) {
    const Sighting* sighting = trails[index].sighting;
    if (startsOrEndsDaemon(trails[index])) return false;
    if (sighting == nullptr) continue;
    if (sighting->state == ChargeState::discharge || sighting->watts.value_or(0) < -darkLoadWatts)
      return false;
  }
  return true;
}

double darkSecondsOf(const std::vector<Trail>& trails, const Cluster& cluster) {
  bool plugged = false;
  for (std::size_t index = cluster.first; index <= cluster.last; ++index) {
    if (trails[index].sighting != nullptr) plugged = trails[index].sighting->plugged.value_or(plugged);
  }
  const double seen = trails[cluster.last].time - trails[cluster.first].time + darkWakeLead + 2;
  return std::max(seen, plugged ? darkSecondsOnAdapter : darkSecondsOnBattery);
}

std::vector<SleepSpan> fromGaps(const Trace& trace) {
  const std::vector<Trail> trails = trailsOf(trace);
  const std::vector<Cluster> clusters = clustersOf(trails);
  std::vector<SleepSpan> sleeps;
  for (std::size_t index = 0; index + 1 < clusters.size(); ++index) {
    const Cluster& next = clusters[index + 1];
    // The Mac was off, or nothing of the daemon ran.
    if (startsOrEndsDaemon(trails[clusters[index].last]) || startsOrEndsDaemon(trails[next.first])) continue;
    const double wake = trails[next.first].time;
    SleepSpan sleep{.from = sleepAfter(trails, clusters[index], wake)};
    // A dark wake ends by itself.
    const SleepSpan* before = sleeps.empty() ? nullptr : &sleeps.back();
    if (before != nullptr && before->endsDark)
      sleep.from = std::min(std::max(sleep.from, before->until + before->darkSeconds), wake - 1);
    sleep.endsDark = index + 2 < clusters.size() && isDarkWake(trails, next);
    if (sleep.endsDark) sleep.darkSeconds = darkSecondsOf(trails, next);
    sleep.until = std::max(wake - (sleep.endsDark ? darkWakeLead : fullWakeLead), sleep.from + 1);
    sleeps.push_back(sleep);
  }
  return sleeps;
}

// A full wake out of a dark one is a span of no length.
std::vector<SleepSpan> fromPowerEvents(const std::vector<PowerEvent>& events) {
  std::vector<SleepSpan> sleeps;
  std::optional<double> asleepSince;
  for (const PowerEvent& event : events) {
    if (event.kind == PowerEventKind::sleep) {
      if (!asleepSince && !sleeps.empty() && sleeps.back().endsDark)
        sleeps.back().darkSeconds = std::max(event.time - sleeps.back().until, 1.0);
      asleepSince = asleepSince.value_or(event.time);
      continue;
    }
    const bool dark = event.kind == PowerEventKind::darkWake;
    if (!asleepSince && dark) continue;
    sleeps.push_back({.from = asleepSince.value_or(event.time),
                      .until = event.time,
                      .endsDark = dark,
                      .darkSeconds = dark ? darkSecondsOnAdapter : 0});
    asleepSince.reset();
  }
  return sleeps;
}

// When the daemon wanted to be woken, in order of time.
std::vector<double> scheduledWakes(const Trace& trace) {
  constexpr std::string_view beginning = "réveil programmé dans ";
  std::vector<double> wakes;
  for (const LoggedLine& line : trace.lines) {
    if (!line.text.starts_with(beginning)) continue;
    wakes.push_back(line.time + 60 * std::strtod(line.text.c_str() + beginning.size(), nullptr));
  }
  std::sort(wakes.begin(), wakes.end());
  return wakes;
}

// macOS logs a sleep when it has begun. The daemon was told before: macOS may have had to wait for others,
// and on the adapter it stays awake for two minutes after a wake.
void beginWhereAnnounced(const Trace& trace, std::vector<SleepSpan>& sleeps) {
  constexpr double longestDelay = 130;
  double awakeSince = 0;
  for (SleepSpan& sleep : sleeps) {
    const double earliest = std::max(awakeSince, sleep.from - longestDelay);
    std::optional<double> announced;
    for (const LoggedLine& line : trace.lines) {
      if (line.time > earliest && line.time < sleep.from && announcesSleep(line)) announced = line.time;
    }
    if (announced && sleep.from < sleep.until) sleep.from = *announced;
    awakeSince = sleep.until;
  }
}

// macOS logs no wake where a Mac that was shut down asleep is started again.
std::vector<PowerEvent> withStarts(std::vector<PowerEvent> events, const Trace& trace) {
  const auto isEarlier = [](const PowerEvent& one, const PowerEvent& other) { return one.time < other.time; };
  for (const Span& outage : outagesOf(trace, std::numeric_limits<double>::infinity())) {
    const PowerEvent start{outage.until, PowerEventKind::wake};
    const auto after = std::upper_bound(events.begin(), events.end(), start, isEarlier);
    if (after == events.begin() || !std::isfinite(start.time)) continue;
    const PowerEvent& before = *std::prev(after);
    const bool lasts = before.kind == PowerEventKind::sleep || start.time - before.time > longestDarkWake;
    if (lasts && before.kind != PowerEventKind::wake) events.insert(after, start);
  }
  return events;
}

// macOS keeps its log for some days only.
bool coverTheDays(const ReportedDays& days) {
  return !days.powerEvents.empty() && days.powerEvents.front().time <= days.begin() + 86400;
}

}  // namespace

std::vector<SleepSpan> sleepsOf(const ReportedDays& days) {
  if (!coverTheDays(days)) return fromGaps(days.trace);
  std::vector<SleepSpan> sleeps = fromPowerEvents(withStarts(days.powerEvents, days.trace));
  beginWhereAnnounced(days.trace, sleeps);
  std::erase_if(sleeps, [&](const SleepSpan& sleep) {
    return sleep.until <= days.begin() || sleep.from >= days.end();
  });
  return sleeps;
}

std::vector<SleepSpan> withoutOwnWakes(const std::vector<SleepSpan>& sleeps, const Trace& trace) {
  constexpr double atThatTime = 90;  // seconds
  const std::vector<double> scheduled = scheduledWakes(trace);
  std::vector<SleepSpan> kept;
  bool continues = false;
  for (const SleepSpan& sleep : sleeps) {
    const auto wake = std::lower_bound(scheduled.begin(), scheduled.end(), sleep.until - atThatTime);
    if (continues) {
      const double from = kept.back().from;
      kept.back() = sleep;
      kept.back().from = from;
    } else {
      kept.push_back(sleep);
    }
    continues = sleep.endsDark && wake != scheduled.end() && *wake <= sleep.until + atThatTime;
  }
  return kept;
}

std::optional<bool> scheduledWakesAreFull(const ReportedDays& days) {
  constexpr double nearby = 30;  // seconds from what was planned to what macOS logs
  int full = 0;
  int dark = 0;
  for (const double planned : scheduledWakes(days.trace)) {
    for (const PowerEvent& event : days.powerEvents) {
      if (std::abs(event.time - planned) > nearby) continue;
      if (event.kind == PowerEventKind::darkWake) ++dark;
      if (event.kind == PowerEventKind::wake) ++full;
    }
  }
  if (full == dark) return std::nullopt;
  return full > dark;
}

std::vector<DatedAction> sleepActions(const std::vector<SleepSpan>& sleeps) {
  std::vector<DatedAction> actions;
  bool isDark = false;
  for (const SleepSpan& sleep : sleeps) {
    // Out of a dark wake a closed Mac is sent back to sleep.
    if (sleep.from < sleep.until) actions.push_back({sleep.from, isDark ? "sleep" : "close-lid"});
    isDark = sleep.endsDark;
    actions.push_back(
        {sleep.until, isDark ? measured("dark-wake", virtual_mac::ChangeKind::darkWake, sleep.darkSeconds)
                             : ScenarioJson("open-lid")});
  }
  return actions;
}

const SleepSpan* sleepAt(const std::vector<SleepSpan>& sleeps, double time) {
  const auto after =
      std::upper_bound(sleeps.begin(), sleeps.end(), time,
                       [](double moment, const SleepSpan& sleep) { return moment < sleep.from; });
  if (after == sleeps.begin()) return nullptr;
  const SleepSpan& sleep = *std::prev(after);
  return time < sleep.until ? &sleep : nullptr;
}

}  // namespace brisko::lab
