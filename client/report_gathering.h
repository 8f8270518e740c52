// client/report_gathering.h
// Reads everything that a bug report may contain.
#pragma once

#include <vector>

#include "client/bug_report.h"
#include "client/state_reader.h"

namespace brisko::client {

// All parts of a report with what was read for them, or with the reason. Each program that is asked has a
// limit of time; on another volume none is asked.
[[nodiscard]] std::vector<ReportPart> gatherReport(const State& state);

}  // namespace brisko::client
