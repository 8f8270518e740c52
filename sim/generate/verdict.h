// sim/generate/verdict.h
// How a generated scenario went.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sim/generate/generated_scenario.h"
#include "sim/scenario/run_scenario.h"

namespace brisko::lab {

enum class Result : std::uint8_t {
  passed,     // every invariant, held
  failed,     // something did not
  crashed,    // the process that played it died, or was never heard of again
  cancelled,  // it was not to continue
};

struct Verdict {
  Result result = Result::crashed;
  double begin = 0;    // machine time
  double seconds = 0;  // … that was played
  // Of one that went wrong:
  int invariant = 0;
  double at = 0;                                          // seconds since the beginning
  std::string seen = {};                                  // instead; or how the process ended
  std::vector<std::string> log = {};                      // its end
  std::optional<std::size_t> timedAction = std::nullopt;  // the latest before it
};

// Plays it in this process.
[[nodiscard]] Verdict runGenerated(const GeneratedScenario& generated, const ShouldContinue& shouldContinue);

// As a line of text, and back; none when it is no such line.
[[nodiscard]] std::string lineOf(const Verdict& verdict);
[[nodiscard]] std::optional<Verdict> verdictOf(const std::string& line);

}  // namespace brisko::lab
