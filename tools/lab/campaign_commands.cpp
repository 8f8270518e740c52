#include "tools/lab/campaign_commands.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include <unistd.h>

#include "sim/generate/campaign.h"
#include "sim/generate/random_story.h"
#include "sim/generate/story.h"

namespace brisko::lab {
namespace {

constexpr int misused = 2;

struct Words {
  std::string seeds = {};
  std::string faults = "all";
  CampaignOrder order = {.jobs = std::max(1U, std::thread::hardware_concurrency())};
  std::string shrinkInto = {};

  // None, and a complaint, when they make no sense.
  [[nodiscard]] std::optional<CampaignOrder> read() const {
    CampaignOrder read = order;
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
    return read;
  }
};

void addWords(CLI::App& command, Words& words) {
  command.add_option("--days", words.order.days, "how many simulated days each lasts; 7 without it")
      ->check(CLI::Range(1, 3650));
  command.add_option("--faults", words.faults, "what goes wrong; all without it")
      ->check(CLI::IsMember({"none", "some", "all"}));
}

void say(std::FILE* where, const std::string& text) {
  static_cast<void>(std::fwrite(text.data(), 1, text.size(), where));
  static_cast<void>(std::fflush(where));
}

int playCampaign(const Words& words) {
  const auto order = words.read();
  if (!order) return misused;
  return runCampaign(*order,
                     {.tell = [](const std::string& text) { say(stdout, text); },
                      .whisper = [](const std::string& text) { say(stderr, text); },
                      .onTerminal = ::isatty(STDERR_FILENO) == 1},
                     playerFor(*order));
}

int printStory(const Words& words) {
  const auto order = words.read();
  if (!order) return misused;
  say(stdout, scenarioText(randomStory(order->seeds.first, order->days, order->faults)));
  return 0;
}

}  // namespace

void addCampaignCommands(CLI::App& program, std::function<int()>& chosen) {
  const auto words = std::make_shared<Words>();
  CLI::App* campaign = program.add_subcommand(
      "campaign", "play made-up stories; status 0: what always holds, held, 1: it did not, 130: control-C");
  campaign->add_option("--seeds", words->seeds, "A..B, or one")->required();
  addWords(*campaign, *words);
  campaign->add_option("--jobs", words->order.jobs, "how many at a time; one per core without it")
      ->check(CLI::Range(1, 1000));
  campaign
      ->add_option(
          "--shrink", words->shrinkInto,
          "cut the first failure of each kind down to what matters, into this folder or the current one")
      ->expected(0, 1)
      ->default_str(".");
  campaign->callback([words, &chosen] { chosen = [words] { return playCampaign(*words); }; });

  CLI::App* story = program.add_subcommand("story", "print the made-up story of a seed, as a scenario");
  story->add_option("--seed", words->seeds, "a number")->required();
  addWords(*story, *words);
  story->callback([words, &chosen] { chosen = [words] { return printStory(*words); }; });
}

}  // namespace brisko::lab
