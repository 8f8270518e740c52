// base/standard_output.h
// What the modes that answer a question print. The log has a way of its own: base/log_output.h.
#pragma once

#include <string_view>

namespace brisko {

// Writes to standard output at once, past any buffer, and waits for a slow reader: nothing is lost. A
// closed pipe (with SIGPIPE ignored), a full disk or a closed stream has no effect: what the process is doing
// is never cut short by what it has to say.
void writeStandardOutput(std::string_view text);

// The same, followed by a line feed.
void printLine(std::string_view text);

}  // namespace brisko
