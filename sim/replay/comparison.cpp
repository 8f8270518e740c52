#include "sim/replay/comparison.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <optional>
#include <set>

#include "report/scale.h"

namespace brisko::lab {
namespace {

constexpr double chargePeriod = 300;    // seconds
constexpr double farApart = 3;          // points
constexpr double lastingSeconds = 900;  // that states must differ to count as a departure
constexpr double longestReturn = 300;   // seconds in which they agree without ending it
constexpr std::array allStates{ChargeState::allow, ChargeState::hold, ChargeState::discharge};

// What a trace says of a moment; the moments must come in order of time.
class Reader {
 public:
  explicit Reader(const Trace& trace) : sightings_(trace.sightings), states_(statesOf(trace)) {}

  [[nodiscard]] ChargeState stateAt(double time) {
    while (state_ + 1 < states_.size() && states_[state_ + 1].time <= time) ++state_;
    return states_[state_].state;
  }

  // Between two sightings the charge is taken to have moved evenly.
  [[nodiscard]] double percentAt(double time) {
    advance(time);
    const Sighting& before = sightings_[index_];
    const auto percent = static_cast<double>(before.percent);
    if (index_ + 1 == sightings_.size() || time <= before.time) return percent;
    const Sighting& after = sightings_[index_ + 1];
    const double share = (time - before.time) / (after.time - before.time);
    return percent + share * (static_cast<double>(after.percent) - percent);
  }

  // The next sighting, if the moment lies in a gap between two, as a sleep leaves one.
  [[nodiscard]] std::optional<double> gapEnd(double time) {
    constexpr double longestSilence = 600;
    advance(time);
    if (index_ + 1 == sightings_.size()) return std::nullopt;
    const double next = sightings_[index_ + 1].time;
    return next - sightings_[index_].time > longestSilence ? std::optional(next) : std::nullopt;
  }

 private:
  void advance(double time) {
    while (index_ + 1 < sightings_.size() && sightings_[index_ + 1].time <= time) ++index_;
  }

  const std::vector<Sighting>& sightings_;
  std::vector<StateChange> states_;
  std::size_t index_ = 0;
  std::size_t state_ = 0;
};

// What is compared: from the later beginning to the earlier end, without the outages.
class Overlap {
 public:
  Overlap(const Trace& reported, const Trace& replayed)
      : from_(std::max(reported.sightings.front().time, replayed.sightings.front().time)),
        until_(std::min(reported.sightings.back().time, replayed.sightings.back().time)) {
    for (const Trace* trace : {&reported, &replayed}) {
      for (const Span& outage : outagesOf(*trace, until_)) outages_.push_back(outage);
    }
  }

  [[nodiscard]] double from() const { return from_; }
  [[nodiscard]] double until() const { return until_; }
  [[nodiscard]] bool contains(double time) const {
    return time >= from_ && time <= until_ &&
           std::none_of(outages_.begin(), outages_.end(),
                        [time](const Span& outage) { return time >= outage.from && time <= outage.until; });
  }
  // The moments at which an outage begins or ends.
  void addEdges(std::set<double>& edges) const {
    for (const Span& outage : outages_) {
      edges.insert(outage.from);
      edges.insert(outage.until);
    }
  }

