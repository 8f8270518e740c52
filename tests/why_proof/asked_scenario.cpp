#include "why_proof/asked_scenario.h"

#include <algorithm>
#include <csignal>
#include <stdexcept>

#include "sim/generate/rng.h"
#include "why_proof/asked_mac.h"

namespace brisko::proof {
namespace {

using lab::GeneratedScenario;
using lab::TimedAction;

constexpr std::uint64_t questionStream = 4;  // besides those of the scenario

std::set<std::int64_t> randomMoments(std::uint64_t seed, std::int64_t count, std::int64_t seconds) {
  lab::Rng rng(seed, questionStream);
  std::set<std::int64_t> moments;
  for (; count > 0; --count) moments.insert(rng.between(1, seconds - 1));
  return moments;
}

// Steps without an action: the lab pauses there, and nothing takes another course.
void addPauses(const std::set<std::int64_t>& moments, std::int64_t period, GeneratedScenario& scenario) {
  std::set<std::int64_t> pauses = moments;
  for (std::int64_t at = period; period > 0 && at < scenario.seconds; at += period) pauses.insert(at);
  for (const TimedAction& action : scenario.timedActions) pauses.erase(action.at);
  for (const std::int64_t at : pauses) scenario.timedActions.push_back({at, nullptr});
  std::stable_sort(scenario.timedActions.begin(), scenario.timedActions.end(),
                   [](const TimedAction& left, const TimedAction& right) { return left.at < right.at; });
}

std::vector<std::string> argumentsOf(const lab::Scenario& scenario) {
  std::vector<std::string> arguments{"/Applications/Brisko.app/Contents/MacOS/brisko-daemon"};
  arguments.insert(arguments.end(), scenario.setup.arguments.begin(), scenario.setup.arguments.end());
  return arguments;
}

}  // namespace

AskedScenario askedScenario(std::uint64_t seed, std::int64_t days, std::int64_t questionsADay,
                            lab::Faults faults, const std::string& guard) {
  AskedScenario asked{.generated = lab::generateScenario(seed, days, faults, guard)};
  asked.questionMoments = randomMoments(seed, days * questionsADay, asked.generated.seconds);
  return asked;
}

Played play(const AskedScenario& asked, std::int64_t period, const std::function<void(double)>& begins,
            const std::function<void(const sim::Simulation&)>& pauses) {
  GeneratedScenario generated = asked.generated;
  addPauses(asked.questionMoments, period, generated);
  lab::Diagnostics diagnostics("the generated scenario");
  const auto scenario = lab::readScenario(scenarioText(generated), diagnostics);
  if (!scenario) throw std::logic_error("the generated scenario is invalid: " + diagnostics.texts().front());
  Played played{.begin = scenario->setup.machine.now};
  begins(played.begin);
  lab::RunOptions run;
  run.afterStep = [&](const sim::Simulation& simulation) {
    showToClient(simulation, *scenario);
    pauses(simulation);
  };
  const lab::Outcome outcome = runScenario(*scenario, diagnostics, run);
  if (!outcome.failures.empty()) played.failure = outcome.failures.front();
  return played;
}

void showToClient(const sim::Simulation& simulation, const lab::Scenario& scenario) {
  askedMac() = {.machine = &simulation.machine(),
                .serviceIsLoaded = simulation.serviceIsLoaded(),
                .daemonRuns = simulation.daemonRuns(),
                .arguments = argumentsOf(scenario),
                .exitStatus = simulation.exitStatus(),
                .endSignal = simulation.endSignal()};
}

bool isBeingStarted(const sim::Simulation& simulation) {
  const bool endedByOthers = simulation.exitStatus() == 0 || simulation.endSignal() == SIGKILL;
  return simulation.serviceIsLoaded() && !simulation.daemonRuns() && endedByOthers;
}

bool isFullyAwake(const virtual_mac::Machine& machine) {
  return machine.system.poweredOn && !machine.system.asleep && !machine.sleep.dark;
}

}  // namespace brisko::proof
