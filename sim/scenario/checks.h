// sim/scenario/checks.h
// What must be seen in a step of a scenario.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "sim/scenario/line_pattern.h"
#include "sim/scenario/simulation.h"
#include "sim/scenario/strict_json.h"

namespace brisko::lab {

struct Check {
  std::string place;  // in the file
  std::function<std::vector<Difference>(const Simulation&)> run;
};

struct Checks {
  std::vector<Check> all = {};
  // The patterns of lines that are expected to be there; a warning that fits none of them is a fault.
  std::vector<std::string> expectedLines = {};
};

// Adds those of an object with expectations.
void readChecks(const JsonCursor& place, Checks& checks);

// The names of all expectations.
[[nodiscard]] std::vector<std::string> checkNames();

}  // namespace brisko::lab
