// Proves brisko why: over generated scenarios, what each answer names must come true unless an event came
// between. Status 0: every goal was reached, 1: one was missed, 2: the command line is invalid.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <span>
#include <string>

#include "sim/generate/campaign.h"
#include "why_proof/questioning.h"
#include "why_proof/tally.h"

namespace brisko::proof {
namespace {

constexpr int misused = 2;

void print(const std::string& text) { static_cast<void>(std::fputs(text.c_str(), stdout)); }

// False when the scenario itself failed.
bool judgeSeed(std::uint64_t seed, const QuestioningOptions& options, Tally& tally) {
  const Questioning questioning = questionSeed(seed, options);
  if (!questioning.failure.empty()) {
    print("seed " + std::to_string(seed) + " failed:\n" + questioning.failure + "\n");
    return false;
  }
  const std::span<const Observation> observations = questioning.observations;
  for (std::size_t index = 0; index < questioning.questions.size(); ++index) {
    const Question& question = questioning.questions[index];
    const auto after = observations.subspan(questioning.firstObservation[index]);
    tally.add(seed, questioning.begin, question, judge(question, after, questioning.events));
  }
  return true;
}

int proveSeeds(const lab::Seeds& seeds, const QuestioningOptions& options) {
  Tally tally;
  bool allRun = true;
  for (std::uint64_t seed = seeds.first; seed <= seeds.last; ++seed)
    allRun = judgeSeed(seed, options, tally) && allRun;
  print(tally.text());
  const auto missed = tally.missedGoals();
  for (const std::string& goal : missed) print("MISSED  " + goal + "\n");
  return allRun && missed.empty() ? 0 : 1;
}

int run(int count, char** arguments) {
  CLI::App program{"Asks brisko why at random moments of generated scenarios, and evaluates the answers.",
                   "brisko-why-proof"};
  QuestioningOptions options;
  std::string seeds;
  std::string faults = "none";
  program.add_option("--seeds", seeds, "A..B, or one")->required();
  program.add_option("--days", options.days, "how many simulated days each lasts; 4 without it")
      ->check(CLI::Range(1, 365));
  program.add_option("--questions", options.questionsADay, "how many moments a day; 40 without it")
      ->check(CLI::Range(1, 1000));
  program.add_option("--faults", faults, "what goes wrong; none without it")
      ->check(CLI::IsMember({"none", "some", "all"}));
  try {
    program.parse(count, arguments);
  } catch (const CLI::ParseError& error) {
    return program.exit(error) == 0 ? 0 : misused;
  }
  const auto range = lab::parseSeeds(seeds);
  if (!range) {
    static_cast<void>(std::fprintf(stderr, "brisko-why-proof: \"%s\" is no range of seeds\n", seeds.c_str()));
    return misused;
  }
  for (const lab::Faults kind : {lab::Faults::none, lab::Faults::some, lab::Faults::all}) {
    if (faults == nameOf(kind)) options.faults = kind;
  }
  return proveSeeds(*range, options);
}

}  // namespace
}  // namespace brisko::proof

int main(int count, char** arguments) {
  // Scenarios use UTC clock times, so the daemon's local days must be those of UTC on every computer.
  ::setenv("TZ", "UTC", 1);
  try {
    return brisko::proof::run(count, arguments);
  } catch (const std::exception& error) {
    static_cast<void>(std::fprintf(stderr, "brisko-why-proof: %s\n", error.what()));
    return brisko::proof::misused;
  }
}
