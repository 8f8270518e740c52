#include "sim/scenario/run_scenario.h"

#include <algorithm>
#include <ctime>

#include "sim/machine/machine.h"

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

std::string leftOutLine(std::size_t count) {
  return "… " + std::to_string(count) + (count == 1 ? " more summary" : " more summaries");
}

// The last lines; of summaries that follow each other the last alone, after a word on how many there were
// more.
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

class Play {
 public:
  Play(const Scenario& scenario, const Complaints& file, const Onlookers& onlookers)
      : scenario_(scenario), file_(file), onlookers_(onlookers), stage_(scenario.outset) {
    if (recording() != nullptr) stage_.record(*recording());
  }

  Outcome run() {
    outcome_.begin = stage_.machine().now;
    playSteps();
    outcome_.seconds = sinceBegin();
    outcome_.log = endOfLog(stage_.stampedLog());
    return std::move(outcome_);
  }

 private:
  [[nodiscard]] Recording* recording() const { return onlookers_.recording; }
  [[nodiscard]] bool holds() const { return outcome_.failures.empty(); }
  [[nodiscard]] double sinceBegin() const { return stage_.machine().now - outcome_.begin; }

  // What always holds, held until now.
  bool invariantsHold(const std::string& place) {
    const auto violation = stage_.violation();
    if (violation && !outcome_.violation) {
      outcome_.violation = violation;
      fail(place, "    expected: " + std::to_string(violation->invariant) + ". " +
                      invariantWords(violation->invariant) + "\n    seen:     " + violation->seen);
    }
    return !violation;
  }

  void playSteps() {
    act(scenario_.before);
    stage_.begin();
    // What the daemon does at its start is worth seeing even when the first step comes much later.
    if (recording() != nullptr) stage_.pass(0);
    for (std::size_t index = 0; index < scenario_.steps.size() && holds(); ++index) {
      play(index);
      outcome_.brokenOff = onlookers_.goesOn && !onlookers_.goesOn(sinceBegin());
      if (outcome_.brokenOff) return;
    }
    if (!holds()) return;
    stage_.lookAtAll();
    look(scenario_.end);
    if (!scenario_.judgedByInvariantsAlone) lookForWarnings();
  }

  void play(std::size_t index) {
    const Step& step = scenario_.steps[index];
    if (step.at) stage_.pass(secondsUntil(*step.at, virtual_mac::wallClock(stage_.machine())));
    // What is due at this moment has happened before the step does anything.
    stage_.pass(0);
    if (!invariantsHold(step.place)) return;
    act(step.actions);
    if (!step.actions.empty()) outcome_.lastStep = index;
    stage_.pass(0);
    if (!invariantsHold(step.place) || !holds()) return;
    if (step.checks.empty()) return;
    look(step.checks);
    stage_.beginStretch();
  }

  void act(const std::vector<Action>& actions) {
    for (const Action& action : actions) {
      if (recording() != nullptr) recording()->noteEvent(stage_.machine(), action.words);
      std::string reason;
      const bool done = action.act(stage_, reason);
      if (!done && !scenario_.judgedByInvariantsAlone) fail(action.place, "    cannot be done: " + reason);
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
  const Onlookers& onlookers_;
  Stage stage_;
  Outcome outcome_;
};

}  // namespace

Outcome runScenario(const Scenario& scenario, const Complaints& file, const Onlookers& onlookers) {
  return Play(scenario, file, onlookers).run();
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
