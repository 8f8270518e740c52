#include "tools/lab/campaign_commands.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "sim/generate/campaign.h"
#include "sim/generate/scenario_generator.h"
#include "sim/scenario/generated_scenario.h"
#include "tools/lab/log_kinds.h"
#include "tools/lab/standard_streams.h"

namespace brisko::lab {
namespace {

struct CommandLine {
  std::string seeds = {};
  std::string faults = "all";
  CampaignOptions options = {.jobs = std::max(1U, std::thread::hardware_concurrency())};
  std::string shrinkInto = {};
  std::string summary = {};
  std::string shard = {};

  // None, and an error message, when the options are invalid.
  [[nodiscard]] std::optional<CampaignOptions> read() const {
    CampaignOptions read = options;
    const auto range = parseSeeds(seeds);
    if (!range) {
      static_cast<void>(std::fprintf(
          stderr, "brisko-lab: seeds are a number or a range like 1..400, not \"%s\"\n", seeds.c_str()));
      return std::nullopt;
    }
    read.seeds = *range;
    for (const Faults kind : {Faults::none, Faults::some, Faults::all}) {
      if (faults == nameOf(kind)) read.faults = kind;
    }
    if (!shrinkInto.empty()) read.shrinkInto = shrinkInto;
    if (!summary.empty() && !readSummaryOptions(read)) return std::nullopt;
    return read;
  }

 private:
  [[nodiscard]] bool readSummaryOptions(CampaignOptions& read) const {
    const auto part = shard.empty() ? Shard{} : parseShard(shard);
    if (!part || !seedsOf(read.seeds, *part)) {
      static_cast<void>(std::fprintf(stderr,
                                     "brisko-lab: a shard is a number of them all, like 1/8, and each has a "
                                     "seed; not \"%s\"\n",
                                     shard.c_str()));
      return false;
    }
    read.summary = SummaryOptions{.file = summary, .shard = *part, .kinds = documentedLogKinds()};
    return true;
  }
};

void addOptions(CLI::App& command, CommandLine& line) {
  command.add_option("--days", line.options.days, "how many simulated days each lasts; default: 7")
      ->check(CLI::Range(1, 3650));
  command.add_option("--faults", line.faults, "what goes wrong; default: all")
      ->check(CLI::IsMember({"none", "some", "all"}));
  command.add_option("--guard", line.options.guard, "LIST: passed on to the daemon");
}

int startCampaign(const CommandLine& line) {
  const auto options = line.read();
  if (!options) return usageError;
  return runCampaign(*options, outputToStandardStreams(), runnerFor(*options));
}

int printScenario(const CommandLine& line) {
  const auto options = line.read();
  if (!options) return usageError;
  outputToStandardStreams().print(
      scenarioText(generateScenario(options->seeds.first, options->days, options->faults, options->guard)));
  return 0;
}

}  // namespace

void addCampaignCommands(CLI::App& program, std::function<int()>& chosen) {
  const auto line = std::make_shared<CommandLine>();
  CLI::App* campaign = program.add_subcommand(
      "campaign",
      "run generated scenarios; status 0: every invariant held, 1: one was violated, 130: control-C");
  campaign->add_option("--seeds", line->seeds, "A..B, or one")->required();
  addOptions(*campaign, *line);
  campaign->add_option("--jobs", line->options.jobs, "how many at a time; default: one per core")
      ->check(CLI::Range(1, 1000));
  campaign
      ->add_option(
          "--shrink", line->shrinkInto,
          "shrink the first failure of each invariant and write it to this folder, or the current one")
      ->expected(0, 1)
      ->default_str(".");
  CLI::Option* summary =
      campaign->add_option("--summary", line->summary,
                           "FILE.json: record what was run and seen, and continue there when started again");
  campaign->add_option("--shard", line->shard, "K/N: run the K-th of N parts of the seeds")->needs(summary);
  campaign->callback([line, &chosen] { chosen = [line] { return startCampaign(*line); }; });

  CLI::App* scenario = program.add_subcommand("generate", "print the scenario generated from a seed");
  scenario->add_option("--seed", line->seeds, "a number")->required();
  addOptions(*scenario, *line);
  scenario->callback([line, &chosen] { chosen = [line] { return printScenario(*line); }; });
}

}  // namespace brisko::lab
