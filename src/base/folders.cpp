#include "base/folders.h"

#include <sys/stat.h>

#include "base/file_calls.h"

namespace brisko {

void makeFolders(const std::string& path) {
  constexpr mode_t mode = 0755;
  for (std::size_t end = path.find('/', 1);; end = path.find('/', end + 1)) {
    const std::string folder = path.substr(0, end);
    // Only a folder created here gets the mode, and exactly that one.
    if (file_calls::makeFolder(folder.c_str(), mode) == 0) static_cast<void>(::chmod(folder.c_str(), mode));
    if (end == std::string::npos) return;
  }
}

}  // namespace brisko
