// client/state_reader.h
// The present state according to the daemon's files, its job and the system, in one struct.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/json_file.h"
#include "base/options.h"
#include "base/settings.h"
#include "client/daemon_status.h"
#include "client/file_reading.h"
#include "client/recent_history.h"
#include "client/system.h"
#include "client/why.h"

namespace brisko::client {

// Where the daemon reads its settings, and what applies while it cannot.
struct JobArguments {
  std::string config = defaultConfigPath;
  std::int64_t limit = 80;
  std::optional<std::int64_t> lower = {};  // it replaces the width of the band
};
[[nodiscard]] JobArguments jobArgumentsIn(const std::vector<std::string>& arguments);

// The settings file as it was read.
struct SettingsFile {
  std::string path = {};  // on this computer
  FileText text = {};
  std::shared_ptr<const Json> object =
      {};  // none when it is not a JSON object, or a number in it ends the daemon
  std::optional<std::string> flaw = {};  // why not, with line and column, as a clause
};
[[nodiscard]] SettingsFile readSettingsFile(const std::string& path);

struct State {
  Volume volume = {};
  double now = 0;  // wall clock
  SystemFacts system = {};
  JobArguments job = {};
  SettingsFile settingsFile = {};
  Settings settings = {};  // in force
  FileProblem statusProblem = FileProblem::none;
  std::shared_ptr<const Json> statusObject = {};  // as the daemon wrote it
  std::optional<DaemonStatus> status = {};
  double topUpSince = 0;
  RecentHistory history = {};
  Resting resting = Resting::no;
  std::string lastSummary = {};  // the newest summary line of the log; may be empty
};

[[nodiscard]] State readState(const Volume& volume);

// Only the status, for a caller that waits for a new one.
[[nodiscard]] std::optional<DaemonStatus> readStatus(const Volume& volume);

[[nodiscard]] Situation situationOf(const State& state);

}  // namespace brisko::client
