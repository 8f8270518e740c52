// sim/replay/reported_service.h
// What happened to the daemon, its app and macOS's own limit, as the lines of the log show it.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "sim/replay/dated_action.h"
#include "sim/replay/reported_days.h"

namespace brisko::lab {

// In order of time. Those before the beginning were in effect when the daemon started.
[[nodiscard]] std::vector<DatedAction> serviceActions(const ReportedDays& days);

// The limit of macOS, in percent, that the daemon would have given back at the beginning; none if it had not
// read it yet, or if that is not known.
[[nodiscard]] std::optional<std::int64_t> nativeLimitAtBeginning(const ReportedDays& days);

}  // namespace brisko::lab
