// sim/replay/play.h
// Plays a reconstruction: the real daemon on the virtual Mac, in virtual time.
#pragma once

#include <functional>
#include <limits>

#include "sim/replay/reconstruct.h"
#include "sim/replay/trace.h"

namespace brisko::lab {

// Who watches the Mac while it is played: after each action, and after this much time at the latest.
struct PlayWatch {
  double longestPass = std::numeric_limits<double>::infinity();  // seconds
  std::function<void(const virtual_mac::Machine&)> look = {};
};

// What the daemon left behind of it.
[[nodiscard]] Trace play(const Reconstruction& reconstruction, const PlayWatch& watch = {});

}  // namespace brisko::lab
