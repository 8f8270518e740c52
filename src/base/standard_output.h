// base/standard_output.h
// The output of the modes that answer a question. The log is written by base/log_output.h.
#pragma once

#include <string_view>

namespace brisko {

// Writes to standard output at once, unbuffered, and waits for a slow reader, so nothing is lost. A closed
// pipe (with SIGPIPE ignored), a full disk or a closed stream has no effect on the rest of the process.
void writeStandardOutput(std::string_view text);

// The same, followed by a line feed.
void printLine(std::string_view text);

}  // namespace brisko
