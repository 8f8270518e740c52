// report/history_files.h
// Reads the daemon's own history from its daily files.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "report/picture.h"

namespace brisko::lab {

struct HistoryReading {
  Picture picture = {};
  std::size_t files = 0;
  std::size_t skipped = 0;                     // unusable lines
  std::vector<std::string> firstSkipped = {};  // the first few of them, with file, line and reason
};

// The samples of all day files in the folder, or in a folder below it: in "history", or in the daemon's
// folder when it is the root of a volume. Files with other names are ignored. None and a reason when there is
// nothing to draw.
[[nodiscard]] std::optional<HistoryReading> readHistory(const std::string& folder, std::string& reason);

}  // namespace brisko::lab
