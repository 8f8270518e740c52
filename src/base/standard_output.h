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

// Opens the null device for every standard stream that is closed at the start. Otherwise the first file that
// is opened would get its number, and every line meant for the stream would be written to that file.
void occupyStandardStreams();

}  // namespace brisko
