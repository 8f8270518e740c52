#include "sim/scenario/checked_simulation.h"

#include <algorithm>
#include <csignal>

#include "base/options.h"
#include "sim/machine/machine.h"

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

CheckedSimulation::CheckedSimulation(const sim::SimulationSetup& setup, const Attached& attached)
    : Simulation(setup),
      recording_(attached.recording),
      stateWatch_(attached.stateWatch),
      callFaults_(attached.callFaults) {
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

bool CheckedSimulation::isOver() const {
  if (violation()) return true;
  const auto failedAt = callFaults_ == nullptr ? std::nullopt : callFaults_->failedAt();
  return failedAt && machine().now >= *failedAt + secondsAfterFailedCall;
}

double CheckedSimulation::longestSlice() const {
  if (callFaults_ != nullptr) return shortSlice;
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

void CheckedSimulation::prepare() {
  checker_.prepare();
  if (stateWatch_ != nullptr) stateWatch_->processBegins();
  if (callFaults_ != nullptr) watchCalls();
}

void CheckedSimulation::watchCalls() {
  callFaults_->processBegins(
      [this](const virtual_mac::WatchedCall& call) { checker_.beforeFailedCall(call); },
      [this] { checker_.beforeSignal(SIGKILL); });
}

void CheckedSimulation::noteInDaemon() {
  if (recording_ != nullptr) recording_->noteInDaemon(machine());
  if (stateWatch_ != nullptr) stateWatch_->note(machine());
}

void CheckedSimulation::iterationEnded() {
  noteLevel();
  checker_.checkIteration();
  noteInDaemon();
  if (callFaults_ != nullptr) callFaults_->iterationEnded();
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
