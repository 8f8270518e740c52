#include "base/volume_path.h"

#include "platform/host.h"

namespace brisko {
namespace {

bool liesIn(std::string_view path, const std::string& folder) {
  return path.substr(0, folder.size()) == folder &&
         (path.size() == folder.size() || path[folder.size()] == '/');
}

}  // namespace

std::string onVolume(std::string_view path) {
  const std::string& root = platform::volumeRoot();
  if (root.empty() || path.empty() || path.front() != '/') return std::string(path);
  if (liesIn(path, platform::temporaryDirectory())) return std::string(path);
  return root + std::string(path);
}

}  // namespace brisko
