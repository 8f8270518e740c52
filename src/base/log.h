// base/log.h
// The one way to report: a line to standard output and to the log file, each with its time.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

namespace brisko {

// Writes "2026-03-01T08:15:30Z message\n" (UTC, whole seconds) to standard output and the log file. Never
// fails and never blocks the daemon, not even if standard output is closed; if writing there would block, the
// line is dropped there.
void log(std::string_view message);

// The log file: limited in size, with one previous generation. Once open, the handle stays with its file; the
// path is not used again until a rotation.
namespace LogFile {

inline constexpr const char* defaultDirectory = "/Library/Logs/Brisko";
inline constexpr std::int64_t defaultCap = 4'194'304;  // bytes

// Appends one formatted line, opening, creating (folder 0755, file 0644) or rotating as needed. Nothing
// happens after a purge.
void append(std::string_view line);

// Sets the folder to 0755 and the three log files to 0644 where they differ, without ever following a link.
// Returns one text for each repair, e.g. "daemon.log 600 → 644".
[[nodiscard]] std::vector<std::string> repairPermissions();

// Closes the file and starts again in another folder (unmapped path) with another cap.
void reset(const std::string& directory, std::int64_t cap);

}  // namespace LogFile
}  // namespace brisko
