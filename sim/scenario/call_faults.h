// sim/scenario/call_faults.h
// Lets one call of a simulated daemon fail, or kills the daemon at it. A scenario is run twice: the first run
// records the calls that are worth it, the second one is the same up to that call.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "sim/process/shared_memory.h"
#include "sim/seam/call_watch.h"

namespace brisko::lab {

enum class CallFault : std::uint8_t {
  once,        // this call fails
  fromThenOn,  // and every later one of the same name and subject
  killed,      // kill -9 before the call
};
[[nodiscard]] const char* nameOf(CallFault fault);

// A run continues for so long after the call.
inline constexpr double secondsAfterFailedCall = 3600;

struct CallPoint {
  std::uint64_t number = 0;  // of the call, from 1, in all processes of the scenario
  std::string call = {};     // "write of the key CHTE", "open for reading /Library/…/config.json"
  std::string state = {};    // the daemon's: "starting", "hold", "discharge, calibration drain"
  bool isKeyWrite = false;
};

class CallFaults {
 public:
  // Records. Not every call: of each call in each state the first three, and every write of a key.
  CallFaults();
  // Lets the call fail in this way.
  CallFaults(CallPoint point, CallFault fault);
  ~CallFaults();
  CallFaults(const CallFaults&) = delete;
  CallFaults& operator=(const CallFaults&) = delete;

  // --- In a process of the daemon

  // Watches its calls. `fails` is called before a call fails, `killed` before the process is killed.
  void processBegins(std::function<void(const virtual_mac::WatchedCall&)> fails,
                     std::function<void()> killed);
  void iterationEnded();  // an event of the run loop was handled

  // --- In the lab

  [[nodiscard]] std::vector<CallPoint> points() const;                  // that were recorded, in their order
  [[nodiscard]] std::uint64_t calls() const { return shared_->calls; }  // all
  [[nodiscard]] std::uint64_t kinds() const;                            // different calls in different states
  [[nodiscard]] std::optional<double> failedAt() const;                 // machine time; none: not yet
  // The call of this number was another one, so the scenario did not run as it did when it was recorded.
  [[nodiscard]] bool differed() const { return shared_->differed; }

 private:
  static constexpr std::uint64_t mostOccurrences = 3;

  struct Shared {
    std::uint64_t calls = 0;
    double failedAt = -1;
    bool differed = false;
  };

  bool noteCall(const virtual_mac::WatchedCall& call);
  void record(const virtual_mac::WatchedCall& call) const;
  bool fail(const virtual_mac::WatchedCall& call);
  [[nodiscard]] std::string stateNow() const;

  std::optional<CallPoint> point_;  // none: records
  CallFault fault_ = CallFault::once;
  sim::SharedMemory<Shared> shared_;
  int records_;  // a file of lines, written by the processes

  // In a process only.
  std::function<void(const virtual_mac::WatchedCall&)> fails_;
  std::function<void()> killed_;
  bool hasStarted_ = false;
  mutable std::map<std::string, std::uint64_t> occurrences_;  // of a call in a state, in this process
};

}  // namespace brisko::lab
