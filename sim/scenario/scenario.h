// sim/scenario/scenario.h
// A scenario: a Mac and its daemon, what happens to them over time, and what must be observed. docs/lab.md
// explains the file key by key; its form is defined in docs/schemas/scenario.schema.json.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "sim/process/simulation.h"
#include "sim/scenario/actions.h"
#include "sim/scenario/checks.h"
#include "sim/scenario/strict_json.h"
#include "sim/scenario/timing.h"

namespace brisko::lab {

struct Step {
  std::string place = {};                   // in the file
  std::optional<Timing> at = std::nullopt;  // none: at the time of the previous step
  std::vector<Action> actions = {};
  std::vector<Check> checks = {};
};

struct Scenario {
  std::string description = {};
  sim::SimulationSetup setup;
  std::optional<std::string> settings = std::nullopt;  // config.json; none: no file
  std::vector<Action> before = {};                     // before the first start
  std::vector<Step> steps = {};
  std::vector<Check> end = {};                  // checked over the whole run
  std::vector<std::string> expectedLines = {};  // patterns; a warning that matches none fails the scenario
  // Only the invariants are checked: warnings may be logged, and actions that can't be done are skipped.
  bool invariantsOnly = false;
};

// Reads the scenario from the file's text. Returns none and adds to the diagnostics when anything is wrong
// with it. Files that it names are looked up from its own folder.
[[nodiscard]] std::optional<Scenario> readScenario(std::string_view text, Diagnostics& diagnostics);

}  // namespace brisko::lab
