// sim/generate/verdict.h
// The result of running a generated scenario.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sim/generate/coverage.h"
#include "sim/scenario/generated_scenario.h"
#include "sim/scenario/run_scenario.h"

namespace brisko::lab {

enum class Result : std::uint8_t {
  passed,     // every invariant held
  failed,     // an invariant was violated
  crashed,    // the process that ran it died or stopped reporting
  cancelled,  // it was asked to stop
};

struct Verdict {
  Result result = Result::crashed;
  double begin = 0;    // machine time
  double seconds = 0;  // … that was run
  // Of a failed or crashed run:
  int invariant = 0;                                      // its number
  std::string invariantText = {};                         // with its number
  double at = 0;                                          // seconds since the beginning
  std::string seen = {};                                  // what was seen instead, or how the process ended
  std::vector<std::string> log = {};                      // its last lines
  std::optional<std::size_t> timedAction = std::nullopt;  // the latest one before the failure
  Coverage coverage = {};                                 // empty if nobody asked for it
};

// Runs the scenario in this process. With the kinds of log lines the verdict also has its coverage.
[[nodiscard]] Verdict runGenerated(const GeneratedScenario& generated, const ShouldContinue& shouldContinue,
                                   const LogKinds* logKinds = nullptr);

// Converts a verdict to JSON and back, without its coverage; `words` must have come from jsonOf().
[[nodiscard]] Json jsonOf(const Verdict& verdict);
[[nodiscard]] Verdict verdictIn(const Json& words);

// Converts a verdict to a line of text and back; none when the line is not a verdict.
[[nodiscard]] std::string lineOf(const Verdict& verdict);
[[nodiscard]] std::optional<Verdict> verdictOf(const std::string& line);

}  // namespace brisko::lab