 private:
  double from_, until_;
  std::vector<Span> outages_ = {};
};

// ---------------------------------------------------------------------------------------------------------
// States

// All moments at which one of the states may change, in order.
std::vector<double> edgesOf(const Trace& reported, const Trace& replayed, const Overlap& overlap) {
  std::set<double> edges{overlap.from(), overlap.until()};
  for (const Trace* trace : {&reported, &replayed}) {
    for (const StateChange& change : statesOf(*trace)) edges.insert(change.time);
  }
  overlap.addEdges(edges);
  std::vector<double> inside;
  for (const double edge : edges) {
    if (edge >= overlap.from() && edge <= overlap.until()) inside.push_back(edge);
  }
  return inside;
}

std::string departureOf(ChargeState reported, ChargeState replayed) {
  return std::string("the state is ") + stateName(reported) + " in the report, " + stateName(replayed) +
         " in the replay";
}

void compareStates(const Trace& reported, const Trace& replayed, const Overlap& overlap,
                   Comparison& comparison) {
  const std::vector<double> edges = edgesOf(reported, replayed, overlap);
  Reader report(reported);
  Reader replay(replayed);
  std::optional<Departure> differs;
  double differsFor = 0;
  double differsUntil = 0;
  const auto close = [&] {
    if (differs && differsFor >= lastingSeconds) comparison.departures.push_back(*differs);
    differs.reset();
    differsFor = 0;
  };
  for (std::size_t index = 0; index + 1 < edges.size(); ++index) {
    const double begin = edges[index];
    const double end = edges[index + 1];
    if (!overlap.contains((begin + end) / 2)) {
      close();
      continue;
    }
    const ChargeState one = report.stateAt(begin);
    const ChargeState other = replay.stateAt(begin);
    comparison.states[static_cast<std::size_t>(one)].reported += end - begin;
    comparison.states[static_cast<std::size_t>(other)].replayed += end - begin;
    if (one == other) {
      comparison.states[static_cast<std::size_t>(one)].agreed += end - begin;
      if (differs && end - differsUntil > longestReturn) close();
      continue;
    }
    if (!differs) differs = Departure{begin, departureOf(one, other)};
    differsFor += end - begin;
    differsUntil = end;
  }
  close();
}

// ---------------------------------------------------------------------------------------------------------
// Charge

std::string percentText(double percent) { return std::to_string(std::llround(percent)) + " %"; }

bool isFar(const ChargePoint& point) { return std::abs(point.reported - point.replayed) > farApart; }

std::string departureOf(const ChargePoint& point) {
  return "the charge is " + percentText(point.reported) + " in the report, " + percentText(point.replayed) +
         " in the replay";
}

// From when on the charge was apart without a break up to `time`, where it is, as the report shows it: the
// moments that are compared lie minutes apart.
ChargePoint apartSince(const Trace& reported, const Trace& replayed, double from, double time) {
  Reader report(reported);
  Reader replay(replayed);
  std::optional<ChargePoint> since;
  for (const Sighting& sighting : reported.sightings) {
    if (sighting.time <= from || sighting.time >= time) continue;
    const ChargePoint point{sighting.time, report.percentAt(sighting.time), replay.percentAt(sighting.time)};
    if (!isFar(point)) {
      since.reset();
    } else if (!since) {
      since = point;
    }
  }
  return since.value_or(ChargePoint{time, report.percentAt(time), replay.percentAt(time)});
}

void compareCharge(const Trace& reported, const Trace& replayed, const Overlap& overlap,
                   Comparison& comparison) {
  Reader report(reported);
  Reader replay(replayed);
  // What lies in a gap of the report shows at its end.
  Reader reportAhead(reported);
  Reader replayAhead(replayed);
  bool isApart = false;
  for (double time = overlap.from(); time <= overlap.until(); time += chargePeriod) {
    if (!overlap.contains(time)) continue;
    const ChargePoint point{time, report.percentAt(time), replay.percentAt(time)};
    const bool apart = isFar(point);
    comparison.charge.push_back(point);
    if (!apart) ++comparison.withinThree;
    if (apart && !isApart) {
      const double seen = report.gapEnd(time).value_or(time);
      const ChargePoint shown{seen, reportAhead.percentAt(seen), replayAhead.percentAt(seen)};
      const double from = std::max(time - chargePeriod, overlap.from());
      const ChargePoint since = seen > time ? shown : apartSince(reported, replayed, from, time);
      if (isFar(shown)) comparison.departures.push_back({since.time, departureOf(since)});
    }
    isApart = apart;
  }
}

// ---------------------------------------------------------------------------------------------------------
// Lines

// These depend on the minute at which the Mac fell asleep, and not on what the charge does.
bool dependsOnMinutes(const std::string& kind) {
  constexpr std::array beginnings{"veille à ",      "réveil programmé ",     "réveil de maintenance ",
                                  "history pruned", "log permissions",       "stats reset",
                                  "XPC ",           "staying awake until",   "charging stopped for the night",
                                  "Signal ",        "brisko-daemon started", "restart requested",
                                  "app ",           "charge released",       "still running",
                                  "→ state: "};
  return std::any_of(beginnings.begin(), beginnings.end(),
                     [&](const char* beginning) { return kind.starts_with(beginning); });
}

// A daemon that was running before the days of the report has already logged what it logs once.
bool wasLoggedBefore(const std::string& kind, const Trace& reported, const Overlap& overlap) {
  const auto isThat = [&](const LoggedLine& line) { return kindOf(line.text) == kind; };
  if (std::any_of(reported.earlier.begin(), reported.earlier.end(), isThat)) return true;
  const bool startedMeanwhile =
      std::any_of(reported.lines.begin(), reported.lines.end(), [&](const LoggedLine& line) {
        return isStart(line.text) && line.time <= overlap.from() + longestStartUp;
      });
  return !startedMeanwhile && kind.starts_with("limit verified");
}

// A kind of line that only one of the two has departs where it first appears.
void compareLines(const Trace& reported, const Trace& replayed, const Overlap& overlap,
                  Comparison& comparison) {
  std::map<std::string, std::array<const LoggedLine*, 2>> first;
  const auto count = [&](const Trace& trace, std::size_t LineCounts::*member, std::size_t which) {
    for (const LoggedLine& line : trace.lines) {
      if (line.time < overlap.from() || line.time > overlap.until()) continue;
      const std::string kind = kindOf(line.text);
      ++(comparison.lines[kind].*member);
      const LoggedLine*& place = first[kind][which];
      if (place == nullptr) place = &line;
    }
  };
  count(reported, &LineCounts::reported, 0);
  count(replayed, &LineCounts::replayed, 1);
  for (const auto& [kind, lines] : first) {
    if (dependsOnMinutes(kind) || (lines[0] != nullptr && lines[1] != nullptr)) continue;
    const bool isReported = lines[0] != nullptr;
    if (!isReported && wasLoggedBefore(kind, reported, overlap)) continue;
    const LoggedLine& line = isReported ? *lines[0] : *lines[1];
    comparison.departures.push_back(
        {line.time,
         std::string("only in the ") + (isReported ? "report" : "replay") + " is logged: " + line.text});
  }
}

// ---------------------------------------------------------------------------------------------------------
// Texts

std::string shareText(double share) {
  std::array<char, 16> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), "%.1f %%", share * 100));
  return text.data();
}

