// sim/process/log_lines.h
// Splits the daemon's output into lines.
#pragma once

#include <string>
#include <vector>

namespace brisko::sim {

// All lines of the text; the last one may be incomplete.
[[nodiscard]] std::vector<std::string> linesOf(std::string text);
// Removes the complete lines from the text and returns them; the text keeps the beginning of the next one.
[[nodiscard]] std::vector<std::string> takeWholeLines(std::string& text);
// A line of the log without its time stamp.
[[nodiscard]] std::string withoutStamp(const std::string& line);

}  // namespace brisko::sim
