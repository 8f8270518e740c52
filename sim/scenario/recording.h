// sim/scenario/recording.h
// What happens in a simulation, as moments of a picture. The processes of the daemon note it themselves after
// each of their events, in memory that they share with the lab; the lab notes what happens between them. A
// moment is kept when something about it is new, so a quiet month takes little room.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "report/picture.h"
#include "sim/machine/machine.h"
#include "sim/process/shared_memory.h"

namespace brisko::lab {

// Decides which moments are worth keeping. One in which something discrete changed, or a number jumped, is
// kept together with the one seen right before it, so that no curve bends too early. What only drifts is kept
// once a minute, and what stays constant once a quarter of an hour.
class SampleFilter {
 public:
  // How many of `before` and `moment`, in this order, are to be kept now: 0, 1 (the moment alone) or 2.
  [[nodiscard]] int keep(const Moment& moment);
  // The one that was seen before the latest.
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
  // The settings, as they stand in their file; none: there is none. Without a limit in force no band is.
  void noteSettings(const std::optional<std::string>& file);
  void noteEvent(const virtual_mac::Machine& machine, const std::string& words);
  // A line of the log, written since the last note(); with its time, which is that of the wall clock.
  void noteLine(const virtual_mac::Machine& machine, const std::string& line);

  // All that was noted, the times being those of the wall clock as it went at the beginning.
  [[nodiscard]] Picture picture() const;

 private:
  // What only a process of the daemon knows.
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
