#include "sim/scenario/checked_simulation.h"

#include <algorithm>

#include "base/options.h"

namespace brisko::lab {
namespace {

// Between two reads of the charge while no process records it.
constexpr double shortSlice = 60;
constexpr double sleepSlice = 5;  // while recording, because no process is notified when sleep begins

}  // namespace

void CheckedSimulation::Extremes::note(double level) {
  lowest = std::min(lowest, level);
  highest = std::max(highest, level);
}

CheckedSimulation::CheckedSimulation(const sim::SimulationSetup& setup, Recording* recording)
    : Simulation(setup), recording_(recording) {
  observe(*this);
  const double level = virtual_mac::level(machine());
  *levels_ = {{level, level}, {level, level}};
  if (recording_ != nullptr) recording_->note(machine(), daemonRuns());
}

void CheckedSimulation::setCheckpoint() {
  Simulation::setCheckpoint();
  const double level = virtual_mac::level(machine());
  levels_->sinceCheckpoint = {level, level};
}

void CheckedSimulation::checkpointAtBegin() {
  Simulation::checkpointAtBegin();
  levels_->sinceCheckpoint = levels_->overall;
}

double CheckedSimulation::longestSlice() const {
  const bool asleep = machine().system.asleep;
  if (recording_ == nullptr) return daemonRuns() && !asleep ? SimulationObserver::longestSlice() : shortSlice;
  const bool fullyAwake =
      !asleep && !machine().sleep.dark && machine().sleep.stage == virtual_mac::SleepStage::none;
  return fullyAwake ? shortSlice : sleepSlice;
}

void CheckedSimulation::noteLevel() {
  const double level = virtual_mac::level(machine());
  levels_->sinceCheckpoint.note(level);
  levels_->overall.note(level);
}

void CheckedSimulation::lineLogged(const std::string& line) {
  if (recording_ != nullptr) recording_->noteLine(machine(), line);
}

void CheckedSimulation::sliceBegins() {
  if (recording_ != nullptr) recording_->noteSettings(read(defaultConfigPath));
}

void CheckedSimulation::sliceEnded() {
  noteLevel();
  if (recording_ != nullptr) recording_->note(machine(), daemonRuns());
}

void CheckedSimulation::noteInDaemon() {
  if (recording_ != nullptr) recording_->noteInDaemon(machine());
}

void CheckedSimulation::iterationEnded() {
  noteLevel();
  checker_.checkIteration();
  noteInDaemon();
}

void CheckedSimulation::onPause() {
  noteInDaemon();
  checker_.onPause();
}

// While the Mac sleeps a slice only reads the charge, and the next one is as short.
bool CheckedSimulation::stepEnded() {
  noteLevel();
  return recording_ == nullptr && machine().system.asleep && !isOver();
}

}  // namespace brisko::lab
