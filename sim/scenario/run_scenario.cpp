#include "sim/scenario/run_scenario.h"

#include <algorithm>
#include <ctime>
#include <limits>

#include "base/options.h"
#include "sim/machine/machine.h"
#include "sim/scenario/checked_simulation.h"

namespace brisko::lab {
namespace {

constexpr std::size_t linesShown = 20;  // of the log, of a scenario that failed

std::string clockText(const CheckedSimulation& simulation) {
  const auto seconds = static_cast<std::time_t>(virtual_mac::wallClock(simulation.machine()));
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  char text[40];
  static_cast<void>(std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts));
  return text;
}

bool isSummary(const std::string& line) { return line.find("Z  cap ") != std::string::npos; }

std::string leftOutLine(std::size_t count) {
  return "… " + std::to_string(count) + (count == 1 ? " more summary" : " more summaries");
}

// The last lines; of consecutive summaries only the last, with the number of those before it.
std::vector<std::string> endOfLog(const std::vector<std::string>& log) {
  std::vector<std::string> lines;
  std::size_t shown = 0;
  std::size_t leftOut = 0;
  bool afterSummary = false;
  const auto noteLeftOut = [&] {
    if (leftOut > 0) lines.push_back(leftOutLine(leftOut));
    leftOut = 0;
  };
  for (auto line = log.rbegin(); line != log.rend() && shown < linesShown; ++line) {
    const bool repeats = afterSummary && isSummary(*line);
    afterSummary = isSummary(*line);
    if (repeats) {
      ++leftOut;
      continue;
    }
    noteLeftOut();
    lines.push_back(*line);
    ++shown;
  }
  noteLeftOut();
  std::reverse(lines.begin(), lines.end());
  return lines;
}

class ScenarioRun {
 public:
  ScenarioRun(const Scenario& scenario, const Diagnostics& file, const RunOptions& options)
      : scenario_(scenario),
        file_(file),
        options_(options),
        checksOnlyInvariants_(scenario.invariantsOnly || options.callFaults != nullptr),
        simulation_(scenario.setup, {.recording = options.recording,
                                     .stateWatch = options.stateWatch,
                                     .callFaults = options.callFaults}) {
    if (scenario.settings) simulation_.write(defaultConfigPath, *scenario.settings);
  }

  Outcome run() {
    outcome_.begin = simulation_.machine().now;
    runSteps();
    if (options_.callFaults != nullptr) endAfterFailedCall();
    outcome_.seconds = sinceBegin();
    outcome_.log = endOfLog(simulation_.stampedLog());
    outcome_.wholeLog = simulation_.stampedLog();
    if (options_.atEnd) {
      simulation_.checkpointAtBegin();
      options_.atEnd(simulation_);
    }
    return std::move(outcome_);
  }

 private:
  [[nodiscard]] Recording* recording() const { return options_.recording; }
  [[nodiscard]] bool holds() const { return outcome_.failures.empty(); }
  [[nodiscard]] double sinceBegin() const { return simulation_.machine().now - outcome_.begin; }

  // The invariants, held until now.
  bool invariantsHold(const std::string& place) {
    const auto violation = simulation_.violation();
    if (violation && !outcome_.violation) {
      outcome_.violation = violation;
      fail(place, "    expected: " + numbered(violation->invariant) + "\n    seen:     " + violation->seen);
    }
    return !violation;
  }

  void runSteps() {
    act(scenario_.before);
    simulation_.begin();
    // Records the daemon's start, even if the first step comes much later.
    if (recording() != nullptr) simulation_.pass(0);
    for (std::size_t index = 0; index < scenario_.steps.size() && holds() && !hourIsOver(); ++index) {
      runStep(index);
      if (options_.afterStep) options_.afterStep(simulation_);
      outcome_.cancelled = options_.shouldContinue && !options_.shouldContinue(sinceBegin());
      if (outcome_.cancelled) return;
    }
    if (!holds() || options_.callFaults != nullptr) return;
    simulation_.checkpointAtBegin();
    runChecks(scenario_.end);
    if (!checksOnlyInvariants_) checkForWarnings();
  }

