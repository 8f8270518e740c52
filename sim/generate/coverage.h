// sim/generate/coverage.h
// What generated scenarios have shown of the daemon and of its Mac, and what was never seen.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/scenario/run_scenario.h"
#include "sim/scenario/state_watch.h"
#include "sim/scenario/strict_json.h"

namespace brisko::lab {

// The kinds of lines that the daemon can log.
struct LogKinds {
  std::vector<std::string> known = {};
  // Of a line without its time; none if it is of no kind, or could be of several.
  std::function<std::optional<std::string>(std::string_view line)> kindOf = {};
};

struct Coverage {
  using Counts = std::map<std::string, std::uint64_t>;  // by name; 0: known, but never seen

  Counts states = {};              // how often they were entered
  Counts transitions = {};         // how often they happened
  Counts logLines = {};            // how often each kind was logged
  Counts faults = {};              // actions of the timelines; how often they were done
  Counts faultPairs = {};          // "a + b": in how many scenarios the two were done within a day
  std::uint64_t unknownLines = 0;  // of no kind

  void add(const Coverage& other);
  bool operator==(const Coverage&) const = default;
};

// Everything that is known, with the count 0. Pairs are too many to be listed.
[[nodiscard]] Coverage knownCoverage(const LogKinds& kinds);
// How many pairs these faults can form.
[[nodiscard]] std::uint64_t pairsOf(std::uint64_t faults);
[[nodiscard]] std::string pairName(const std::string& one, const std::string& other);

// Of one run.
[[nodiscard]] Coverage coverageOf(const Outcome& outcome, const StateWatch& watch, const LogKinds& kinds);

// As JSON and back. `value` must have the form that the schema of summaries defines.
[[nodiscard]] Json jsonOf(const Coverage& coverage);
[[nodiscard]] Coverage coverageIn(const Json& value);

}  // namespace brisko::lab
