// sim/scenario/scenario.h
// A scenario: a Mac and its daemon, what happens to them over time, and what must be seen. docs/lab.md
// explains the file key by key, and docs/schemas/scenario.schema.json says the same to a validator.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "sim/scenario/actions.h"
#include "sim/scenario/checks.h"
#include "sim/scenario/simulation.h"
#include "sim/scenario/strict_json.h"
#include "sim/scenario/timing.h"

namespace brisko::lab {

struct Step {
  std::string place = {};                   // in the file
  std::optional<Timing> at = std::nullopt;  // none: at the moment of the step before
  std::vector<Action> actions = {};
  std::vector<Check> checks = {};
};

struct Scenario {
  std::string description = {};
  SimulationSetup setup;
  std::vector<Action> before = {};  // the first start
  std::vector<Step> steps = {};
  std::vector<Check> end = {};                  // over everything
  std::vector<std::string> expectedLines = {};  // patterns; a warning that fits none fails the scenario
  // Nothing but the invariants is asked of it: warnings may come, and what can't be done is left out.
  bool invariantsOnly = false;
};

// The scenario in the file's text. None when anything is wrong with it, which is complained of; files that it
// names are looked for from the folder of its own.
[[nodiscard]] std::optional<Scenario> readScenario(std::string_view text, Diagnostics& diagnostics);

}  // namespace brisko::lab
