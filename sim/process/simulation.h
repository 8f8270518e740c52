// sim/process/simulation.h
// A virtual Mac in virtual time: the machine in memory, its volume in a temporary folder, the daemon as a
// forked process on it, and the launch service, which restarts the daemon when it ends, at most every 10 s.
// The machine is attached to the seam of this process and of every process forked from it.
//
// To control processes by hand, do not use the launch service: forkOptions() returns the options for a
// process on this Mac, and advance() lets time pass while none runs.
#pragma once

#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/files.h"
#include "sim/machine/machine.h"
#include "sim/machine/machine_store.h"
#include "sim/process/forked_daemon.h"
#include "sim/process/scratch.h"

namespace brisko::sim {

// The state at the beginning of a simulation.
struct SimulationSetup {
  virtual_mac::Machine machine;
  std::vector<std::string> arguments = {};  // of the daemon
  std::map<std::string, std::string> environment = {};
  bool keptAlive = true;  // the launch service restarts the daemon
  bool started = true;    // … and starts it at the beginning
  // Repeated crashes at the start show nothing new, so the launch service waits twice as long after each, up
  // to an hour, until the next action. launchd does not do that.
  bool backsOff = false;
};

// Observes a simulation and can end it, but changes nothing.
class SimulationObserver {
 public:
  virtual ~SimulationObserver() = default;

  // --- In the simulating process

  virtual void beforeChange(const virtual_mac::Change&) {}
  virtual void afterChange() {}
  // `text` is what will be written to the file; empty if the file will be removed.
  virtual void beforeFileChange(std::string_view /*path*/, std::string_view /*text*/) {}
  virtual void beforeSignal(int /*number*/) {}
  virtual void beforeDiskFull(bool /*full*/) {}  // also with the present state when a process starts
  virtual void beforeStart() {}
  virtual void processEnded(const ForkedDaemon&) {}
  virtual void lineLogged(const std::string& /*line*/) {}
  // A slice is the time between two observations of the machine.
  virtual void sliceBegins() {}
  virtual void sliceEnded() {}
  [[nodiscard]] virtual double longestSlice() const { return std::numeric_limits<double>::infinity(); }
  [[nodiscard]] virtual bool isOver() const { return false; }  // time must not advance any more

  // --- In a process of the daemon

  virtual void prepare() {}  // before anything of the daemon
  virtual void iterationEnded() {}
  virtual void onPause() {}
  virtual void onResume() {}
  // Called instead of the end of one slice and the beginning of the next. Returns true if both have the same
  // length and the simulating process has nothing to do between them.
  [[nodiscard]] virtual bool stepEnded() { return false; }
};

class Simulation {
 public:
  explicit Simulation(const SimulationSetup& setup);
  ~Simulation();
  Simulation(const Simulation&) = delete;
  Simulation& operator=(const Simulation&) = delete;

  // From now on. The observer must outlive the simulation, except its destructor.
  void observe(SimulationObserver& observer) { observer_ = &observer; }

  // Starts the first process, if the setup says so.
  void begin();
  // Lets time pass; with 0 the daemon only does what is due now.
  void pass(double seconds);

  // --- Processes that the caller controls

  // The options for a process on this Mac with these arguments. Only one process may run at a time.
  [[nodiscard]] ForkOptions forkOptions(std::vector<std::string> arguments);
  // Advances machine time while no process runs.
  void advance(double seconds);

  // --- Actions

  void change(const virtual_mac::Change& change);
  void startDaemon();    // now
  void unloadService();  // ends the daemon permanently
  void loadService();    // starts it again
  void shutDown();       // ends the daemon with a signal first
  void losePower();      // without a signal
  void boot();
  void setDiskFull(bool full);  // whether the daemon's writes fail because the disk is full
  // Sends a request of a client to the control service, with `settings` if it applies them. Returns its
  // number.
  std::uint64_t ask(virtual_mac::RequestKind kind, std::uint32_t client, std::string_view settings = {});
  // Files on the volume. All paths here are unmapped.
  bool write(std::string_view path, std::string_view text);    // in place; creates folders; false on failure
  void replace(std::string_view path, std::string_view text);  // with a new file
  void remove(std::string_view path);

