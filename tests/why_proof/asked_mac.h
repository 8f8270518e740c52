// tests/why_proof/asked_mac.h
// The simulated Mac that the client asks about its system.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "sim/machine/machine.h"

namespace brisko::proof {

struct AskedMac {
  const virtual_mac::Machine* machine = nullptr;
  bool serviceIsLoaded = false;  // by the launch service
  bool daemonRuns = false;
  std::vector<std::string> arguments = {};  // of the daemon, its path first
  // Of the process that ended last.
  std::optional<int> exitStatus = {};
  std::optional<int> endSignal = {};
};

[[nodiscard]] AskedMac& askedMac();

}  // namespace brisko::proof
