// sim/scenario/checked_simulation.h
// The simulation that runs a scenario: it checks the invariants after every event of the daemon, tracks the
// charge between two checkpoints, and can be recorded. It ends at the first violation.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "sim/invariants/invariant_checker.h"
#include "sim/process/shared_memory.h"
#include "sim/process/simulation.h"
#include "sim/scenario/call_faults.h"
#include "sim/scenario/recording.h"
#include "sim/scenario/state_watch.h"

namespace brisko::lab {

// What may be attached to a simulation, and must outlive it. Only the last one affects the simulation, which
// then ends an hour after the call that failed.
struct Attached {
  Recording* recording = nullptr;
  StateWatch* stateWatch = nullptr;
  CallFaults* callFaults = nullptr;
};

class CheckedSimulation final : public sim::Simulation, private sim::SimulationObserver {
 public:
  explicit CheckedSimulation(const sim::SimulationSetup& setup, const Attached& attached = {});

  // The first invariant that was violated.
  [[nodiscard]] std::optional<Violation> violation() const { return checker_.violation(); }
  // The lowest and the highest percentage since the checkpoint.
  [[nodiscard]] double lowest() const { return levels_->sinceCheckpoint.lowest; }
  [[nodiscard]] double highest() const { return levels_->sinceCheckpoint.highest; }

  void setCheckpoint();
  void checkpointAtBegin();

 private:
  void beforeChange(const virtual_mac::Change& change) override { checker_.beforeChange(change); }
  void afterChange() override { noteLevel(); }
  void beforeFileChange(std::string_view path, std::string_view text) override {
    checker_.beforeFileChange(path, text);
  }
  void beforeSignal(int number) override { checker_.beforeSignal(number); }
  void beforeDiskFull(bool full) override { checker_.beforeDiskFull(full); }
  void beforeStart() override { checker_.beforeStart(); }
  void processEnded(const sim::ForkedDaemon& process) override { checker_.processEnded(process); }
  void lineLogged(const std::string& line) override;
  void sliceBegins() override;
  void sliceEnded() override;
  [[nodiscard]] double longestSlice() const override;
  [[nodiscard]] bool isOver() const override;
  void prepare() override;
  void iterationEnded() override;
  void onPause() override;
  void onResume() override { checker_.onResume(); }
  [[nodiscard]] bool stepEnded() override;
  void watchCalls();

  void noteLevel();
  void noteInDaemon();

  // The lowest and the highest charge. Shared with the daemon's processes, which update it after each of
  // their events.
  struct Extremes {
    double lowest, highest;
    void note(double level);
  };
  struct Levels {
    Extremes sinceCheckpoint, overall;
  };

  InvariantChecker checker_{*this};
  sim::SharedMemory<Levels> levels_;
  Recording* recording_;
  StateWatch* stateWatch_;
  CallFaults* callFaults_;
};

}  // namespace brisko::lab
