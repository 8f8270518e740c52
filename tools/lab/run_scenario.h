// lab/run_scenario.h
#pragma once

#include <string>
#include <vector>

#include "lab/recording.h"
#include "lab/scenario.h"

namespace brisko::lab {

// How a scenario went. It is played up to the first step where something is not as expected.
struct Outcome {
  std::vector<std::string> failures = {};  // each with its place, what was expected, and what was seen
  std::vector<std::string> log = {};       // the last lines until then, with their times
  double seconds = 0;                      // machine time that passed
};

// With a recording, what happens is noted there too.
[[nodiscard]] Outcome runScenario(const Scenario& scenario, const Complaints& file,
                                  Recording* recording = nullptr);

// What there is to read about a scenario that failed.
[[nodiscard]] std::string reportOf(const Outcome& outcome);

}  // namespace brisko::lab
