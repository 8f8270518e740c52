// tests/sim/seam/live/live_folder.h
// A machine in a temporary folder, which the environment of this process names as a user's would.
#pragma once

#include <memory>
#include <string>

#include "sim/machine/machine_store.h"
#include "support/scratch_folder.h"

namespace brisko::test {

// Fast enough that a test waits only for milliseconds.
inline constexpr double testSpeed = 1000;

// A healthy MacBook Air that starts now.
[[nodiscard]] virtual_mac::Machine machineFromNow(const virtual_mac::MachineOptions& options = {},
                                                  double speed = testSpeed);

class LiveFolder {
 public:
  explicit LiveFolder(const virtual_mac::Machine& machine = machineFromNow());

  [[nodiscard]] const std::string& path() const { return path_; }
  // The machine as opened by a tool; the seam opens it again.
  [[nodiscard]] virtual_mac::MachineStore& store() { return *store_; }

  // Makes it the machine of this process. Must be called before the seam is used.
  void name() const;
  // Advances the machine to the present, changes it and wakes the processes that use it.
  void change(const virtual_mac::Change& change);

 private:
  ScratchFolder scratch_;
  std::string path_;
  std::unique_ptr<virtual_mac::MachineStore> store_;
};

}  // namespace brisko::test
