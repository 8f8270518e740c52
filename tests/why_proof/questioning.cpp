#include "why_proof/questioning.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <set>
#include <string_view>

#include "client/state_reader.h"
#include "sim/generate/timeline.h"
#include "sim/machine/charge_limit.h"
#include "sim/machine/machine.h"
#include "sim/process/log_lines.h"
#include "why_proof/asked_mac.h"
#include "why_proof/asked_scenario.h"

namespace brisko::proof {
namespace {

using lab::GeneratedScenario;
using lab::ScenarioJson;
using lab::TimedAction;
using virtual_mac::Machine;

constexpr std::int64_t observationPeriod = 60;
constexpr std::int64_t keysClosedFrom = 27;  // version of macOS
constexpr double statusIsCurrent = 30;       // seconds; the daemon writes it at least every 15 s

// ---------------------------------------------------------------------------------------------------------
// Events

// What an action of the scenario is for an answer. Those that are not listed are faults.
constexpr std::array settingsActions{"settings", "settings-file", "settings-replaced", "settings-removed"};
constexpr std::array serviceActions{"start",       "terminate", "kill",         "interrupt",
                                    "app-deleted", "app-moved", "app-restored", "ask"};
constexpr std::array restartActions{"shutdown", "boot", "power-loss", "macos"};
constexpr const char* removalAction = "unload";
constexpr std::array limitActions{"limit", "charge-to-full"};
constexpr std::array workActions{"load", "ambient"};
// The observations show what these do, or what becomes of them.
constexpr std::array observedActions{"plug",
                                     "unplug",
                                     "sleep",
                                     "idle-sleep",
                                     "wake",
                                     "dark-wake",
                                     "close-lid",
                                     "open-lid",
                                     "scheduled-wakes",
                                     "quiet-nights",
                                     "upkeep-nights",
                                     "busy-nights",
                                     "battery-wakes",
                                     "adapter-wakes",
                                     "cut-keeps-external",
                                     "late-capabilities"};

template <typename Names>
bool isOneOf(const std::string& name, const Names& names) {
  return std::find(names.begin(), names.end(), std::string_view(name)) != names.end();
}

std::optional<EventKind> kindOf(const ScenarioJson& action) {
  const bool hasValue = action.is_object();
  const std::string name = hasValue ? action.begin().key() : action.get<std::string>();
  if (name == "load" && !hasValue) return EventKind::service;
  if (name == "plug" && hasValue) return EventKind::adapter;
  if (name == "ask" && action.begin()->is_object()) return EventKind::settings;
  if (isOneOf(name, settingsActions)) return EventKind::settings;
  if (name == removalAction) return EventKind::removal;
  if (isOneOf(name, serviceActions)) return EventKind::service;
  if (isOneOf(name, restartActions)) return EventKind::restart;
  if (isOneOf(name, limitActions)) return EventKind::macOSLimit;
  if (isOneOf(name, workActions)) return EventKind::work;
  if (isOneOf(name, observedActions)) return std::nullopt;
  return EventKind::fault;
}

constexpr const char* startLine = "brisko-daemon started ";
constexpr const char* staysLine = "the removal didn't happen";

std::optional<EventKind> kindOfLine(const std::string& line) {
  if (line.find("Top Up dropped after ") != std::string::npos) return EventKind::expiry;
  if (line.find("calibration stopped: ") != std::string::npos) return EventKind::stall;
  const bool warns = line.find("⚠️") != std::string::npos || line.find(staysLine) != std::string::npos;
  if (warns) return EventKind::warning;
  return std::nullopt;
}

// The temperature in a summary: "cap 80%  batt 80%  31.5°C  ac  state=hold  LED=green".
constexpr double hottest = 1000;
std::optional<double> temperatureIn(const std::string& line) {
  const std::size_t end = line.find("°C  ");
  if (end == std::string::npos) return std::nullopt;
  const std::size_t begin = line.rfind(' ', end);
  return std::strtod(line.c_str() + begin, nullptr);
}

// ---------------------------------------------------------------------------------------------------------
// The ending of the scenario

// At the end what answers name happens, so that no answer is pending only because its user never does that:
// the Mac is woken, unplugged and plugged in, its service is loaded and started, the limit is switched on,
// and macOS is replaced by one that opens the keys.
void addEnding(GeneratedScenario& scenario) {
  std::int64_t now = scenario.seconds;
  const auto next = [&](std::int64_t after, const ScenarioJson& action) {
    scenario.timedActions.push_back({now += after, action});
  };
  for (const char* wake : {"boot", "open-lid", "wake"}) next(20, wake);
  next(300, "unplug");
  next(600, "plug");
  for (const char* start : {"app-restored", "load", "terminate"}) next(60, start);
  next(600, lab::actionOf("settings", {{"enabled", true}}));
  if (scenario.mac.at("macOS").get<std::int64_t>() >= keysClosedFrom) {
    next(600, "shutdown");
    next(60, lab::actionOf("macos", keysClosedFrom - 1));
    next(60, "boot");
  }
  scenario.seconds = now + 900;
}

// ---------------------------------------------------------------------------------------------------------
// Observing and asking

class Questioner {
 public:
  Questioner(std::set<std::int64_t> moments, Questioning& result)
      : moments_(std::move(moments)), result_(result) {}

