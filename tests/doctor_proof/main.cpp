// Asks brisko doctor at random moments of generated weeks without faults, from the files of the virtual Mac,
// and counts its alarms by check. Status 0: every alarm is borne out by the machine itself, 1: one is false,
// 2: the command line is invalid.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <map>
#include <string>

#include "client/doctor/diagnosis.h"
#include "client/doctor/gathering.h"
#include "doctor_proof/true_alarms.h"
#include "proof_program/proof_program.h"
#include "why_proof/asked_scenario.h"

namespace brisko::proof {
namespace {

using client::CheckedResult;
using client::Evidence;
using virtual_mac::Machine;

struct ProofOptions {
  std::int64_t days = 7;
  std::int64_t questionsADay = 20;
  std::string guard = "night,menu,swing";
};

struct Counts {
  std::size_t alarms = 0;
  std::size_t falseOnes = 0;
};

class Counter {
 public:
  void add(std::uint64_t seed, double secondsSinceBegin, const Evidence& evidence,
           const sim::Simulation& simulation, const MachineWatch& watch) {
    ++asked_;
    const client::Diagnosis diagnosis = diagnose(evidence);
    looked_ += diagnosis.clear + diagnosis.findings.size();
    for (const CheckedResult& alarm : diagnosis.findings) {
      Counts& counts = byCheck_[alarm.check->id];
      ++counts.alarms;
      if (isTrue(alarm, evidence, simulation, watch)) continue;
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
  MachineWatch watch(scenario.generated);
  double begin = 0;
  const auto begins = [&](double at) {
    begin = at;
    watch.begin(at);
  };
  const Played played = play(scenario, MachineWatch::period, begins, [&](const sim::Simulation& simulation) {
    const Machine& machine = simulation.machine();
    watch.see(simulation);
    bool asked = false;
    while (!moments.empty() && static_cast<double>(*moments.begin()) <= machine.now - begin) {
      moments.erase(moments.begin());
      asked = true;
    }
    if (!asked || !isFullyAwake(machine) || isBeingStarted(simulation)) return;
    counter.add(seed, machine.now - begin, client::gatherFiles(client::Volume()), simulation, watch);
  });
  if (played.failure.empty()) return true;
  std::printf("seed %llu failed:\n%s\n", static_cast<unsigned long long>(seed), played.failure.c_str());
  return false;
}

int run(int count, char** arguments) {
  ProofOptions options;
  const auto addOptions = [&](CLI::App& program) {
    program.add_option("--days", options.days, "how many simulated days each lasts; default: 7")
        ->check(CLI::Range(1, 365));
    program.add_option("--questions", options.questionsADay, "how many moments a day; default: 20")
        ->check(CLI::Range(1, 1000));
    program.add_option("--guard", options.guard, "guards of the daemon; default: those of the installed job");
  };
  return runProof({.name = "brisko-doctor-proof",
                   .description = "Asks brisko doctor at random moments of generated weeks without faults."},
                  count, arguments, addOptions, [&](const lab::Seeds& seeds) {
                    Counter counter;
                    bool allRun = true;
                    for (std::uint64_t seed = seeds.first; seed <= seeds.last; ++seed)
                      allRun = askSeed(seed, options, counter) && allRun;
                    counter.print();
                    return allRun && counter.isGood();
                  });
}

}  // namespace
}  // namespace brisko::proof

int main(int count, char** arguments) { return brisko::proof::run(count, arguments); }
