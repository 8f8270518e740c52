// report/history_files.h
// The daemon's own history, as it lies in its daily files.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "report/picture.h"

namespace brisko::lab {

struct HistoryReading {
  Picture picture = {};
  std::size_t files = 0;
  std::size_t skipped = 0;                     // lines that are left out
  std::vector<std::string> firstSkipped = {};  // the first few of them, with file, line and reason
};

// The samples of all day files in the folder, or where they lie below it: in "history", or in the daemon's
// place when the folder is the root of a volume. Files of other names are left alone. None and a reason when
// there is nothing to be drawn.
[[nodiscard]] std::optional<HistoryReading> readHistory(const std::string& folder, std::string& reason);

}  // namespace brisko::lab
