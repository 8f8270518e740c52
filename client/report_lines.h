// client/report_lines.h
// Which lines of a text may be in a bug report. A line is kept only if it matches a pattern as a whole, and
// the variable parts of the patterns are numbers, times and listed texts, so that no name, address or serial
// number has a place in it. Everything else is dropped and counted.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace brisko::client {

struct KeptText {
  std::string text = {};    // each line with a line feed
  std::size_t dropped = 0;  // lines, or values of a JSON text
  bool unreadable = false;  // it is not in its form at all
};

// Whether the whole line matches: "#" is a number of at most seven digits, with a sign and a fraction or
// without, "@" one digit, "<a|b>" one of several texts, in which "#" and "@" mean the same.
[[nodiscard]] bool fitsPattern(std::string_view line, std::string_view pattern);

// A path that every installation has, as it is; of any other its first folder: "/Users/…".
[[nodiscard]] std::string keptPath(const std::string& path);

// The lines that the catalogue of the log contains. Paths in them are shortened as above.
[[nodiscard]] KeptText keptLog(std::string_view text);  // each after its time
[[nodiscard]] KeptText keptStandardError(std::string_view text);

[[nodiscard]] KeptText keptProbe(std::string_view text);
[[nodiscard]] KeptText keptSelfTest(std::string_view text);
// What "codesign -dv" prints. Whether a team signed is kept, not which.
[[nodiscard]] KeptText keptSignature(std::string_view text);

// Of "pmset -g log": when the Mac slept and woke from `firstDay` on ("2026-03-01"), on which source of power,
// at which charge, and why, as far as these reasons are listed. Other lines are dropped.
[[nodiscard]] KeptText keptPowerLog(std::string_view text, std::string_view firstDay);
// Of "pmset -g sched": when the Mac is to wake, and whether the daemon asked for it.
[[nodiscard]] KeptText keptPowerSchedule(std::string_view text);

}  // namespace brisko::client
