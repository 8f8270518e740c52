// sim/invariants/invariant_checker.h
// Watches the daemon while it runs and reports when an invariant does not hold. The checks run inside each
// process, after every iteration of the run loop and after every tick; a process that violates an invariant
// is ended at once.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "sim/invariants/rule.h"
#include "sim/process/simulation.h"
#include "sim/seam/call_watch.h"

namespace brisko::lab {

struct Violation {
  Invariant invariant;
  double at;         // machine time
  std::string seen;  // what was seen instead
};

class InvariantChecker {
 public:
  // The simulation outlives it.
  explicit InvariantChecker(sim::Simulation& simulation);
  ~InvariantChecker();
  InvariantChecker(const InvariantChecker&) = delete;
  InvariantChecker& operator=(const InvariantChecker&) = delete;

  // --- In the lab

  // Every change of the timeline is announced here before it is applied.
  void beforeChange(const virtual_mac::Change& change);
  // Announces the new contents of a file that will be written; empty for one that will be removed.
  void beforeFileChange(std::string_view path, std::string_view text);
  void beforeSignal(int number);  // to the running process
  void beforeDiskFull(bool full);
  void beforeStart();  // of a process
  void processEnded(const sim::ForkedDaemon& process);
  // The first violation; none while all invariants hold.
  [[nodiscard]] std::optional<Violation> violation() const;

  // --- In a process

  void prepare();  // before any code of the daemon
  void checkIteration();
  void onPause();   // the process is about to be paused: what it did so far is checked before others act
  void onResume();  // the process continues after a pause
  void beforeFailedCall(const virtual_mac::WatchedCall& call);  // of the process, in its middle

  struct Impl;

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace brisko::lab
