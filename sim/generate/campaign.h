// sim/generate/campaign.h
// Plays made-up stories of many seeds, and tells of those in which something went wrong that always holds.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "sim/generate/random_story.h"
#include "sim/generate/verdict.h"

namespace brisko::lab {

struct Seeds {
  std::uint64_t first = 1, last = 1;
};
// "17" or "1..400"; none when it is neither, or the last comes before the first.
[[nodiscard]] std::optional<Seeds> parseSeeds(std::string_view text);

struct CampaignOrder {
  Seeds seeds = {};
  std::int64_t days = 7;
  Faults faults = Faults::all;
  unsigned jobs = 1;
  // Where what is left of the first story for each invariant is written; none: nothing is cut down.
  std::optional<std::string> shrinkInto = std::nullopt;
};

inline constexpr int campaignHolds = 0;
inline constexpr int campaignFails = 1;
inline constexpr int campaignInterrupted = 130;  // as shells tell control-C

// Where the words go: those of the campaign to standard output, the same for the same seeds; how far it is to
// standard error.
struct Voices {
  std::function<void(const std::string&)> tell;
  std::function<void(const std::string&)> whisper;
  bool onTerminal = false;  // the whispers replace each other
};

// Plays one story of a seed; a test may play something else.
using PlaySeed = std::function<Verdict(std::uint64_t seed, const GoesOn&)>;

// Until all are played or SIGINT or SIGTERM comes. The exit status.
[[nodiscard]] int runCampaign(const CampaignOrder& order, const Voices& voices, const PlaySeed& play);

// How a made-up story of the order is played.
[[nodiscard]] PlaySeed playerFor(const CampaignOrder& order);

}  // namespace brisko::lab
