// daemon/config_watch.h
// Runs a tick at once when the configuration file changes, so that a choice made in the app need not wait for
// the heartbeat. The tick reads the file itself; the watch only triggers it.
#pragma once

#include <optional>

#include "platform/file_watch.h"

namespace brisko {

// The watch on the configuration file; none while there is no such file.
inline std::optional<platform::WatchToken> gConfigSource;

// Watches the file at gConfigPath, and later any file that replaces it. If there is no file, nothing is
// watched and nothing retries: the heartbeat still notices a file that is created later.
void watchConfig();

}  // namespace brisko
