// base/volume_path.h
// The actual location of a path. Every absolute path that the daemon opens, lists, watches or removes is
// mapped here, except the executable's; every text shows the unmapped path.
#pragma once

#include <string>
#include <string_view>

namespace brisko {

// On a Mac, returns the path itself; on a virtual Mac, moves an absolute path below its volume root. Relative
// paths and those inside the temporary folder stay as they are.
[[nodiscard]] std::string onVolume(std::string_view path);

}  // namespace brisko
