// core/volume_path.h
// Where a path really lies. Every absolute path that the daemon opens, lists, watches or removes goes through
// here, except the temporary folder and the executable; every text shows the path unmapped.
#pragma once

#include <string>
#include <string_view>

namespace brisko {

// On a Mac the path itself; on a virtual Mac an absolute path moves below its volume root. A relative path
// stays as it is.
[[nodiscard]] std::string onVolume(std::string_view path);

}  // namespace brisko
