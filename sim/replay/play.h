// sim/replay/play.h
// Plays a reconstruction: the real daemon on the virtual Mac, in virtual time.
#pragma once

#include "sim/replay/reconstruct.h"
#include "sim/replay/trace.h"

namespace brisko::lab {

// What the daemon left behind of it.
[[nodiscard]] Trace play(const Reconstruction& reconstruction);

}  // namespace brisko::lab
