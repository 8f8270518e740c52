// sim/what_if/prepared_days.h
// The days of a history, ready to be played with its settings and with others.
#pragma once

#include <string>
#include <vector>

#include "sim/replay/reconstruct.h"
#include "sim/replay/reported_days.h"

namespace brisko::lab {

inline constexpr int fewestDays = 3;

// Why the days are too few to say anything, as a clause; empty if they are enough. Days with a line of the
// history count.
[[nodiscard]] std::string whyTooFew(const Trace& history);

// The days as they were set. Its assumptions name everything that the history does not show.
[[nodiscard]] Reconstruction prepare(const ReportedDays& days);

}  // namespace brisko::lab
