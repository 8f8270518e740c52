// base/process_flags.h
// State of the whole process. Each flag is written only by its owner and read everywhere.
#pragma once

#include <string>

namespace brisko {

inline constexpr const char* daemonVersion = "0.9.9";

inline double daemonStartedAt = 0;  // seconds since 1970; set at entry

inline bool gPurged = false;        // the app had all data erased: no file is written any more
inline bool gDormant = false;       // the app is gone: everything is handed back, and no key is written
inline bool gReleased = false;      // the app released the charge: the limit is not set
inline bool gSystemLocked = false;  // macOS closed the keys and offers no limit: the daemon only observes

inline std::string gDaemonPath;  // of the running executable, links resolved; empty when unknown

}  // namespace brisko
