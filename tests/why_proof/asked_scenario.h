// tests/why_proof/asked_scenario.h
// Generated scenarios with pauses, in which the client is asked about the virtual Mac's own files.
#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "sim/generate/scenario_generator.h"
#include "sim/scenario/run_scenario.h"

namespace brisko::proof {

struct AskedScenario {
  lab::GeneratedScenario generated = {};        // as it is without the pauses
  std::set<std::int64_t> questionMoments = {};  // seconds since the beginning
};

// The scenario of a seed, and random moments to ask at.
[[nodiscard]] AskedScenario askedScenario(std::uint64_t seed, std::int64_t days, std::int64_t questionsADay,
                                          lab::Faults faults, const std::string& guard = "");

struct Played {
  double begin = 0;          // machine time
  std::string failure = {};  // of the scenario itself; empty when it was run to its end
};

// Runs it with a pause at each of those moments and, if `period` is above 0, once in each period of so many
// seconds. `begins` is called with the machine time of the beginning, and `pauses` after each step, when the
// client can be asked: it sees the Mac, the launch service and the daemon's arguments.
[[nodiscard]] Played play(const AskedScenario& scenario, std::int64_t period,
                          const std::function<void(double begin)>& begins,
                          const std::function<void(const sim::Simulation& simulation)>& pauses);

// Lets the client see the Mac of a scenario as it is now.
void showToClient(const sim::Simulation& simulation, const lab::Scenario& scenario);

// Whether the daemon was ended by somebody and the launch service is about to start it, which it does at
// once: nobody could ask in between.
[[nodiscard]] bool isBeingStarted(const sim::Simulation& simulation);

// Whether somebody could sit in front of it.
[[nodiscard]] bool isFullyAwake(const virtual_mac::Machine& machine);

}  // namespace brisko::proof
