// sim/scenario/state_watch.h
// Counts how often the daemon entered each of its states, and how often it went from one to another. The
// daemon has several states at once, such as that of the charge and that of the calibration; each is an
// aspect with values of its own.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>

#include "sim/machine/machine.h"
#include "sim/process/shared_memory.h"

namespace brisko::lab {

class StateWatch {
 public:
  using Counts = std::map<std::string, std::uint64_t>;

  // --- In a process of the daemon

  void processBegins();                            // its first states follow none
  void note(const virtual_mac::Machine& machine);  // after an event

  // --- In the lab

  // "calibration drain": how often it was entered, 0 for a state that was not.
  [[nodiscard]] Counts states() const;
  // "calibration drain → refill". Those that the daemon's rules allow are listed with 0 too.
  [[nodiscard]] Counts transitions() const;

  static constexpr std::size_t aspectCount = 9;
  static constexpr std::size_t mostValues = 6;

 private:
  static constexpr std::size_t noValue = mostValues;
  // How often the second value followed the first, for each aspect; `noValue` at the begin of a process.
  using Steps = std::array<std::array<std::uint64_t, mostValues>, mostValues + 1>;
  struct AllSteps {
    std::array<Steps, aspectCount> ofAspect{};
  };

  sim::SharedMemory<AllSteps> steps_;           // the lab and the processes share it
  std::array<std::size_t, aspectCount> now_{};  // in a process only
};

}  // namespace brisko::lab
