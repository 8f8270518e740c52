// sim/process/forked_daemon.h
// One simulated process of the daemon: a forked child that runs the real entry in virtual time over a machine
// in shared memory. The child is paused except during run(), so that the machine and its files can be
// inspected and changed in between. Every process begins with fresh process-wide state.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sim/machine/machine_store.h"

namespace brisko::sim {

struct ForkOptions {
  virtual_mac::MachineStore& store;     // attached to the seam of this process; outlives the process
  std::vector<std::string> arguments;   // after the path of the executable
  int fileEvents;                       // the queue of file events for the machine's processes
  std::function<void()> prepare = {};   // called in the child before anything of the daemon
  std::function<void()> onPause = {};   // … whenever it is about to pause
  std::function<void()> onResume = {};  // … and whenever it resumes
  // Called at the end of a step that is not the last one. True: the next one begins without a pause.
  std::function<bool()> stepEnded = {};
};

class ForkedDaemon {
 public:
  // Forks the child and stops it before its first instruction. Throws std::system_error on failure.
  explicit ForkedDaemon(const ForkOptions& options);
  ~ForkedDaemon();  // kill -9 if it still runs
  ForkedDaemon(const ForkedDaemon&) = delete;
  ForkedDaemon& operator=(const ForkedDaemon&) = delete;

  // Lets the child run until machine time has moved on by `seconds`, or until it ends. With 0 it runs up to
  // its first wait.
  void run(double seconds);
  // At most this many runs of so many seconds, until machine time `end`. Between two of them onPause() and
  // onResume() are called as in a pause, but the child pauses only when stepEnded() says so.
  void runSteps(double seconds, int steps, double end);
  void signal(int number);  // sent while it is paused; handled when it resumes
  void kill();              // kill -9, now
  // From its next run() on its files cannot grow beyond this many bytes, as on a full disk; none: without a
  // limit.
  void limitFileSize(std::optional<std::uint64_t> bytes);

  [[nodiscard]] bool alive() const;
  [[nodiscard]] std::optional<int> status() const;     // exit status
  [[nodiscard]] std::optional<int> endSignal() const;  // the signal that ended it
  // Its standard output so far, from the byte `from` on, and its standard error.
  [[nodiscard]] std::string output(std::size_t from = 0) const;
  [[nodiscard]] std::string errors() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace brisko::sim
