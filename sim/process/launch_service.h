// sim/process/launch_service.h
// Does for the daemon what launchd does on a Mac: starts it after boot, restarts it when it ends, and ends it
// at shutdown.
#pragma once

#include <string>
#include <vector>

namespace brisko::vmac {

struct BootOptions {
  std::string folder = {};                  // of the machine
  std::string daemon = {};                  // path of the program
  std::vector<std::string> arguments = {};  // of the daemon
};

// Boots the machine and runs the daemon on it until shutDown() or SIGINT or SIGTERM; then ends the daemon and
// turns the machine off. The daemon's standard error goes to "daemon.err.log" beside its log. When it ends by
// itself it is started again, at most every 10 s of machine time. Returns the status for main(); failures are
// reported on standard error.
[[nodiscard]] int bootAndWait(const BootOptions& options);

// Ends the boot of `folder` and waits until the daemon has ended and the machine is off. A machine that was
// not booted is only turned off.
[[nodiscard]] int shutDownAndWait(const std::string& folder);

// The path of a program in the folder of the running one.
[[nodiscard]] std::string siblingProgram(const std::string& name);

}  // namespace brisko::vmac
