// base/log_output.h
// The log's lines on standard output. A full pipe or a terminal on hold must not block the daemon, so these
// writes never wait.
#pragma once

#include <string_view>

namespace brisko {

// Writes as much of `line`, with its line feed, as standard output accepts at once. The rest of a line is
// written before another line begins. A line that cannot be begun is dropped there, and so is one that comes
// while another thread is writing.
void offerLogLine(std::string_view line);

}  // namespace brisko
