// sim/scenario/checks.h
// What must be observed in a step of a scenario.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "sim/scenario/checked_simulation.h"
#include "sim/scenario/line_pattern.h"
#include "sim/scenario/strict_json.h"

namespace brisko::lab {

struct Check {
  std::string place;  // in the file
  std::function<std::vector<Difference>(const CheckedSimulation&)> run;
};

struct Checks {
  std::vector<Check> all = {};
  // Patterns of the lines that the scenario expects; a warning that matches none of them fails the scenario.
  std::vector<std::string> expectedLines = {};
};

// Adds the checks of an object with expectations, which meets the schema.
void readChecks(const JsonCursor& place, Checks& checks);

// The names of all expectations.
[[nodiscard]] std::vector<std::string> checkNames();

}  // namespace brisko::lab