  void afterStep(const sim::Simulation& simulation) {
    const Machine& machine = simulation.machine();
    noteLines(simulation);
    observe(machine);
    while (!moments_.empty() && static_cast<double>(*moments_.begin()) <= machine.now - result_.begin) {
      moments_.erase(moments_.begin());
      if (result_.observations.back().awake) ask(machine.now);
    }
  }

 private:
  void observe(const Machine& machine) {
    Observation seen{.at = machine.now,
                     .clockOffset = machine.system.wallOffset,
                     .serviceIsLoaded = askedMac().serviceIsLoaded,
                     .daemonRuns = askedMac().daemonRuns,
                     .awake = isFullyAwake(machine),
                     .plugged = machine.adapter.present,
                     .macOSPermits = machine.system.macOS < keysClosedFrom || hasLimit(machine),
                     .starts = starts_,
                     .pct = machine.gauge.percent,
                     .publishedAt = machine.gauge.publishedAt,
                     .temperature = std::min(machine.battery.temperatureC, coolest_),
                     .currentMA = machine.battery.currentMA};
    if (seen.daemonRuns) seen.status = client::readStatus(client::Volume());
    const double wall = seen.at + seen.clockOffset;
    if (seen.status && (seen.status->ts < wall - statusIsCurrent || seen.status->ts > wall + 1))
      seen.status.reset();
    coolest_ = hottest;
    if (!result_.observations.empty()) noteTransitions(result_.observations.back(), seen);
    result_.observations.push_back(std::move(seen));
  }

  void noteTransitions(const Observation& before, const Observation& seen) {
    if (before.plugged != seen.plugged) note(seen.at, EventKind::adapter);
    if (before.awake != seen.awake) note(seen.at, EventKind::sleep);
    const bool wasHot = before.status && before.status->hot;
    if (seen.status && seen.status->hot && !wasHot) note(seen.at, EventKind::heat);
  }

  void noteLines(const sim::Simulation& simulation) {
    const auto& lines = simulation.stampedLog();
    for (; linesSeen_ < lines.size(); ++linesSeen_) {
      if (const auto kind = kindOfLine(lines[linesSeen_])) note(simulation.machine().now, *kind);
      if (lines[linesSeen_].find(startLine) != std::string::npos) ++starts_;
      coolest_ = std::min(coolest_, temperatureIn(lines[linesSeen_]).value_or(hottest));
    }
  }

  void note(double at, EventKind kind) { result_.events.push_back({at, kind}); }

  void ask(double at) {
    const client::Situation situation = situationOf(client::readState(client::Volume()));
    Question question{.at = at, .answer = client::why(situation), .status = situation.status};
    const auto samples = client::sinceLastChange(situation.recent);
    if (!samples.empty()) question.samplesSpan = samples.back().time - samples.front().time;
    result_.questions.push_back(std::move(question));
    result_.firstObservation.push_back(result_.observations.size() - 1);
  }

  std::set<std::int64_t> moments_;  // seconds since the beginning
  Questioning& result_;
  std::size_t linesSeen_ = 0;
  std::int64_t starts_ = 0;   // of the daemon
  double coolest_ = hottest;  // that a summary contains since the latest observation
};

void addActions(const std::vector<TimedAction>& actions, double begin, std::vector<Event>& events) {
  for (const TimedAction& action : actions) {
    if (const auto kind = kindOf(action.action))
      events.push_back({begin + static_cast<double>(action.at), *kind});
  }
  std::stable_sort(events.begin(), events.end(),
                   [](const Event& left, const Event& right) { return left.at < right.at; });
}

// Among the actions before the first start are those that only say what the nights of this Mac are like.
void noteFaultsInEffect(const std::vector<ScenarioJson>& before, Questioning& questioning) {
  const bool fromTheBeginning = std::any_of(before.begin(), before.end(), [](const ScenarioJson& action) {
    return kindOf(action) == EventKind::fault;
  });
  for (Question& question : questioning.questions) {
    question.faultIsInEffect =
        fromTheBeginning ||
        std::any_of(questioning.events.begin(), questioning.events.end(), [&](const Event& event) {
          return event.kind == EventKind::fault && event.at <= question.at;
        });
  }
}

}  // namespace

Questioning questionSeed(std::uint64_t seed, const QuestioningOptions& options) {
  AskedScenario scenario = askedScenario(seed, options.days, options.questionsADay, options.faults);
  // After the last question the scenario continues for a day.
  scenario.generated = lab::generateScenario(seed, options.days + 1, options.faults);
  addEnding(scenario.generated);
  Questioning result;
  Questioner questioner(scenario.questionMoments, result);
  result.failure = play(
                       scenario, observationPeriod, [&result](double begin) { result.begin = begin; },
                       [&questioner](const sim::Simulation& simulation) { questioner.afterStep(simulation); })
                       .failure;

  addActions(scenario.generated.timedActions, result.begin, result.events);
  noteFaultsInEffect(scenario.generated.before, result);
  return result;
}

}  // namespace brisko::proof
