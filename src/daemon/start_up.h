// daemon/start_up.h
#pragma once

namespace brisko {

// Starts the daemon in its fixed order and runs the main run loop. The connection to the controller is
// already open. Returns the exit status for main(); without any way to control charging it ends the process
// with status 2.
[[nodiscard]] int startUp();

}  // namespace brisko
