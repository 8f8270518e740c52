// sim/what_if/play_days.h
// Plays days, several at a time, and watches the Mac also while it sleeps.
#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

#include "sim/replay/reconstruct.h"
#include "sim/what_if/figures.h"

namespace brisko::lab {

[[nodiscard]] PlayedDays playDays(const Reconstruction& reconstruction);

// Each in a process of its own, as many at a time as there are processors; the results are in the same order.
// None when a signal asked this program to end; its processes have then ended and left nothing behind. A play
// that fails throws std::runtime_error. `finished` gets how many have been played so far.
[[nodiscard]] std::optional<std::vector<PlayedDays>> playAll(
    const std::vector<Reconstruction>& reconstructions,
    const std::function<void(std::size_t)>& finished = {});

}  // namespace brisko::lab
