// base/paths.h
// Where the daemon keeps what it remembers and what it tells the app, unmapped.
#pragma once

namespace brisko {

inline constexpr const char* statusPath = "/Library/Application Support/Brisko/status.json";
inline constexpr const char* statsPath = "/Library/Application Support/Brisko/stats.json";
inline constexpr const char* calibrationPath = "/Library/Application Support/Brisko/calibration.json";
inline constexpr const char* historyDir = "/Library/Application Support/Brisko/history";

}  // namespace brisko