  // --- Observations

  [[nodiscard]] virtual_mac::MachineStore& store() { return *store_; }
  [[nodiscard]] const virtual_mac::Machine& machine() const { return store_->view().machine(); }
  // The bytes that a read of the controller's key returns now.
  [[nodiscard]] std::vector<std::uint8_t> key(std::string_view name) const;
  [[nodiscard]] std::vector<double> pendingWakes() const;  // dates of the scheduled power events
  // The reply to the request, or to the latest one: "done", the error text, "refused", or "" without a reply.
  [[nodiscard]] std::string reply(std::uint64_t request) const;
  [[nodiscard]] std::string reply() const { return reply(latestRequest_); }

  [[nodiscard]] bool daemonRuns() const { return process_ != nullptr && process_->alive(); }
  [[nodiscard]] bool serviceIsLoaded() const { return keptAlive_; }
  // For the process that ended last.
  [[nodiscard]] std::optional<int> exitStatus() const { return exitStatus_; }
  [[nodiscard]] std::optional<int> endSignal() const { return endSignal_; }
  [[nodiscard]] std::string errors() const;  // of the latest process: its standard error
  // Everything that the daemon logged, with and without the time, read from its standard output, which keeps
  // lines that are no longer in the file.
  [[nodiscard]] const std::vector<std::string>& stampedLog() const { return stamped_; }
  [[nodiscard]] std::vector<std::string> logSinceCheckpoint() const;
  // The journal as entries, and as texts (sim/machine/journal_text.h).
  [[nodiscard]] std::vector<virtual_mac::JournalEntry> entriesSinceCheckpoint() const;
  [[nodiscard]] std::vector<std::string> journalSinceCheckpoint() const;

  [[nodiscard]] const std::string& root() const { return volume_.path(); }
  [[nodiscard]] std::string path(std::string_view unmapped) const { return root() + std::string(unmapped); }
  [[nodiscard]] std::optional<std::string> read(std::string_view unmapped) const;  // none: no such file

  void setCheckpoint();      // now
  void checkpointAtBegin();  // at the beginning

 private:
  void slice(double seconds, double end);
  void noteEnd();
  void collectOutput();
  void collectJournal();
  [[nodiscard]] std::vector<virtual_mac::JournalEntry> newEntries() const;
  [[nodiscard]] bool startIsDue() const;
  [[nodiscard]] double throttle() const;  // seconds between two starts
  void endProcess();
  void noteFileChange(std::string_view path, std::string_view text);

  ScratchFolder volume_{"brisko-mac"};
  std::unique_ptr<virtual_mac::MachineStore> store_;
  Descriptor fileEvents_;  // the queue for processes, from the first one on
  SimulationObserver* observer_;
  std::vector<std::string> arguments_;
  std::map<std::string, std::string> environment_;
  bool keptAlive_;
  bool starts_;
  bool diskIsFull_ = false;

  std::unique_ptr<ForkedDaemon> process_;
  bool endNoted_ = true;
  double startedAt_ = 0;  // machine time
  bool backsOff_;
  double throttle_;                 // the throttle after crashes at the start …
  std::uint64_t actionsAtEnd_ = 0;  // … unless an action has followed
  std::uint64_t actions_ = 0;       // changes of the machine and of files
  std::optional<int> exitStatus_;
  std::optional<int> endSignal_;
  std::uint64_t latestRequest_ = 0;

  std::size_t outputSeen_ = 0;  // bytes, of the latest process
  std::string partialLine_;     // the last, incomplete line of the output
  std::vector<std::string> stamped_;
  std::size_t logCheckpoint_ = 0;
  std::uint64_t journalSeen_ = 0;
  std::vector<virtual_mac::JournalEntry> journal_;  // the entries read so far
  std::size_t journalCheckpoint_ = 0;
};

}  // namespace brisko::sim
