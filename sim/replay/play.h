// sim/replay/play.h
// Plays a reconstruction: the real daemon on the virtual Mac, in virtual time.
#pragma once

#include <functional>
#include <limits>

#include "sim/replay/reconstruct.h"
#include "sim/replay/trace.h"

namespace brisko::lab {

// Watches the Mac while its days are played: after each action, and at least once in every `longestPass`.
struct PlayWatch {
  double longestPass = std::numeric_limits<double>::infinity();  // seconds
  std::function<void(const virtual_mac::Machine&)> look = {};
};

// Plays it, and returns what the daemon left behind.
[[nodiscard]] Trace play(const Reconstruction& reconstruction, const PlayWatch& watch = {});

}  // namespace brisko::lab