  // Machine time at which the run ends; infinite until the call fails.
  [[nodiscard]] double endOfHour() const {
    const auto failedAt = options_.callFaults == nullptr ? std::nullopt : options_.callFaults->failedAt();
    return failedAt ? *failedAt + secondsAfterFailedCall : std::numeric_limits<double>::infinity();
  }
  [[nodiscard]] bool hourIsOver() const { return simulation_.machine().now >= endOfHour(); }

  void endAfterFailedCall() {
    if (!holds() || !options_.callFaults->failedAt()) return;
    const double rest = endOfHour() - simulation_.machine().now;
    if (rest > 0) simulation_.pass(rest);
    simulation_.unloadService();
    static_cast<void>(invariantsHold(""));
  }

  void runStep(std::size_t index) {
    const Step& step = scenario_.steps[index];
    if (step.at) simulation_.pass(secondsUntil(*step.at, virtual_mac::wallClock(simulation_.machine())));
    // Everything that is due is done before the step's actions.
    simulation_.pass(0);
    if (!invariantsHold(step.place)) return;
    act(step.actions);
    if (!step.actions.empty()) outcome_.lastStep = index;
    simulation_.pass(0);
    if (!invariantsHold(step.place) || !holds()) return;
    if (step.checks.empty() || options_.callFaults != nullptr) return;
    runChecks(step.checks);
    simulation_.setCheckpoint();
  }

  void act(const std::vector<Action>& actions) {
    for (const Action& action : actions) {
      if (recording() != nullptr) recording()->noteEvent(simulation_.machine(), action.words);
      std::string reason;
      const bool done = action.act(simulation_, reason);
      if (done) {
        const double now = simulation_.machine().now;
        outcome_.doneActions.push_back({now, action.words.substr(0, action.words.find(' '))});
      }
      if (!done && !checksOnlyInvariants_) fail(action.place, "    cannot be done: " + reason);
    }
  }

  void runChecks(const std::vector<Check>& checks) {
    for (const Check& check : checks) {
      for (const Difference& difference : check.run(simulation_)) {
        fail(check.place, "    expected: " + difference.expected + "\n    seen:     " + difference.seen);
      }
    }
  }

  // A warning asks for the user's attention, so it must be expected by the scenario.
  void checkForWarnings() {
    for (const std::string& line : simulation_.logSinceCheckpoint()) {
      if (line.find("⚠️") == std::string::npos) continue;
      const auto& expected = scenario_.expectedLines;
      const bool known = std::any_of(expected.begin(), expected.end(), [&](const std::string& pattern) {
        return pattern.find("⚠️") != std::string::npos && matches(line, pattern);
      });
      if (!known) {
        fail("",
             "    expected: no warning but those that the scenario expects\n    seen:     \"" + line + "\"");
      }
    }
  }

  void fail(const std::string& place, const std::string& what) {
    std::string where = "  " + (place.empty() ? "the log" : place);
    if (const int line = file_.lineOf(place); line > 0 && !place.empty()) {
      where += " (line " + std::to_string(line) + ")";
    }
    outcome_.failures.push_back(where + " at " + clockText(simulation_) + "\n" + what);
  }

  const Scenario& scenario_;
  const Diagnostics& file_;
  const RunOptions& options_;
  bool checksOnlyInvariants_;
  CheckedSimulation simulation_;
  Outcome outcome_;
};

}  // namespace

Outcome runScenario(const Scenario& scenario, const Diagnostics& file, const RunOptions& options) {
  return ScenarioRun(scenario, file, options).run();
}

std::string reportOf(const Outcome& outcome) {
  std::string text;
  for (const std::string& failure : outcome.failures) text += failure + "\n";
  if (outcome.log.empty()) return text + "  The log is empty.\n";
  text += "  The end of the log until then:\n";
  for (const std::string& line : outcome.log) text += "    " + line + "\n";
  return text;
}

}  // namespace brisko::lab
