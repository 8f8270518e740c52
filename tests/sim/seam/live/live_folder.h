// tests/sim/seam/live/live_folder.h
// A machine in a folder of a test's own, named to this process as a person would.
#pragma once

#include <memory>
#include <string>

#include "sim/machine/machine_store.h"
#include "support/scratch_folder.h"

namespace brisko::test {

// Fast enough that a test waits for milliseconds.
inline constexpr double testSpeed = 1000;

// A healthy MacBook Air whose time begins at this moment.
[[nodiscard]] virtual_mac::Machine machineFromNow(const virtual_mac::MachineOptions& options = {},
                                                  double speed = testSpeed);

class LiveFolder {
 public:
  explicit LiveFolder(const virtual_mac::Machine& machine = machineFromNow());

  [[nodiscard]] const std::string& path() const { return path_; }
  // The tools' side of the machine; the seam opens it for itself.
  [[nodiscard]] virtual_mac::MachineStore& store() { return *store_; }

  // Makes it the machine of this process, before the seam is used.
  void name() const;
  // Brings the machine to this moment, changes it and wakes who holds it.
  void change(const virtual_mac::Change& change);

 private:
  ScratchFolder scratch_;
  std::string path_;
  std::unique_ptr<virtual_mac::MachineStore> store_;
};

}  // namespace brisko::test
