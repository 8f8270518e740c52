// base/volume_path.h
// Where a path really lies. Every absolute path that the daemon opens, lists, watches or removes goes through
// here, except the executable; every text shows the path unmapped.
#pragma once

#include <string>
#include <string_view>

namespace brisko {

// On a Mac the path itself; on a virtual Mac an absolute path moves below its volume root. A relative path
// and one inside the temporary folder stay as they are.
[[nodiscard]] std::string onVolume(std::string_view path);

}  // namespace brisko
