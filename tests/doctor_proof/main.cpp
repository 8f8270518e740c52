// Asks brisko doctor at random moments of generated weeks without faults, from the files of the virtual Mac,
// and counts its alarms by check. Status 0: every alarm is borne out by the machine itself, 1: one is false,
// 2: the command line is invalid.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "base/json_file.h"
#include "base/settings.h"
#include "client/doctor/diagnosis.h"
#include "client/doctor/gathering.h"
#include "sim/generate/campaign.h"
#include "sim/machine/charge_limit.h"
#include "sim/process/simulation.h"
#include "why_proof/asked_mac.h"
#include "why_proof/asked_scenario.h"

namespace brisko::proof {
namespace {

using client::CheckedResult;
using client::Evidence;
using virtual_mac::Machine;

constexpr int misused = 2;

struct ProofOptions {
  std::int64_t days = 7;
  std::int64_t questionsADay = 20;
  std::string guard = "night,menu,swing";
};

// --- Which alarms are true

bool hasNumberOutOfRange(const client::State& state) {
  const auto file = parseJson(state.settingsFile.text.bytes);
  if (!file || !file->is_object()) return false;
  const auto settings = parseConfig(*file);
  Json inForce = configObject(settings);
  // Only limited where it is used.
  inForce["historyDays"] = std::clamp<std::int64_t>(settings.historyDays, 7, 3650);
  return std::any_of(file->items().begin(), file->items().end(), [&](const auto& item) {
    return item.value().is_number() && inForce.contains(item.key()) && inForce[item.key()] != item.value();
  });
}

bool hasArgumentsOfItsOwn() {
  const std::vector<std::string>& words = askedMac().arguments;
  return std::any_of(words.begin(), words.end(), [](const std::string& word) {
    return word == "--limit" || word == "--lower" || word == "--config";
  });
}

// An ordinary user has a small adapter, works in the sun, stops the service, writes numbers that are too
// large or too small, has a band in the job, or a macOS that closes the keys. The machine itself shows it.
bool isTrue(const CheckedResult& alarm, const Evidence& evidence, const sim::Simulation& simulation) {
  const Machine& machine = simulation.machine();
  const std::string id = alarm.check->id;
  if (id == "D03") return !simulation.daemonRuns();
  if (id == "D21") return hasNumberOutOfRange(evidence.state);
  if (id == "D22") return hasArgumentsOfItsOwn();
  if (id == "D29") return machine.system.macOS >= 27 && !hasLimit(machine);
  if (id == "D31") return machine.battery.currentMA < 0 && machine.adapter.present;
  if (id == "D33") {
    constexpr double recovery = 3;
    return machine.battery.temperatureC >
           static_cast<double>(evidence.state.settings.thermalLimit) - recovery;
  }
  return false;
}

// --- Counting

struct Counts {
  std::size_t alarms = 0;
  std::size_t falseOnes = 0;
};

class Counter {
 public:
  void add(std::uint64_t seed, double secondsSinceBegin, const Evidence& evidence,
           const sim::Simulation& simulation) {
    ++asked_;
    const client::Diagnosis diagnosis = diagnose(evidence);
    looked_ += diagnosis.clear + diagnosis.findings.size();
    for (const CheckedResult& alarm : diagnosis.findings) {
      Counts& counts = byCheck_[alarm.check->id];
      ++counts.alarms;
      if (isTrue(alarm, evidence, simulation)) continue;
      ++counts.falseOnes;
      ++false_;
      std::printf("FALSE  seed %llu, after %.2f days: %s  %s\n", static_cast<unsigned long long>(seed),
                  secondsSinceBegin / 86'400, alarm.check->id, alarm.result.text.c_str());
    }
  }

  void print() const {
    std::printf("Asked %zu times; %zu checks looked at something.\n", asked_, looked_);
    for (const auto& [id, counts] : byCheck_)
      std::printf("%s  %5zu alarms, of which %zu false\n", id.c_str(), counts.alarms, counts.falseOnes);
    std::printf("False alarms: %zu\n", false_);
  }
  [[nodiscard]] bool isGood() const { return asked_ > 0 && false_ == 0; }

 private:
  std::size_t asked_ = 0;
  std::size_t looked_ = 0;
  std::size_t false_ = 0;
  std::map<std::string, Counts> byCheck_ = {};
};

// False when the scenario itself failed.
bool askSeed(std::uint64_t seed, const ProofOptions& options, Counter& counter) {
  AskedScenario scenario =
      askedScenario(seed, options.days, options.questionsADay, lab::Faults::none, options.guard);
  auto moments = scenario.questionMoments;
  double begin = 0;
  const Played played = play(
      scenario, 0, [&begin](double at) { begin = at; },
      [&](const sim::Simulation& simulation) {
        const Machine& machine = simulation.machine();
        bool asked = false;
        while (!moments.empty() && static_cast<double>(*moments.begin()) <= machine.now - begin) {
          moments.erase(moments.begin());
          asked = true;
        }
        if (!asked || !isFullyAwake(machine) || isBeingStarted(simulation)) return;
        counter.add(seed, machine.now - begin, client::gatherFiles(client::Volume()), simulation);
      });
  if (played.failure.empty()) return true;
  std::printf("seed %llu failed:\n%s\n", static_cast<unsigned long long>(seed), played.failure.c_str());
  return false;
}

int run(int count, char** arguments) {
  CLI::App program{"Asks brisko doctor at random moments of generated weeks without faults.",
                   "brisko-doctor-proof"};
  ProofOptions options;
  std::string seeds;
  program.add_option("--seeds", seeds, "A..B, or one")->required();
  program.add_option("--days", options.days, "how many simulated days each lasts; 7 without it")
      ->check(CLI::Range(1, 365));
  program.add_option("--questions", options.questionsADay, "how many moments a day; 20 without it")
      ->check(CLI::Range(1, 1000));
  program.add_option("--guard", options.guard, "guards of the daemon; those of the installed job without it");
  try {
    program.parse(count, arguments);
  } catch (const CLI::ParseError& error) {
    return program.exit(error) == 0 ? 0 : misused;
  }
  const auto range = lab::parseSeeds(seeds);
  if (!range) {
    static_cast<void>(
        std::fprintf(stderr, "brisko-doctor-proof: \"%s\" is no range of seeds\n", seeds.c_str()));
    return misused;
  }
  Counter counter;
  bool allRun = true;
  for (std::uint64_t seed = range->first; seed <= range->last; ++seed)
    allRun = askSeed(seed, options, counter) && allRun;
  counter.print();
  return allRun && counter.isGood() ? 0 : 1;
}

}  // namespace
}  // namespace brisko::proof

int main(int count, char** arguments) {
  // Scenarios use UTC clock times, so the daemon's local days must be those of UTC on every computer.
  ::setenv("TZ", "UTC", 1);
  try {
    return brisko::proof::run(count, arguments);
  } catch (const std::exception& error) {
    static_cast<void>(std::fprintf(stderr, "brisko-doctor-proof: %s\n", error.what()));
    return brisko::proof::misused;
  }
}
