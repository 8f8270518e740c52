// sim/scenario/simulation.h
// Where a scenario is played: a virtual Mac in virtual time, its volume in a folder that is thrown away, and
// the launch service, which starts the daemon again when it ends, at most every 10 s.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sim/invariants/invariant_checker.h"
#include "sim/machine/machine.h"
#include "sim/machine/machine_store.h"
#include "sim/process/forked_daemon.h"
#include "sim/scenario/recording.h"

namespace brisko::lab {

// What stands when a scenario begins.
struct SimulationSetup {
  virtual_mac::Machine machine;
  std::vector<std::string> arguments = {};  // of the daemon
  std::map<std::string, std::string> environment = {};
  bool keptAlive = true;  // the launch service starts the daemon again
  bool started = true;    // … and for the first time at once
  // Lives that end at once and for the same reason are nothing new: the launch service waits twice as long
  // after each, up to an hour, until something happens. No real one does.
  bool backsOff = false;
  std::optional<std::string> settings = std::nullopt;  // config.json; none: there is none
};

class Simulation {
 public:
  explicit Simulation(const SimulationSetup& setup);
  ~Simulation();
  Simulation(const Simulation&) = delete;
  Simulation& operator=(const Simulation&) = delete;

  // From now on what happens is noted there too, which outlives the stage. Nothing goes otherwise for it.
  void record(Recording& recording);

  // Starts the first process, unless it is not wanted yet.
  void begin();
  // Lets time pass; with 0 the daemon does what is due at this moment.
  void pass(double seconds);

  // --- What happens

  void change(const virtual_mac::Change& change);
  void startDaemon();    // now
  void unloadService();  // ends the daemon, and keeps it so
  void loadService();    // and starts it
  void shutDown();       // the daemon is told to end first
  void losePower();      // it is not
  void boot();
  void setDiskFull(bool full);  // what the daemon writes fails for want of room, or does no longer
  // The app asks; the request carries `settings` when it is one to apply them.
  void ask(virtual_mac::RequestKind kind, std::uint32_t client, const std::string& settings);
  void write(std::string_view path, std::string_view text);    // in place; makes the folders
  void replace(std::string_view path, std::string_view text);  // by a new file of this name
  void remove(std::string_view path);

  // --- What can be seen

  [[nodiscard]] const virtual_mac::Machine& machine() const;
  [[nodiscard]] bool daemonRuns() const { return process_ != nullptr && process_->alive(); }
  // Of the process that ended last.
  [[nodiscard]] std::optional<int> exitStatus() const { return exitStatus_; }
  [[nodiscard]] std::optional<int> endSignal() const { return endSignal_; }
  [[nodiscard]] std::string errors() const;  // of the latest process: its standard error
  // Everything that the daemon logged, with and without the time. Its standard output, which has the lines
  // also when the file has them no longer.
  [[nodiscard]] const std::vector<std::string>& stampedLog() const { return stamped_; }
  [[nodiscard]] std::vector<std::string> logSinceCheckpoint() const;
  [[nodiscard]] std::vector<std::string> journalSinceCheckpoint() const;
  // The first invariant that was violated; the run is over then.
  [[nodiscard]] std::optional<Violation> violation() const { return checker_->violation(); }
  // The lowest and the highest percentage of the stretch.
  [[nodiscard]] double lowest() const { return levels_->sinceCheckpoint.lowest; }
  [[nodiscard]] double highest() const { return levels_->sinceCheckpoint.highest; }
  [[nodiscard]] std::string root() const { return volume_; }
  [[nodiscard]] std::string path(std::string_view unmapped) const;
  [[nodiscard]] std::optional<std::string> read(std::string_view unmapped) const;  // none: no such file
  [[nodiscard]] std::string reply() const;  // to the latest request; "" while there is none

  // A stretch is what lies between two looks.
  void setCheckpoint();
  void checkpointAtBegin();  // from here on the stretch is everything since the beginning

 private:
  [[nodiscard]] double longestSlice() const;
  void slice(double seconds);
  void noteEnd();
  void collectOutput();
  void collectJournal();
  [[nodiscard]] bool startIsDue() const;
  [[nodiscard]] double throttle() const;  // seconds between two starts
  void endProcess();

  // How low and how high the charge was. Shared with the processes, which note it after each of their events.
  struct Extremes {
    double lowest, highest;
    void note(double level);
  };
  struct Levels {
    Extremes sinceCheckpoint, overall;
    void note(double level);
  };

  std::string volume_;
  std::unique_ptr<virtual_mac::MachineStore> store_;
  std::unique_ptr<InvariantChecker> checker_;
  Levels* levels_;
  Recording* recording_ = nullptr;
  int fileEvents_;
  std::vector<std::string> arguments_;
  std::map<std::string, std::string> environment_;
  bool keptAlive_;
  bool starts_;
  bool diskIsFull_ = false;

  std::unique_ptr<sim::ForkedDaemon> process_;
  bool endNoted_ = true;
  double startedAt_ = 0;  // machine time
  bool backsOff_;
  double throttle_;                 // the throttle after lives that ended at once …
  std::uint64_t actionsAtEnd_ = 0;  // … unless something happened since
  std::optional<int> exitStatus_;
  std::optional<int> endSignal_;
  std::uint64_t requests_ = 0;

  std::size_t outputSeen_ = 0;  // bytes, of the latest process
  std::string partialLine_;     // the end of the output, as long as its line continues
  std::vector<std::string> stamped_;
  std::uint64_t journalSeen_ = 0;
  std::vector<std::string> journal_;
  std::size_t logCheckpoint_ = 0;
  std::size_t journalCheckpoint_ = 0;
};

}  // namespace brisko::lab
