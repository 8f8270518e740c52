// service/app_presence.h
// The watch on the app. Without the app nobody can change the limit, so when it has been missing for ten
// minutes the daemon gives everything back to macOS and becomes dormant: it still runs, but does nothing.
// When the app is found again, the daemon takes the charge again. Without a path in gAppPath nothing is
// watched.
#pragma once

#include <optional>

#include "platform/file_watch.h"

namespace brisko {

// Wall clock, seconds since 1970, at which the app was first found missing; none while it is installed.
inline std::optional<double> gAppGoneSince;

inline std::optional<platform::WatchToken> gAppSource;  // the watch on the bundle; none while it is missing

inline constexpr double appGraceSeconds = 600.0;

// Checks now whether the app is at gAppPath or in the Applications folder, and acts on the result.
void checkAppPresence();

// Watches the bundle at gAppPath, and later whatever replaces it; while it is missing, checks once a minute.
// Does nothing while the daemon is dormant.
void watchApp();

}  // namespace brisko
