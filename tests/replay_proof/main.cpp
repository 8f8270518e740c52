// Proves the replay of reports: the Macs of generated scenarios send reports, and the replay of each must
// agree with it. Status 0: every goal was reached, 1: one was missed, 2: the command line is invalid.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string>

#include "proof_program/proof_program.h"
#include "replay_proof/agreement.h"
#include "replay_proof/generated_report.h"
#include "sim/generate/scenario_generator.h"
#include "sim/replay/comparison.h"
#include "sim/replay/play.h"
#include "sim/replay/reported_days.h"

namespace brisko::proof {
namespace {

struct Options {
  std::int64_t days = 7;
  ReportOptions report = {};
  bool faults = false;
  std::string keep = {};  // the folder for the archives; "" for none
};

void print(const std::string& text) {
  static_cast<void>(std::fputs(text.c_str(), stdout));
  static_cast<void>(std::fflush(stdout));
}

void keepArchive(std::uint64_t seed, const Options& options, const std::string& archive) {
  if (options.keep.empty()) return;
  std::ofstream file(options.keep + "/seed-" + std::to_string(seed) + ".tar", std::ios::binary);
  file << archive;
  file.close();
  if (!file) throw std::runtime_error("no archive can be written to " + options.keep);
}

// The days of the report; none after a message when the scenario failed or the report could not be read.
std::optional<lab::ReportedDays> reportedDays(std::uint64_t seed, const lab::GeneratedScenario& scenario,
                                              const Options& options, std::string& reason) {
  const GeneratedReport report = reportOf(scenario, options.report);
  reason = report.failure;
  if (!reason.empty()) return std::nullopt;
  keepArchive(seed, options, report.archive);
  lab::ReportReading reading = lab::readReport(report.archive);
  reason = reading.error;
  return std::move(reading.days);
}

void replaySeed(std::uint64_t seed, const Options& options, Agreement& agreement) {
  std::string reason;
  const auto scenario = lab::generateScenario(seed, options.days, lab::Faults::none);
  const auto days = reportedDays(seed, scenario, options, reason);
  if (!days) return agreement.addUnreplayed(seed, reason);
  const lab::Trace replayed = lab::play(lab::reconstruct(*days));
  if (replayed.sightings.empty()) return agreement.addUnreplayed(seed, "the replay left no trace");
  agreement.add(seed, lab::compare(days->trace, replayed));
}

void findFault(std::uint64_t seed, const Options& options, Departures& departures, Agreement& agreement) {
  std::string reason;
  auto scenario = lab::generateScenario(seed, options.days, lab::Faults::none);
  const auto without = reportedDays(seed, scenario, options, reason);
  const HiddenFault fault = addHiddenFault(seed, scenario);
  const auto with = without ? reportedDays(seed, scenario, options, reason) : std::nullopt;
  if (!with) return agreement.addUnreplayed(seed, reason);
  const auto first = firstDifference(without->trace, with->trace);
  if (!first) return departures.addTraceless();
  const auto apart = lab::compare(with->trace, without->trace).departures;
  const FaultTrace trace{*first, apart.empty() ? std::nullopt : std::optional(apart.front().time)};
  const lab::Trace replayed = lab::play(lab::reconstruct(*with));
  if (replayed.sightings.empty()) return agreement.addUnreplayed(seed, "the replay left no trace");
  const auto comparison = lab::compare(with->trace, replayed);
  const auto& found = comparison.departures;
  departures.add(seed, fault.words, trace, found.empty() ? std::nullopt : std::optional(found.front()));
}

bool proveSeeds(const lab::Seeds& seeds, const Options& options) {
  Agreement agreement;
  Departures departures;
  for (std::uint64_t seed = seeds.first; seed <= seeds.last; ++seed) {
    if (options.faults) {
      findFault(seed, options, departures, agreement);
    } else {
      replaySeed(seed, options, agreement);
    }
  }
  print(options.faults ? departures.text() : agreement.text());
  const auto missed = options.faults ? departures.missedGoals() : agreement.missedGoals();
  for (const std::string& goal : missed) print("MISSED  " + goal + "\n");
  return missed.empty();
}

int run(int count, char** arguments) {
  Options options;
  bool withoutPowerLog = false;
  const auto addOptions = [&](CLI::App& program) {
    program.add_option("--days", options.days, "how many simulated days each lasts; default: 7")
        ->check(CLI::Range(1, 50));
    program.add_flag("--without-power-log", withoutPowerLog,
                     "the reports lack macOS's own log of power events");
    program.add_flag("--faults", options.faults,
                     "one hidden fault each, and how far from it the first departure is");
    program.add_option("--keep", options.keep, "DIR: write each report there as seed-N.tar")
        ->check(CLI::ExistingDirectory);
  };
  return runProof(
      {.name = "brisko-replay-proof",
       .description = "Replays the reports of generated scenarios, and compares each with its replay."},
      count, arguments, addOptions, [&](const lab::Seeds& seeds) {
        options.report.powerLog = !withoutPowerLog;
        return proveSeeds(seeds, options);
      });
}

}  // namespace
}  // namespace brisko::proof

int main(int count, char** arguments) { return brisko::proof::run(count, arguments); }
