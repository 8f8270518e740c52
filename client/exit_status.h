// client/exit_status.h
// What the exit status of brisko means, for scripts. The manual lists the same.
#pragma once

#include <cstdint>

namespace brisko::client {

enum class ExitStatus : std::uint8_t {
  done = 0,
  notDone = 1,      // asked, and not done
  misused = 2,      // an invalid command line; nothing was changed
  noDaemon = 3,     // not installed, stopped, or doing nothing
  notAllowed = 4,   // needs root
  notObserved = 5,  // the daemon shows something else than what was asked
};

}  // namespace brisko::client
