// state/sleep_state.h
#pragma once

#include <optional>

namespace brisko {

// How long ticks stay quiet after a sleep was announced, seconds. A sleep that has not begun by then never
// will.
inline constexpr double sleepPendingLimit = 30.0;

inline std::optional<double> gSleepPendingSince;  // wall clock of the last announcement

}  // namespace brisko
