// sim/generate/verdict.h
// How a made-up story went.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "sim/generate/story.h"
#include "sim/scenario/run_scenario.h"

namespace brisko::lab {

enum class Went : std::uint8_t {
  well,       // everything that always holds, held
  wrong,      // something did not
  nowhere,    // the process that played it died, or was never heard of again
  brokenOff,  // it was not to go on
};

struct Verdict {
  Went went = Went::nowhere;
  double begin = 0;    // machine time
  double seconds = 0;  // … that was played
  // Of one that went wrong:
  int invariant = 0;
  double at = 0;                                        // seconds since the beginning
  std::string seen = {};                                // instead; or how the process ended
  std::vector<std::string> log = {};                    // its end
  std::optional<std::size_t> happening = std::nullopt;  // the latest before it
};

// Plays it in this process.
[[nodiscard]] Verdict judge(const Story& story, const GoesOn& goesOn);

// As a line of text, and back; none when it is no such line.
[[nodiscard]] std::string lineOf(const Verdict& verdict);
[[nodiscard]] std::optional<Verdict> verdictOf(const std::string& line);

}  // namespace brisko::lab
