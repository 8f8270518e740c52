// records/paths.h
// Where the daemon keeps what it remembers, unmapped.
#pragma once

namespace brisko {

inline constexpr const char* historyDir = "/Library/Application Support/Brisko/history";

}  // namespace brisko
