#include "sim/generate/coverage.h"

#include <algorithm>
#include <deque>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

#include "sim/machine/faults.h"
#include "sim/process/log_lines.h"
#include "sim/scenario/actions.h"

namespace brisko::lab {
namespace {

constexpr double pairSeconds = 86400;

void addCounts(Coverage::Counts& counts, const Coverage::Counts& others) {
  for (const auto& [name, count] : others) counts[name] += count;
}

Coverage::Counts faultsOf(const Outcome& outcome) {
  Coverage::Counts faults;
  for (const DoneAction& action : outcome.doneActions) ++faults[action.name];
  return faults;
}

// Each pair once, however often its faults met.
Coverage::Counts pairsIn(const std::vector<DoneAction>& actions) {
  std::set<std::pair<std::string, std::string>> pairs;
  std::map<std::string, double> lastAt;  // of each fault so far
  for (const DoneAction& action : actions) {
    for (const auto& [other, at] : lastAt) {
      if (other == action.name || action.at - at > pairSeconds) continue;
      pairs.insert(std::minmax(other, action.name));
    }
    lastAt[action.name] = action.at;
  }
  Coverage::Counts counts;
  for (const auto& [one, other] : pairs) counts[pairName(one, other)] = 1;
  return counts;
}

void addLines(Coverage& coverage, const std::vector<std::string>& log, const LogKinds& kinds) {
  for (const std::string& line : log) {
    if (const auto kind = kinds.kindOf(sim::withoutStamp(line))) {
      ++coverage.logLines[*kind];
    } else {
      ++coverage.unknownLines;
    }
  }
}

}  // namespace

void Coverage::add(const Coverage& other) {
  addCounts(states, other.states);
  addCounts(transitions, other.transitions);
  addCounts(logLines, other.logLines);
  addCounts(faults, other.faults);
  addCounts(faultPairs, other.faultPairs);
  unknownLines += other.unknownLines;
}

Coverage knownCoverage(const LogKinds& kinds) {
  const StateWatch unused;
  Coverage known{.states = unused.states(), .transitions = unused.transitions()};
  for (const std::string& kind : kinds.known) known.logLines[kind] = 0;
  for (const virtual_mac::Fault& fault : virtual_mac::faults()) known.faults[std::string(fault.name)] = 0;
  for (const std::string& name : ownActionNames()) known.faults[name] = 0;
  return known;
}

std::uint64_t pairsOf(std::uint64_t faults) { return faults == 0 ? 0 : faults * (faults - 1) / 2; }

std::string pairName(const std::string& one, const std::string& other) {
  const auto& [first, second] = std::minmax(one, other);
  return first + " + " + second;
}

Coverage coverageOf(const Outcome& outcome, const StateWatch& watch, const LogKinds& kinds) {
  Coverage coverage{.states = watch.states(),
                    .transitions = watch.transitions(),
                    .faults = faultsOf(outcome),
                    .faultPairs = pairsIn(outcome.doneActions)};
  addLines(coverage, outcome.wholeLog, kinds);
  return coverage;
}

Json jsonOf(const Coverage& coverage) {
  return {{"states", coverage.states},     {"transitions", coverage.transitions},
          {"logLines", coverage.logLines}, {"unknownLines", coverage.unknownLines},
          {"faults", coverage.faults},     {"faultPairs", coverage.faultPairs}};
}

Coverage coverageIn(const Json& value) {
  return {.states = value.at("states"),
          .transitions = value.at("transitions"),
          .logLines = value.at("logLines"),
          .faults = value.at("faults"),
          .faultPairs = value.at("faultPairs"),
          .unknownLines = value.at("unknownLines")};
}

}  // namespace brisko::lab
