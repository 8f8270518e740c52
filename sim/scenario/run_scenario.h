// sim/scenario/run_scenario.h
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "sim/invariants/invariant_checker.h"
#include "sim/scenario/call_faults.h"
#include "sim/scenario/recording.h"
#include "sim/scenario/scenario.h"
#include "sim/scenario/state_watch.h"

namespace brisko::lab {

// An action that was done.
struct DoneAction {
  double at;         // machine time
  std::string name;  // as in a scenario file: "charge"
};

// The result of a scenario, which runs up to the first step with an unmet expectation.
struct Outcome {
  std::vector<std::string> failures = {};  // each with its place, what was expected, and what was seen
  std::vector<std::string> log = {};       // the last lines until then, and how many were omitted between
  std::vector<std::string> wholeLog = {};  // every line until then
  double begin = 0;                        // machine time
  double seconds = 0;                      // … that passed since then
  bool cancelled = false;  // it did not run to its end, because `shouldContinue` returned false
  std::vector<DoneAction> doneActions = {};
  // The latest step with an action; none if there was none.
  std::optional<std::size_t> lastStep = std::nullopt;
  // The invariant that failed it; it is among the failures too.
  std::optional<Violation> violation = std::nullopt;
};

// Called between two steps with the machine time that has passed so far.
using ShouldContinue = std::function<bool(double seconds)>;

// Observers of a run.
struct RunOptions {
  Recording* recording = nullptr;    // where the run is recorded
  StateWatch* stateWatch = nullptr;  // … where the daemon's states are counted
  // Which of its calls fails. Then only the invariants are checked, and the run ends an hour after the call,
  // by an exit of the daemon.
  CallFaults* callFaults = nullptr;
  ShouldContinue shouldContinue = {};
  std::function<void(const sim::Simulation&)> afterStep = {};  // may look, and changes nothing
  // Called at the end, with the checkpoint at the beginning. The volume is removed afterwards.
  std::function<void(const sim::Simulation&)> atEnd = {};
};

[[nodiscard]] Outcome runScenario(const Scenario& scenario, const Diagnostics& file,
                                  const RunOptions& options = {});

// The report on a failed scenario.
[[nodiscard]] std::string reportOf(const Outcome& outcome);

}  // namespace brisko::lab
