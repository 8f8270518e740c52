// sim/machine/app_bundle.h
// What a person does to the app on the volume of a machine.
#pragma once

#include <string>

namespace brisko::vmac {

// Each is false with a reason when there is nothing to do it to, or when it fails. `root` is that of the
// volume.
[[nodiscard]] bool deleteApp(const std::string& root, std::string& reason);
[[nodiscard]] bool moveApp(const std::string& root, std::string& reason);  // out of the Applications folder
[[nodiscard]] bool restoreApp(const std::string& root, std::string& reason);  // moved back, or installed anew

}  // namespace brisko::vmac
