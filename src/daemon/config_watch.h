// daemon/config_watch.h
// Runs a tick at once when the configuration file changes, so that a choice made in the app does not wait for
// the heartbeat. The tick reads the file itself; the watch only says when.
#pragma once

#include <optional>

#include "platform/file_watch.h"

namespace brisko {

// The watch on the configuration file; none while there is no such file.
inline std::optional<platform::WatchToken> gConfigSource;

// Watches the file at gConfigPath, from then on also the one that replaces it. Without a file there nothing
// is watched, and nothing tries again: the heartbeat still sees a file that comes later.
void watchConfig();

}  // namespace brisko
