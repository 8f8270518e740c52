// sim/machine/app_bundle.h
// A user's actions on the app on a machine's volume.
#pragma once

#include <string>

namespace brisko::vmac {

// Each returns false and a reason when there is nothing to act on or the operation fails. `root` is the root
// of the volume.
[[nodiscard]] bool deleteApp(const std::string& root, std::string& reason);
[[nodiscard]] bool moveApp(const std::string& root, std::string& reason);  // out of the Applications folder
[[nodiscard]] bool restoreApp(const std::string& root, std::string& reason);  // moved back, or installed anew

}  // namespace brisko::vmac
