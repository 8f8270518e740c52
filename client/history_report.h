// client/history_report.h
// The history of some days: read, added up, and as every text that "brisko history" prints.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/json_file.h"
#include "client/output.h"
#include "report/history_files.h"
#include "report/history_summary.h"

namespace brisko::client {

struct HistoryReport {
  lab::Picture picture = {};
  lab::HistorySummary summary = {};
  std::size_t skipped = 0;                // unusable lines
  bool recording = true;                  // the setting
  std::vector<std::string> remarks = {};  // sentences for every reader
};

// Of the samples that were read, up to `now`; none when there are none.
[[nodiscard]] std::optional<HistoryReport> historyReport(lab::HistoryReading reading, double now,
                                                         bool recording);

// A plot and a table, for a terminal.
[[nodiscard]] std::string terminalText(const HistoryReport& report, const OutputStyle& style, double now);

// A line for each sample, after one with the names of the columns. Missing values are empty.
[[nodiscard]] std::string csvText(const std::vector<lab::Moment>& samples);

// The members of brisko.history/1.
[[nodiscard]] Json historyObject(const HistoryReport& report);

}  // namespace brisko::client
