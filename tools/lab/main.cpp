// Tells stories about the daemon in virtual time and looks whether they go as they should.

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include "lab/campaign.h"
#include "lab/run_scenario.h"
#include "lab/scenario.h"
#include "lab/timing.h"
#include "platform/virtual/faults.h"
#include "vmac/change_words.h"

namespace brisko::lab {
namespace {

// Exit statuses.
constexpr int allHold = 0;
constexpr int someFail = 1;
constexpr int misused = 2;  // a bad file, or words that are none

void print(const std::string& text) { static_cast<void>(std::fwrite(text.data(), 1, text.size(), stdout)); }

void complain(const std::string& text) { static_cast<void>(std::fprintf(stderr, "%s\n", text.c_str())); }

std::optional<std::string> contentsOf(const std::string& path) {
  std::ifstream stream(path, std::ios::binary);
  std::ostringstream text;
  if (!stream || !(text << stream.rdbuf())) return std::nullopt;
  return text.str();
}

int runFile(const std::string& path) {
  Complaints complaints(path);
  const auto text = contentsOf(path);
  if (!text) complaints.add("", "cannot be read");
  const auto scenario = text ? readScenario(*text, complaints) : std::nullopt;
  if (!scenario) {
    for (const std::string& complaint : complaints.texts()) complain(complaint);
    return misused;
  }
  const Outcome outcome = runScenario(*scenario, complaints);
  const bool holds = outcome.failures.empty();
  print(std::string(holds ? "ok    " : "FAIL  ") + path + " (" + spanText(outcome.seconds) +
        "): " + scenario->story + "\n");
  if (!holds) print(reportOf(outcome));
  return holds ? allHold : someFail;
}

int runFiles(const std::vector<std::string>& paths) {
  std::size_t held = 0;
  std::size_t failed = 0;
  for (const std::string& path : paths) {
    const int status = runFile(path);
    held += status == allHold ? 1 : 0;
    failed += status == someFail ? 1 : 0;
  }
  const std::size_t bad = paths.size() - held - failed;
  if (paths.size() > 1) {
    print(std::to_string(paths.size()) + " scenarios: " + std::to_string(held) + " hold, " +
          std::to_string(failed) + " failed, " + std::to_string(bad) + " could not be read\n");
  }
  return bad > 0 ? misused : failed > 0 ? someFail : allHold;
}

int listActions() {
  print("What happens to the service, the app and the files:\n");
  for (const std::string& name : ownActionNames()) print("  " + name + "\n");
  print("What happens to the machine:\n" + vmac::faultList());
  return allHold;
}

// The words of the commands that make stories up.
struct CampaignWords {
  std::string seeds;
  std::string faults = "all";
  CampaignOrder order = {.jobs = std::max(1U, std::thread::hardware_concurrency())};
  std::string folder;

  // None, and a complaint, when they make no sense.
  [[nodiscard]] std::optional<CampaignOrder> read() const {
    CampaignOrder read = order;
    const auto range = parseSeeds(seeds);
    if (!range) complain("brisko-lab: --seeds takes a seed or a range like 1..400, not \"" + seeds + "\"");
    if (!range) return std::nullopt;
    read.seeds = *range;
    for (const Faults kind : {Faults::none, Faults::some, Faults::all}) {
      if (faults == nameOf(kind)) read.faults = kind;
    }
    if (!folder.empty()) read.shrinkInto = folder;
    return read;
  }
};

void addWords(CLI::App& command, CampaignWords& words) {
  command.add_option("--days", words.order.days, "simulated days of each; 7 without it")
      ->check(CLI::Range(1, 3650));
  command.add_option("--faults", words.faults, "all without it")
      ->check(CLI::IsMember({"none", "some", "all"}));
}

int playCampaign(const CampaignWords& words) {
  const auto order = words.read();
  if (!order) return misused;
  const Voices voices{
      .tell =
          [](const std::string& text) {
            print(text);
            static_cast<void>(std::fflush(stdout));
          },
      .whisper = [](const std::string& text) { static_cast<void>(std::fputs(text.c_str(), stderr)); },
      .onTerminal = ::isatty(STDERR_FILENO) == 1,
  };
  return runCampaign(*order, voices, playerFor(*order));
}

int tellStory(const CampaignWords& words) {
  const auto order = words.read();
  if (!order) return misused;
  print(scenarioText(randomStory(order->seeds.first, order->days, order->faults)));
  return allHold;
}

int run(int count, char** arguments) {
  CLI::App program{"Tells stories about the daemon in virtual time.", "brisko-lab"};
  program.require_subcommand(1);
  std::function<int()> chosen;
  std::vector<std::string> paths;
  CLI::App* runs = program.add_subcommand(
      "run", "play scenarios; status 0: all hold, 1: one does not, 2: a file is no scenario");
  runs->add_option("files", paths, "FILE.json …")->required();
  runs->callback([&] { chosen = [&] { return runFiles(paths); }; });
  program.add_subcommand("actions", "list what can happen in a scenario")->callback([&] {
    chosen = listActions;
  });
  CampaignWords words;
  CLI::App* campaign = program.add_subcommand(
      "campaign", "play made-up stories; status 0: what always holds, held, 1: it did not, 130: control-C");
  campaign->add_option("--seeds", words.seeds, "A..B, or one")->required();
  addWords(*campaign, words);
  campaign->add_option("--jobs", words.order.jobs, "how many at a time; one per core without it")
      ->check(CLI::Range(1, 1000));
  campaign->add_option("--shrink", words.folder, "cut the first failure of each kind down, into this folder")
      ->expected(0, 1)
      ->default_str(".");
  campaign->callback([&] { chosen = [&] { return playCampaign(words); }; });
  CLI::App* story = program.add_subcommand("story", "print the made-up story of a seed as a scenario");
  story->add_option("--seed", words.seeds, "the seed")->required();
  addWords(*story, words);
  story->callback([&] { chosen = [&] { return tellStory(words); }; });
  try {
    program.parse(count, arguments);
  } catch (const CLI::ParseError& error) {
    return program.exit(error) == 0 ? allHold : misused;
  }
  return chosen();
}

}  // namespace
}  // namespace brisko::lab

int main(int count, char** arguments) {
  // The daemon's local days are those of the scenarios' clocks, wherever this runs.
  ::setenv("TZ", "UTC", 1);
  try {
    return brisko::lab::run(count, arguments);
  } catch (const std::exception& error) {
    brisko::lab::complain(std::string("brisko-lab: ") + error.what());
    return 2;
  }
}
