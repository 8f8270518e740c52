// sim/generate/failed_calls.h
// Runs scenarios again and again, each time with one call of the daemon that fails, or with a daemon that is
// killed at it, and reports which of these runs violated an invariant.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/generate/campaign.h"
#include "sim/scenario/call_faults.h"

namespace brisko::lab {

// "1234:killed": one call of a scenario, by its number, and how it fails.
struct CallChoice {
  std::uint64_t number = 0;
  CallFault fault = CallFault::once;
};
[[nodiscard]] std::optional<CallChoice> parseCallChoice(std::string_view text);

struct FailedCallsOptions {
  std::vector<std::string> scenarios = {};  // files
  // The share of all runs that is run, above 0 and up to 1. Which ones they are depends on nothing but the
  // scenario's name and the call.
  double sample = 1;
  unsigned jobs = 1;
  std::string calls = {};                         // only calls that contain this text
  std::optional<CallChoice> only = std::nullopt;  // instead of a sample
};

// Returns the status of a campaign; campaignUnusable when a scenario cannot be read.
[[nodiscard]] int runFailedCalls(const FailedCallsOptions& options, const Output& output);

}  // namespace brisko::lab
