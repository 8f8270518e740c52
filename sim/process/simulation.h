// sim/process/simulation.h
// A virtual Mac in virtual time: the machine in memory, its volume in a folder that is thrown away, the
// daemon as a forked process on it, and the launch service, which starts the daemon again when it ends, at
// most every 10 s. The machine is attached to the seam of this process and of every process forked from it.
//
// Who wants to control processes by hand leaves the launch service alone: forkOptions() has what a process on
// this Mac needs, and advance() lets time pass while none runs.
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

// What stands when a simulation begins.
struct SimulationSetup {
  virtual_mac::Machine machine;
  std::vector<std::string> arguments = {};  // of the daemon
  std::map<std::string, std::string> environment = {};
  bool keptAlive = true;  // the launch service starts the daemon again
  bool started = true;    // … and for the first time at once
  // Processes that end at once and for the same reason are nothing new: the launch service waits twice as
  // long after each, up to an hour, until something happens. No real one does.
  bool backsOff = false;
};

// Sees what happens in a simulation, and can end it. It changes nothing.
class SimulationObserver {
 public:
  virtual ~SimulationObserver() = default;

  // --- In the process that simulates

  virtual void beforeChange(const virtual_mac::Change&) {}
  virtual void afterChange() {}
  // Of a file that is written, what it is given; of one that is removed, nothing.
  virtual void beforeFileChange(std::string_view /*path*/, std::string_view /*text*/) {}
  virtual void beforeSignal(int /*number*/) {}
  virtual void beforeDiskFull(bool /*full*/) {}  // also as it stands, whenever a process starts
  virtual void beforeStart() {}
  virtual void processEnded(const ForkedDaemon&) {}
  virtual void lineLogged(const std::string& /*line*/) {}
  // A slice is how long time passes without a look at the machine.
  virtual void sliceBegins() {}
  virtual void sliceEnded() {}
  [[nodiscard]] virtual double longestSlice() const { return std::numeric_limits<double>::infinity(); }
  [[nodiscard]] virtual bool isOver() const { return false; }  // no more time is to pass

  // --- In a process of the daemon

  virtual void prepare() {}  // before anything of the daemon
  virtual void iterationEnded() {}
  virtual void onPause() {}
  virtual void onResume() {}
};

class Simulation {
 public:
  explicit Simulation(const SimulationSetup& setup);
  ~Simulation();
  Simulation(const Simulation&) = delete;
  Simulation& operator=(const Simulation&) = delete;

  // From now on; the observer outlives every use of the simulation but its end.
  void observe(SimulationObserver& observer) { observer_ = &observer; }

  // Starts the first process, unless it is not wanted yet.
  void begin();
  // Lets time pass; with 0 the daemon does what is due at this moment.
  void pass(double seconds);

  // --- Processes that somebody else controls

  // For a process on this Mac with these arguments. There may be one at a time.
  [[nodiscard]] ForkOptions forkOptions(std::vector<std::string> arguments);
  // Moves machine time on while no process runs.
  void advance(double seconds);

  // --- What happens

  void change(const virtual_mac::Change& change);
  void startDaemon();    // now
  void unloadService();  // ends the daemon, and keeps it so
  void loadService();    // and starts it
  void shutDown();       // the daemon is told to end first
  void losePower();      // it is not
  void boot();
  void setDiskFull(bool full);  // whether what the daemon writes fails for want of room
  // A client asks the control service; the request carries `settings` when it is one to apply them. Returns
  // its number.
  std::uint64_t ask(virtual_mac::RequestKind kind, std::uint32_t client, std::string_view settings = {});
  // Files on the volume, here and below by their unmapped paths.
  bool write(std::string_view path, std::string_view text);  // in place; makes the folders. False: it failed
  void replace(std::string_view path, std::string_view text);  // by a new file of this name
  void remove(std::string_view path);

  // --- What can be seen

  [[nodiscard]] virtual_mac::MachineStore& store() { return *store_; }
  [[nodiscard]] const virtual_mac::Machine& machine() const { return store_->view().machine(); }
  // The bytes that a read of the controller's key shows now.
  [[nodiscard]] std::vector<std::uint8_t> key(std::string_view name) const;
  [[nodiscard]] std::vector<double> pendingWakes() const;  // dates of the scheduled power events
  // "done", the error text, "refused", or "" while there is no reply: to the request, or to the latest one.
  [[nodiscard]] std::string reply(std::uint64_t request) const;
  [[nodiscard]] std::string reply() const { return reply(latestRequest_); }

  [[nodiscard]] bool daemonRuns() const { return process_ != nullptr && process_->alive(); }
  [[nodiscard]] bool serviceIsLoaded() const { return keptAlive_; }
  // Of the process that ended last.
  [[nodiscard]] std::optional<int> exitStatus() const { return exitStatus_; }
  [[nodiscard]] std::optional<int> endSignal() const { return endSignal_; }
  [[nodiscard]] std::string errors() const;  // of the latest process: its standard error
  // Everything that the daemon logged, with and without the time. Its standard output, which has the lines
  // also when the file has them no longer.
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
  void slice(double seconds);
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
  double throttle_;                 // the throttle after processes that ended at once …
  std::uint64_t actionsAtEnd_ = 0;  // … unless something happened since
  std::uint64_t actions_ = 0;       // changes of the machine and of files
  std::optional<int> exitStatus_;
  std::optional<int> endSignal_;
  std::uint64_t latestRequest_ = 0;

  std::size_t outputSeen_ = 0;  // bytes, of the latest process
  std::string partialLine_;     // the end of the output, as long as its line continues
  std::vector<std::string> stamped_;
  std::size_t logCheckpoint_ = 0;
  std::uint64_t journalSeen_ = 0;
  std::vector<virtual_mac::JournalEntry> journal_;  // those seen
  std::size_t journalCheckpoint_ = 0;
};

}  // namespace brisko::sim