std::string hoursText(double seconds) {
  std::array<char, 24> text{};
  static_cast<void>(std::snprintf(text.data(), text.size(), "%.1f h", seconds / 3600));
  return text.data();
}

std::string stateLine(ChargeState state, const StateAgreement& agreement) {
  return std::string("  ") + stateName(state) + ": " + hoursText(agreement.reported) + " reported, " +
         hoursText(agreement.replayed) + " replayed, " +
         (agreement.canBeJudged() ? shareText(agreement.share()) + " of the reported time agrees"
                                  : "too little to judge") +
         "\n";
}

std::string lineDifferences(const Comparison& comparison) {
  std::string text;
  for (const auto& [kind, counts] : comparison.lines) {
    if (counts.reported == counts.replayed) continue;
    text += "  " + std::to_string(counts.reported) + " reported, " + std::to_string(counts.replayed) +
            " replayed: " + kind + "\n";
  }
  return text.empty() ? "  as often in both, kind by kind\n" : text;
}

// --- The picture

// As the daemon stamps its lines.
std::string stampedText(const LoggedLine& line) {
  const auto seconds = static_cast<std::time_t>(line.time);
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  std::array<char, 32> stamp{};
  static_cast<void>(std::strftime(stamp.data(), stamp.size(), "%Y-%m-%dT%H:%M:%SZ  ", &parts));
  return stamp.data() + line.text;
}

Moment momentAt(double time, Reader& report, Reader& replay) {
  Moment moment;
  moment.time = time;
  moment.level = replay.percentAt(time);
  moment.shown = std::llround(report.percentAt(time));
  moment.state = report.stateAt(time);
  moment.hardware = replay.stateAt(time);
  return moment;
}

}  // namespace

Comparison compare(const Trace& reported, const Trace& replayed) {
  const Overlap overlap(reported, replayed);
  Comparison comparison;
  compareStates(reported, replayed, overlap, comparison);
  compareCharge(reported, replayed, overlap, comparison);
  compareLines(reported, replayed, overlap, comparison);
  std::stable_sort(comparison.departures.begin(), comparison.departures.end(),
                   [](const Departure& one, const Departure& other) { return one.time < other.time; });
  return comparison;
}

std::string kindOf(const std::string& line) {
  std::string kind;
  for (const char letter : line) {
    const bool isDigit = letter >= '0' && letter <= '9';
    if (!isDigit) {
      kind += letter;
    } else if (kind.empty() || kind.back() != '#') {
      kind += '#';
    }
  }
  return kind;
}

std::string comparisonText(const Comparison& comparison) {
  std::string text = "Time in each state:\n";
  for (const ChargeState state : allStates)
    text += stateLine(state, comparison.states[static_cast<std::size_t>(state)]);
  text += "Charge, every five minutes: " + shareText(comparison.chargeShare()) +
          " at most three points apart\nLines of the log:\n" + lineDifferences(comparison);
  if (comparison.departures.empty()) return text + "Nothing departs.\n";
  const Departure& first = comparison.departures.front();
  return text + "What departs first, on " + momentText(first.time) + " " + zoneText(first.time) + ":\n  " +
         first.words + "\n";
}

Picture comparisonPicture(const Trace& reported, const Trace& replayed, const Comparison& comparison) {
  constexpr std::size_t mostMarks = 12;
  const Overlap overlap(reported, replayed);
  Picture picture;
  picture.curves =
      CurveNames{.level = "replayed", .shown = "reported", .state = "Reported", .hardware = "Replayed"};
  Reader report(reported);
  Reader replay(replayed);
  bool isAfterOutage = false;
  for (const double edge : edgesOf(reported, replayed, overlap)) {
    if (!overlap.contains(edge)) {
      isAfterOutage = true;
      continue;
    }
    picture.moments.push_back(momentAt(edge, report, replay));
    picture.moments.back().afterGap = isAfterOutage;
    isAfterOutage = false;
  }
  for (const Departure& departure : comparison.departures) {
    if (picture.events.size() < mostMarks) picture.events.push_back({departure.time, departure.words});
  }
  for (const LoggedLine& line : reported.lines) picture.log.push_back({line.time, stampedText(line)});
  return picture;
}

}  // namespace brisko::lab
