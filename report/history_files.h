// report/history_files.h
// Reads the daemon's own history from its daily files.
#pragma once

#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "report/local_days.h"
#include "report/picture.h"

namespace brisko::lab {

struct HistoryReading {
  Picture picture = {};
  std::size_t files = 0;
  std::size_t skipped = 0;                     // unusable lines
  std::vector<std::string> firstSkipped = {};  // the first few of them, with file, line and reason
  std::optional<Date> firstDay = {};           // of the files in the folder, whether read or not
  std::optional<Date> lastDay = {};
};

// A line of a day's file.
struct HistoryLine {
  std::optional<Moment> moment = {};
  const char* fault = nullptr;  // the reason if the line is no sample
};
// `midnight`: the day's first moment in UTC, seconds since 1970.
[[nodiscard]] HistoryLine readHistoryLine(const std::string& text, double midnight);

// The samples of all day files in the folder, or in a folder below it: in "history", or in the daemon's
// folder when it is the root of a volume. Files with other names are ignored. None and a reason when there is
// nothing to draw.
[[nodiscard]] std::optional<HistoryReading> readHistory(const std::string& folder, std::string& reason);

// The samples from `from` until before `until`, seconds since 1970, of the day files in the folder itself.
// Possibly none; `error` is set when the folder cannot be read. The picture has no title and no facts.
[[nodiscard]] HistoryReading readHistory(const std::string& folder, double from, double until,
                                         std::error_code& error);

}  // namespace brisko::lab
