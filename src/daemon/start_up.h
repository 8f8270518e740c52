// daemon/start_up.h
#pragma once

namespace brisko {

// Brings the daemon up in its fixed order and runs the main run loop. The connection to the controller is
// open. Returns the status for main() to return; without any way to control charging it ends the process
// with status 2.
[[nodiscard]] int startUp();

}  // namespace brisko
