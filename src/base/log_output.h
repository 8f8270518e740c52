// base/log_output.h
// The log's lines on standard output, for whoever watches the daemon. A reader that does not read, or a
// terminal on hold, must not keep the daemon from its work: these writes never wait.
#pragma once

#include <string_view>

namespace brisko {

// Writes `line`, with its line feed, as far as standard output takes it at once. A line that was begun comes
// to its end before another begins; one that cannot even be begun is dropped there, as is one that comes
// while another thread is in the middle of its own.
void offerLogLine(std::string_view line);

}  // namespace brisko
