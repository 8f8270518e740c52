// sim/generate/campaign.h
// Runs the generated scenarios of many seeds and reports those that violated an invariant.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "sim/generate/campaign_summary.h"
#include "sim/generate/scenario_generator.h"
#include "sim/generate/seeds.h"
#include "sim/generate/verdict.h"

namespace brisko::lab {

// Where a campaign records what it has run, and what of it this one runs.
struct SummaryOptions {
  std::string file = {};
  Shard shard = {};
  LogKinds kinds = {};
};

struct CampaignOptions {
  Seeds seeds = {};  // of all shards
  std::int64_t days = 7;
  Faults faults = Faults::all;
  std::string guard = {};  // of the daemon; empty: without that option
  unsigned jobs = 1;
  // With one, a campaign that is started again continues where it was.
  std::optional<SummaryOptions> summary = std::nullopt;
  // The folder for the shrunk scenarios, one for each violated invariant; none: nothing is shrunk.
  std::optional<std::string> shrinkInto = std::nullopt;
};

inline constexpr int campaignPassed = 0;
inline constexpr int campaignFailed = 1;
inline constexpr int campaignUnusable = 2;       // the summary cannot be continued or written
inline constexpr int campaignInterrupted = 130;  // the status that shells give for control-C

// Where the texts go. The results go to standard output and are the same for the same seeds; the progress
// goes to standard error.
struct Output {
  std::function<void(const std::string&)> print;
  std::function<void(const std::string&)> progress;
  bool onTerminal = false;  // each progress line replaces the previous one
};

// Runs the scenario of one seed. Tests may pass a function of their own.
using RunSeed = std::function<Verdict(std::uint64_t seed, const ShouldContinue&)>;

// Runs until all seeds are finished or SIGINT or SIGTERM arrives. Returns the exit status.
[[nodiscard]] int runCampaign(const CampaignOptions& options, const Output& output, const RunSeed& runSeed);

// Returns the function that generates and runs the scenario of a seed with these options.
[[nodiscard]] RunSeed runnerFor(const CampaignOptions& options);

}  // namespace brisko::lab
