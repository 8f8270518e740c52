#include "lab/run_scenario.h"

#include <algorithm>
#include <ctime>

#include "platform/virtual/machine.h"

namespace brisko::lab {
namespace {

constexpr std::size_t linesShown = 20;  // of the log, of a scenario that failed

std::string clockText(const Stage& stage) {
  const auto seconds = static_cast<std::time_t>(virtual_mac::wallClock(stage.machine()));
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  char text[40];
  static_cast<void>(std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts));
  return text;
}

bool isSummary(const std::string& line) { return line.find("Z  cap ") != std::string::npos; }

// The last lines; of summaries that follow each other the last alone.
std::vector<std::string> endOfLog(const std::vector<std::string>& log) {
  std::vector<std::string> lines;
  for (auto line = log.rbegin(); line != log.rend() && lines.size() < linesShown; ++line) {
    if (lines.empty() || !isSummary(*line) || !isSummary(lines.back())) lines.push_back(*line);
  }
  std::reverse(lines.begin(), lines.end());
  return lines;
}

class Play {
 public:
  Play(const Scenario& scenario, const Complaints& file, Recording* recording)
      : scenario_(scenario), file_(file), stage_(scenario.outset), recording_(recording) {
    if (recording_ != nullptr) stage_.record(*recording_);
  }

  Outcome run() {
    const double begin = stage_.machine().now;
    playSteps();
    outcome_.seconds = stage_.machine().now - begin;
    outcome_.log = endOfLog(stage_.stampedLog());
    return std::move(outcome_);
  }

 private:
  [[nodiscard]] bool holds() const { return outcome_.failures.empty(); }

  void playSteps() {
    act(scenario_.before);
    stage_.begin();
    // What the daemon does at its start is worth seeing even when the first step comes much later.
    if (recording_ != nullptr) stage_.pass(0);
    for (const Step& step : scenario_.steps) {
      if (holds()) play(step);
    }
    if (!holds()) return;
    stage_.lookAtAll();
    look(scenario_.end);
    lookForWarnings();
  }

  void play(const Step& step) {
    if (step.at) stage_.pass(secondsUntil(*step.at, virtual_mac::wallClock(stage_.machine())));
    // What is due at this moment has happened before the step does anything.
    stage_.pass(0);
    act(step.actions);
    stage_.pass(0);
    if (!holds()) return;
    if (step.checks.empty()) return;
    look(step.checks);
    stage_.beginStretch();
  }

  void act(const std::vector<Action>& actions) {
    for (const Action& action : actions) {
      if (recording_ != nullptr) recording_->noteEvent(stage_.machine(), action.words);
      std::string reason;
      if (!action.act(stage_, reason)) fail(action.place, "    cannot be done: " + reason);
    }
  }

  void look(const std::vector<Check>& checks) {
    for (const Check& check : checks) {
      for (const Difference& difference : check.look(stage_)) {
        fail(check.place, "    expected: " + difference.expected + "\n    seen:     " + difference.seen);
      }
    }
  }

  // A warning asks for a person's attention, so it belongs to the story or to nothing.
  void lookForWarnings() {
    for (const std::string& line : stage_.logOfStretch()) {
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
    outcome_.failures.push_back(where + " at " + clockText(stage_) + "\n" + what);
  }

  const Scenario& scenario_;
  const Complaints& file_;
  Stage stage_;
  Recording* recording_;
  Outcome outcome_;
};

}  // namespace

Outcome runScenario(const Scenario& scenario, const Complaints& file, Recording* recording) {
  return Play(scenario, file, recording).run();
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
