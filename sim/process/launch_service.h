// sim/process/launch_service.h
// What the launch service of macOS does for the daemon: starts it after boot, starts it again when it ends,
// ends it at shutdown.
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
// itself it is started again, at most every 10 s of the machine's time. Returns the status for main(); a
// failure is told on standard error.
[[nodiscard]] int bootAndWait(const BootOptions& options);

// Ends the boot of `folder` and waits until the daemon is gone and the machine off; a machine that nobody
// booted is only turned off.
[[nodiscard]] int shutDownAndWait(const std::string& folder);

// The path of a program that lies beside the running one.
[[nodiscard]] std::string siblingProgram(const std::string& name);

}  // namespace brisko::vmac
