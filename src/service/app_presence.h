// service/app_presence.h
// The watch on the app. Without it nobody can change the limit any more, so when it has been gone for a while
// the daemon gives everything back to macOS and goes dormant: it still runs, but it does nothing. When the
// app is found again, it takes the charge again. Without a path at gAppPath nothing is watched.
#pragma once

#include <optional>

#include "platform/file_watch.h"

namespace brisko {

// Wall clock, seconds since 1970, of the first sight of the absence that lasts; none while the app is there.
inline std::optional<double> gAppGoneSince;

inline std::optional<platform::WatchToken> gAppSource;  // the watch on the bundle; none while it is missing

inline constexpr double appGraceSeconds = 600.0;

// Judges now whether the app is there, at gAppPath or in the Applications folder, and acts on it.
void checkAppPresence();

// Watches the bundle at gAppPath, from then on also what takes its place; while nothing is there it looks
// once a minute. Nothing happens while the daemon is dormant.
void watchApp();

}  // namespace brisko
