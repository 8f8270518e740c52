// sim/generate/campaign.h
// Plays generated scenarios of many seeds, and tells of those in which an invariant was violated.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "sim/generate/scenario_generator.h"
#include "sim/generate/verdict.h"

namespace brisko::lab {

struct Seeds {
  std::uint64_t first = 1, last = 1;
};
// "17" or "1..400"; none when it is neither, or the last comes before the first.
[[nodiscard]] std::optional<Seeds> parseSeeds(std::string_view text);

struct CampaignOptions {
  Seeds seeds = {};
  std::int64_t days = 7;
  Faults faults = Faults::all;
  unsigned jobs = 1;
  // Where what is left of the first scenario for each invariant is written; none: nothing is cut down.
  std::optional<std::string> shrinkInto = std::nullopt;
};

inline constexpr int campaignPassed = 0;
inline constexpr int campaignFailed = 1;
inline constexpr int campaignInterrupted = 130;  // as shells tell control-C

// Where the words go: those of the campaign to standard output, the same for the same seeds; how far it is to
// standard error.
struct Output {
  std::function<void(const std::string&)> print;
  std::function<void(const std::string&)> progress;
  bool onTerminal = false;  // the whispers replace each other
};

// Plays one scenario of a seed; a test may play something else.
using RunSeed = std::function<Verdict(std::uint64_t seed, const ShouldContinue&)>;

// Until all are played or SIGINT or SIGTERM comes. The exit status.
[[nodiscard]] int runCampaign(const CampaignOptions& options, const Output& output, const RunSeed& runSeed);

// How a generated scenario of the order is played.
[[nodiscard]] RunSeed runnerFor(const CampaignOptions& options);

}  // namespace brisko::lab
