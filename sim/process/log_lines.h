// sim/process/log_lines.h
// Lines of what the daemon writes.
#pragma once

#include <string>
#include <vector>

namespace brisko::sim {

// All lines of the text; the last one may lack its end.
[[nodiscard]] std::vector<std::string> linesOf(std::string text);
// Takes the whole lines out of the text; what remains is the beginning of the next one.
[[nodiscard]] std::vector<std::string> takeWholeLines(std::string& text);
// A line of the log without its time stamp.
[[nodiscard]] std::string withoutStamp(const std::string& line);

}  // namespace brisko::sim
