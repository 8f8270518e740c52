#include "tools/lab/nights_command.h"

#include <CLI/CLI.hpp>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "sim/generate/campaign.h"
#include "sim/generate/night_bench.h"
#include "tools/lab/campaign_commands.h"

namespace brisko::lab {
namespace {

constexpr int allHeld = 0;
constexpr int oneViolated = 1;

struct NightsCommandLine {
  std::string seeds = "1..200";
  NightOptions options = {};
  std::string guard = {};
};

int spendNights(const NightsCommandLine& given) {
  const auto seeds = parseSeeds(given.seeds);
  if (!seeds) {
    static_cast<void>(std::fprintf(
        stderr, "brisko-lab: seeds are a number or a range like 1..200, not \"%s\"\n", given.seeds.c_str()));
    return usageError;
  }
  NightOptions options = given.options;
  if (!given.guard.empty()) options.guard = given.guard;
  std::vector<Night> nights;
  int status = allHeld;
  for (std::uint64_t seed = seeds->first; seed <= seeds->last; ++seed) {
    const NightPlan plan = planNight(seed);
    nights.push_back({.plan = plan, .result = spendNight(plan, options)});
    const std::string& violation = nights.back().result.violation;
    if (violation.empty()) continue;
    std::printf("seed %llu: %s\n", static_cast<unsigned long long>(seed), violation.c_str());
    status = oneViolated;
  }
  static_cast<void>(std::fputs((nightTable(nights) + nightGoals(nights)).c_str(), stdout));
  return status;
}

}  // namespace

void addNightsCommand(CLI::App& program, std::function<int()>& chosen) {
  const auto line = std::make_shared<NightsCommandLine>();
  CLI::App* nights = program.add_subcommand(
      "nights",
      "spend generated nights and print the charge in the morning; status 1: an invariant was violated");
  nights->add_option("--seeds", line->seeds, "A..B, or one; default: 1..200");
  nights->add_option("--limit", line->options.limit, "the limit, in percent; default: 80")
      ->check(CLI::Range(20, 100));
  nights->add_option("--guard", line->guard, "LIST: passed on to the daemon");
  nights->callback([line, &chosen] { chosen = [line] { return spendNights(*line); }; });
}

}  // namespace brisko::lab
