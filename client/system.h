// client/system.h
// Facts that are in no file of the daemon: the adapter's rating, when the Mac started and woke, and the
// daemon's job in launchd. Declarations only; mac/ implements them on a Mac, linux/ on a virtual one. A value
// that is unavailable is missing, and then left out of every answer.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace brisko::client {

// The daemon as a job of the launch service.
struct Job {
  bool installed = false;
  std::optional<std::int64_t> processId = {};     // none while it is not running
  std::vector<std::string> arguments = {};        // of the daemon, its path first; empty when unknown
  std::optional<std::int64_t> lastExitCode = {};  // of the process before; none if it did not exit by itself
  std::string lastSignal = {};                    // that ended it, e.g. "Abort trap: 6"
};

struct SystemFacts {
  std::optional<double> adapterWatts = {};  // the rating of the connected adapter
  std::optional<double> bootedAt = {};      // wall clock, seconds since 1970
  std::optional<double> wokeAt = {};        // likewise, the last wake
  bool asleep = false;                      // only a virtual Mac can be asked while it is asleep
  std::optional<Job> job = {};
};

[[nodiscard]] SystemFacts readSystem();

// Why this computer cannot be used at all, as one clause; none if it can. Must be called before anything
// else, because without a usable machine the seam would end the process.
[[nodiscard]] std::optional<std::string> whyUnusable();

// The team that signed the program at `path`; an empty text without a team, none if that is unknown.
[[nodiscard]] std::optional<std::string> teamThatSigned(const std::string& path);

// Asks the launch service to end the daemon with SIGTERM, so that the charge is given back first; it is then
// started again. False and a reason, as one clause, when that was refused.
[[nodiscard]] bool endDaemon(std::string& reason);

// The model's identifier, such as "Mac14,2".
[[nodiscard]] std::optional<std::string> modelOfMac();

// The programs of the system that a bug report asks.
enum class ReportCommand : std::uint8_t { job, signature, powerLog, powerSchedule };
// The program with its arguments, its path first; empty on a system without it. `daemon` is the path of the
// daemon.
[[nodiscard]] std::vector<std::string> commandLineFor(ReportCommand command, const std::string& daemon);

// Opens the page at `path` in the user's browser. False and a reason, as one clause, when that was refused.
[[nodiscard]] bool openPage(const std::string& path, std::string& reason);

}  // namespace brisko::client
