// state/machine_abilities.h
// What this Mac supports, determined once at start-up.
#pragma once

#include <string>
#include <vector>

namespace brisko {

inline bool dischargeSupported = false;       // a forced discharge is possible
inline bool gLedSupported = false;            // a gate was found and "ACLC" can be read
inline std::vector<std::string> gProbedKeys;  // the keys we use that can be read

}  // namespace brisko
