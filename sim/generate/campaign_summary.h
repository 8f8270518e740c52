// sim/generate/campaign_summary.h
// The file in which a campaign, or one shard of it, records what it has run so far. A campaign that is
// started again continues there, and the files of all shards add up to that of the whole campaign. The schema
// is docs/schemas/campaign-summary.schema.json.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/generate/coverage.h"
#include "sim/generate/scenario_generator.h"
#include "sim/generate/seeds.h"
#include "sim/generate/verdict.h"

namespace brisko::lab {

// The options that decide what each seed does.
struct ScenarioOptions {
  std::int64_t days = 7;
  Faults faults = Faults::all;
  std::string guard = {};  // of the daemon; empty: without that option
  bool operator==(const ScenarioOptions&) const = default;
};

// The share of a campaign that one file is about.
struct Shard {
  std::uint64_t number = 1;  // from 1
  std::uint64_t of = 1;
  bool operator==(const Shard&) const = default;
};
// Parses "2/8".
[[nodiscard]] std::optional<Shard> parseShard(std::string_view text);
// The seeds of the shard: those of all shards are the seeds of the campaign, each once, and their numbers
// differ by one at most. None if there are more shards than seeds.
[[nodiscard]] std::optional<Seeds> seedsOf(const Seeds& campaign, const Shard& shard);

struct CampaignSummary {
  // What an empty file of these options begins with.
  CampaignSummary(const Seeds& allSeeds, const Shard& part, ScenarioOptions scenarioOptions, Coverage known);

  std::string commit;
  Seeds campaign;
  ScenarioOptions options;
  Shard shard;
  Seeds seeds;                       // of this shard
  std::vector<Seeds> finished = {};  // in order; neither overlapping nor adjacent
  std::uint64_t passed = 0;
  std::map<std::uint64_t, Verdict> failures = {};  // by seed
  std::int64_t simulatedSeconds = 0;
  double processorSeconds = 0;  // spent so far, also on scenarios that were interrupted
  double elapsedSeconds = 0;
  Coverage coverage;

  void add(std::uint64_t seed, const Verdict& verdict);  // of a scenario that ran to its end
  [[nodiscard]] bool has(std::uint64_t seed) const;
  [[nodiscard]] bool isFinished() const;  // all of its seeds
};

[[nodiscard]] std::string textOf(const CampaignSummary& summary);
// None, and the reason, if the text is torn or not a summary.
[[nodiscard]] std::optional<CampaignSummary> readSummary(std::string_view text, std::string& reason);

// Replaces the file as a whole: whoever reads it, at whatever moment this process ends, reads the old one or
// the new one. False if that fails.
[[nodiscard]] bool writeSummary(const std::string& file, const CampaignSummary& summary);

// Why this summary cannot be continued with the options of `wanted`; none if it can.
[[nodiscard]] std::optional<std::string> whyNotContinued(const CampaignSummary& kept,
                                                         const CampaignSummary& wanted);

struct NamedSummary {
  std::string file;
  CampaignSummary summary;
};
// Adds the summaries of all shards. None if they are not one whole campaign, and then `problems` names each
// shard that is missing, unfinished, in two files, of another commit or of other options.
[[nodiscard]] std::optional<CampaignSummary> mergeSummaries(const std::vector<NamedSummary>& all,
                                                            std::vector<std::string>& problems);

// What people read: what was seen, what never was, and the cost.
[[nodiscard]] std::string reportOf(const CampaignSummary& summary);

}  // namespace brisko::lab
