// sim/process/forked_daemon.h
// One simulated process of the daemon: a forked child that runs the real entry in virtual time over a machine
// in shared memory. The child is paused whenever it is not let run, so that the machine and its files may be
// looked at and changed meanwhile; process-wide state is fresh in every process.
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
  std::function<void()> onPause = {};   // … and whenever it is about to pause
  std::function<void()> onResume = {};  // … and whenever it was paused and is let run again
};

class ForkedDaemon {
 public:
  // Forks the child and stops it before its first instruction. A std::system_error when it cannot be had.
  explicit ForkedDaemon(const ForkOptions& options);
  ~ForkedDaemon();  // kill -9 when it still lives
  ForkedDaemon(const ForkedDaemon&) = delete;
  ForkedDaemon& operator=(const ForkedDaemon&) = delete;

  // Lets the child run until machine time has moved on by `seconds`, or until it ends. With 0 it runs up to
  // its first wait.
  void run(double seconds);
  void signal(int number);  // sent while it is paused; taken when it runs on
  void kill();              // kill -9, now
  // From its next run() on its files grow no further than this many bytes, as on a full disk; none: they
  // grow.
  void limitFileSize(std::optional<std::uint64_t> bytes);

  [[nodiscard]] bool alive() const;
  [[nodiscard]] std::optional<int> status() const;     // exit status
  [[nodiscard]] std::optional<int> endSignal() const;  // the signal that ended it
  // What it wrote so far to its standard output, from the byte `from` on, and to its standard error.
  [[nodiscard]] std::string output(std::size_t from = 0) const;
  [[nodiscard]] std::string errors() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace brisko::sim
