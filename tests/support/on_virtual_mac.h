// tests/support/on_virtual_mac.h
// A test that runs the daemon's code in its own process over a virtual Mac.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "support/testing.h"
#include "support/virtual_mac.h"

namespace brisko::test {

class OnVirtualMac : public ::testing::Test {
 protected:
  explicit OnVirtualMac(const virtual_mac::MachineOptions& options = {}) : mac(options) {}

  // Opens the controller without reading anything.
  void openController();
  // Opens the controller and sets up the gate as start-up does, without starting anything else.
  void takeGate();

  // Runs ticks, each a heartbeat after the previous one.
  void ticks(int count);

  // The files of the data folder that `work` writes, in order; not those of its subfolders.
  std::vector<std::string> filesWritten(const std::function<void()>& work);
  // The same with "daemon.log" for each run of lines in between.
  std::vector<std::string> filesWrittenAndLogged(const std::function<void()>& work);

  // The lines logged since the last call.
  [[nodiscard]] std::vector<std::string> newLines() { return mac.newLogLines(); }

  VirtualMac mac;
};

using Bytes = std::vector<std::uint8_t>;

}  // namespace brisko::test
