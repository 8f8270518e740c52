#include "sim/replay/play.h"

#include <filesystem>
#include <stdexcept>
#include <string>

#include "base/options.h"
#include "base/paths.h"
#include "report/local_days.h"
#include "sim/process/simulation.h"
#include "sim/scenario/scenario.h"

namespace brisko::lab {
namespace {

// Nothing that is wrong with an action matters: what a report shows may have happened otherwise.
void act(const std::vector<Action>& actions, sim::Simulation& simulation) {
  std::string unused;
  for (const Action& action : actions) static_cast<void>(action.act(simulation, unused));
}

void pass(double seconds, const PlayWatch& watch, sim::Simulation& simulation) {
  for (; seconds > watch.longestPass; seconds -= watch.longestPass) {
    simulation.pass(watch.longestPass);
    if (watch.look) watch.look(simulation.machine());
  }
  simulation.pass(seconds);
}

void run(const Scenario& scenario, const PlayWatch& watch, sim::Simulation& simulation) {
  if (scenario.settings) simulation.write(defaultConfigPath, *scenario.settings);
  act(scenario.before, simulation);
  simulation.begin();
  for (const Step& step : scenario.steps) {
    if (step.at)
      pass(secondsUntil(*step.at, virtual_mac::wallClock(simulation.machine())), watch, simulation);
    act(step.actions, simulation);
    simulation.pass(0);
    if (watch.look) watch.look(simulation.machine());
  }
}

void readDays(const sim::Simulation& simulation, Trace& trace) {
  std::error_code failure;
  for (std::filesystem::directory_iterator entry(simulation.path(historyDir), failure);
       !failure && entry != std::filesystem::directory_iterator(); entry.increment(failure)) {
    const std::string name = entry->path().filename().string();
    const auto day = dateIn(std::string_view(name).substr(0, 10));
    const auto text = simulation.read(std::string(historyDir) + "/" + name);
    if (!day || !text) continue;
    std::size_t begin = 0;
    for (std::size_t end = text->find('\n'); end != text->npos; end = text->find('\n', begin)) {
      if (auto sample = readSample(text->substr(begin, end - begin), utcMidnightOf(*day)))
        trace.sightings.push_back(std::move(*sample));
      begin = end + 1;
    }
  }
}

}  // namespace

Trace play(const Reconstruction& reconstruction, const PlayWatch& watch) {
  Diagnostics diagnostics("the replay");
  auto scenario = readScenario(scenarioText(reconstruction.scenario), diagnostics);
  if (!scenario)
    throw std::logic_error("the scenario of a report is invalid: " + diagnostics.texts().front());
  scenario->setup.machine = reconstruction.machine;
  sim::Simulation simulation(scenario->setup);
  run(*scenario, watch, simulation);
  Trace trace;
  readDays(simulation, trace);
  std::string log;
  for (const std::string& line : simulation.stampedLog()) log += line + "\n";
  static_cast<void>(readLog(log, trace));
  arrange(trace);
  return trace;
}

}  // namespace brisko::lab
