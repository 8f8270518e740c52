// Proves brisko why: over generated scenarios, what each answer names must come true unless an event came
// between. Status 0: every goal was reached, 1: one was missed, 2: the command line is invalid.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <span>
#include <string>

#include "proof_program/proof_program.h"
#include "why_proof/questioning.h"
#include "why_proof/tally.h"

namespace brisko::proof {
namespace {

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

bool proveSeeds(const lab::Seeds& seeds, const QuestioningOptions& options) {
  Tally tally;
  bool allRun = true;
  for (std::uint64_t seed = seeds.first; seed <= seeds.last; ++seed)
    allRun = judgeSeed(seed, options, tally) && allRun;
  print(tally.text());
  const auto missed = tally.missedGoals();
  for (const std::string& goal : missed) print("MISSED  " + goal + "\n");
  return allRun && missed.empty();
}

int run(int count, char** arguments) {
  QuestioningOptions options;
  std::string faults = "none";
  const auto addOptions = [&](CLI::App& program) {
    program.add_option("--days", options.days, "how many simulated days each lasts; default: 4")
        ->check(CLI::Range(1, 365));
    program.add_option("--questions", options.questionsADay, "how many moments a day; default: 40")
        ->check(CLI::Range(1, 1000));
    program.add_option("--faults", faults, "what goes wrong; default: none")
        ->check(CLI::IsMember({"none", "some", "all"}));
  };
  return runProof(
      {.name = "brisko-why-proof",
       .description = "Asks brisko why at random moments of generated scenarios, and evaluates the answers."},
      count, arguments, addOptions, [&](const lab::Seeds& seeds) {
        for (const lab::Faults kind : {lab::Faults::none, lab::Faults::some, lab::Faults::all}) {
          if (faults == nameOf(kind)) options.faults = kind;
        }
        return proveSeeds(seeds, options);
      });
}

}  // namespace
}  // namespace brisko::proof

int main(int count, char** arguments) { return brisko::proof::run(count, arguments); }
