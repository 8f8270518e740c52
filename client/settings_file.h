// client/settings_file.h
// Changes keys in the settings file itself, for when no daemon answers. The daemon may write the same file at
// any moment, in place, to clear a request that it has served; such a write must not be lost, or the request
// would be served again.
#pragma once

#include <optional>
#include <string>

#include "base/files.h"
#include "base/json_file.h"
#include "base/settings.h"
#include "client/exit_status.h"

namespace brisko::client {

struct FileChange {
  bool done = false;
  ExitStatus status = ExitStatus::done;  // when it was not done
  std::string reason = {};               // likewise, as a clause with what to do
  double replacedAt = 0;                 // wall clock, when the new file was in place
  // The file that was replaced, while it is open, and what was read from it: a daemon that had opened it
  // before may still write there.
  Descriptor replaced = {};
  std::string read = {};
  std::size_t cleared = 0;  // requests that clearServedRequests() has found served in it
};

// Replaces the file at `path` with one that has all 16 keys and mode 0644: those of `keys`, and the others as
// read immediately before. If there is no file, the others come from `defaults`; with `force`, also if it is
// unreadable, which is otherwise refused. Anything that is not the daemon's own regular file is refused.
[[nodiscard]] FileChange changeSettingsFile(const std::string& path, const Json& keys,
                                            const Settings& defaults, bool force);

// Clears requests that the daemon has cleared in the replaced file in the meantime, unless `keys` sets them.
// False if that failed.
[[nodiscard]] bool clearServedRequests(const std::string& path, const Json& keys, FileChange& change);

}  // namespace brisko::client
