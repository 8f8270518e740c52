// sim/scenario/run_scenario.h
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "sim/invariants/invariant_checker.h"
#include "sim/scenario/recording.h"
#include "sim/scenario/scenario.h"

namespace brisko::lab {

// How a scenario went. It is played up to the first step where something is not as expected.
struct Outcome {
  std::vector<std::string> failures = {};  // each with its place, what was expected, and what was seen
  std::vector<std::string> log = {};       // the last lines until then, and how many are left out between
  double begin = 0;                        // machine time
  double seconds = 0;                      // … that passed since then
  bool cancelled = false;                  // it was not played to its end, because it was not to continue
  // Of the latest step that did something; none when none did.
  std::optional<std::size_t> lastStep = std::nullopt;
  // The invariant that failed it; it is among the failures too.
  std::optional<Violation> violation = std::nullopt;
};

// Asked between any two steps, with the machine time that passed so far.
using ShouldContinue = std::function<bool(double seconds)>;

// Who watches while it is played.
struct RunOptions {
  Recording* recording = nullptr;  // what happens is noted there
  ShouldContinue shouldContinue = {};
  // Called at the end with the folder of the Mac's volume, which is removed afterwards.
  std::function<void(const std::string& volume)> atEnd = {};
};

[[nodiscard]] Outcome runScenario(const Scenario& scenario, const Diagnostics& file,
                                  const RunOptions& options = {});

// What there is to read about a scenario that failed.
[[nodiscard]] std::string reportOf(const Outcome& outcome);

}  // namespace brisko::lab
