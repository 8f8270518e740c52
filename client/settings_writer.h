// client/settings_writer.h
// Changes settings safely: through the daemon's control service if it answers, otherwise in the file, as
// root. Then it waits until the change shows. The daemon treats a missing key as its default, so a file with
// one key would undo all others; both ways keep what was not asked for.
#pragma once

#include <cstdint>
#include <string>

#include "base/json_file.h"
#include "client/exit_status.h"
#include "client/state_reader.h"

namespace brisko::client {

struct ChangeOptions {
  bool force = false;       // replace an unreadable file by the defaults
  double waitSeconds = 3;   // until the change shows, real time
  std::string commandLine;  // to repeat with sudo
};

enum class Way : std::uint8_t { none, service, file };

struct ChangeOutcome {
  ExitStatus status = ExitStatus::done;
  Way way = Way::none;
  bool confirmed = false;   // the daemon shows the change, or keeps it
  int writes = 0;           // of the file, until the change was not lost
  std::size_t cleared = 0;  // requests that had been served meanwhile, and may have come back for a moment
  std::string text = {};    // additional sentences for the user; empty if everything is as requested
};

// `keys` contains only the keys to change, with checked values.
[[nodiscard]] ChangeOutcome changeSettings(const State& state, const Json& keys,
                                           const ChangeOptions& options);

// Whether the status shows that value of a key; none for a key that no status shows.
[[nodiscard]] std::optional<bool> shows(const DaemonStatus& status, const std::string& key,
                                        const Json& value);

}  // namespace brisko::client
