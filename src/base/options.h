// base/options.h
// The options of the command line.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/guards.h"

namespace brisko {

inline constexpr const char* defaultConfigPath = "/Library/Application Support/Brisko/config.json";

inline std::int64_t gCliLimit = 80;  // percent; used as the limit when no configuration is readable
inline std::int64_t gCliLower = -1;  // percent; below 0: not given
inline std::string gConfigPath = defaultConfigPath;
inline std::optional<std::string> gAppPath;  // the app bundle to watch; an empty text is a path too
inline Guards gGuards;
inline bool gProbeOnly = false;
inline bool gProbeJSON = false;
inline bool gSelfTest = false;
inline bool gPrintVersion = false;
inline bool gFwTest = false;

// Scans the arguments (the first is the executable's path) into the options above. Unknown or unreadable
// arguments are silently ignored.
void scanArguments(const std::vector<std::string>& arguments);

// Accepts one optional sign, then only ASCII digits, within 64 bits; else none.
[[nodiscard]] std::optional<std::int64_t> parseInteger(std::string_view text);

}  // namespace brisko
