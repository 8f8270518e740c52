// base/paths.h
// The unmapped paths of the files that the daemon keeps for itself and for the app.
#pragma once

namespace brisko {

inline constexpr const char* statusPath = "/Library/Application Support/Brisko/status.json";
inline constexpr const char* statsPath = "/Library/Application Support/Brisko/stats.json";
inline constexpr const char* calibrationPath = "/Library/Application Support/Brisko/calibration.json";
inline constexpr const char* historyDir = "/Library/Application Support/Brisko/history";

}  // namespace brisko
