// client/report_gathering.h
// Reads everything that a bug report may contain.
#pragma once

#include <string>
#include <vector>

#include "client/bug_report.h"
#include "client/state_reader.h"

namespace brisko::client {

// All parts of a report with what was read for them, or with the reason. Each program that is asked has a
// limit of time; on another volume none is asked.
[[nodiscard]] std::vector<ReportPart> gatherReport(const State& state);

[[nodiscard]] ReportFacts reportFacts(const State& state);

// The archive of a report with only what is needed to play these last days: every line of the history, the
// log, the battery, and the settings in force, if no file contains them.
[[nodiscard]] std::string archiveOfDays(const State& state, int days);

}  // namespace brisko::client
