// sim/seam/temporary_directory.h
#pragma once

#include <string>

namespace brisko::virtual_mac {

// The computer's own folder for temporary files, without a trailing slash. It is outside the machine's
// volume.
[[nodiscard]] std::string realTemporaryDirectory();

}  // namespace brisko::virtual_mac
