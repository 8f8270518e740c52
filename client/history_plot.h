// client/history_plot.h
// The charge over time as a small plot for a terminal.
#pragma once

#include <string>
#include <vector>

#include "client/output.h"
#include "report/picture.h"

namespace brisko::client {

// From the first sample to the last, 0 to 100 %, in lines of at most `style.width` columns, at least 40 and
// at most 80; each ends with a line feed. A column shows the average of its time, and nothing where nothing
// was recorded. There must be at least one sample, and each must have a level.
[[nodiscard]] std::string plotText(const std::vector<lab::Moment>& samples, const OutputStyle& style);

}  // namespace brisko::client
