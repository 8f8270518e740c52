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
};

// Replaces the file at `path` by one with all 16 keys, of mode 0644: those of `keys`, and the rest as read
// immediately before. `defaults` counts where there is no file, and instead of an unreadable one with
// `force`; without it that is refused, and so is anything that is not the daemon's own regular file.
[[nodiscard]] FileChange changeSettingsFile(const std::string& path, const Json& keys,
                                            const Settings& defaults, bool force);

// Clears requests that the daemon cleared in the replaced file in the meantime, unless `keys` asked for them.
// True when there were any, or none; false when they could not be cleared.
[[nodiscard]] bool clearServedRequests(const std::string& path, const Json& keys, FileChange& change);

}  // namespace brisko::client
