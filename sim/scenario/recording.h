// sim/scenario/recording.h
// Records a simulation as the moments of a picture. The processes of the daemon record themselves after each
// of their events, in memory that they share with the lab; the lab records what happens between them. A
// moment is kept if it contains a change, so a quiet month takes little memory.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "report/picture.h"
#include "sim/machine/machine.h"
#include "sim/process/shared_memory.h"

namespace brisko::lab {

// Decides which moments are kept. A moment in which a discrete value changed, or a number jumped, is kept
// together with the moment right before it, so that no curve bends too early. Drifting values are kept once a
// minute, and constant values once a quarter of an hour.
class SampleFilter {
 public:
  // How many of `before` and `moment`, in this order, are to be kept now: 0, 1 (the moment alone) or 2.
  [[nodiscard]] int keep(const Moment& moment);
  // The moment before the latest.
  [[nodiscard]] const Moment& before() const { return before_; }
  // The latest one, if it was not kept.
  [[nodiscard]] std::optional<Moment> rest() const {
    return begun_ && seen_.time > kept_.time ? std::optional(seen_) : std::nullopt;
  }

 private:
  Moment kept_ = {};
  Moment before_ = {};
  Moment seen_ = {};
  bool begun_ = false;
};

class Recording {
 public:
  Recording();
  ~Recording();
  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;

  // In a process, after each of its events and whenever it is about to pause.
  void noteInDaemon(const virtual_mac::Machine& machine);
  // While the processes are paused.
  void note(const virtual_mac::Machine& machine, bool daemonRuns);
  // The content of the settings file; none without a file. Without a limit there is no band either.
  void noteSettings(const std::optional<std::string>& file);
  void noteEvent(const virtual_mac::Machine& machine, const std::string& words);
  // A line that was logged since the last note(), with its time, which is that of the wall clock.
  void noteLine(const virtual_mac::Machine& machine, const std::string& line);

  // The whole recording. Its times are those of the wall clock as it was set at the beginning.
  [[nodiscard]] Picture picture() const;

 private:
  // Values that only a process of the daemon knows.
  struct DaemonState {
    bool known;
    ChargeState state;
    bool blinking;
    std::optional<Bounds> band;
    Occasion occasion;
  };
  struct Shared;

  void see(const virtual_mac::Machine& machine);
  void keep(const Moment& moment);
  void collect();
  [[nodiscard]] static DaemonState readDaemonState();

  sim::SharedMemory<Shared> shared_;
  Picture picture_;
  std::optional<double> firstOffset_;  // of the wall clock
  bool clockWasSet_ = false;
};

}  // namespace brisko::lab
