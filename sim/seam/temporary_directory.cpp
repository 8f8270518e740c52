#include "sim/seam/temporary_directory.h"

#include <cstdlib>

namespace brisko::virtual_mac {

std::string realTemporaryDirectory() {
  const char* named = std::getenv("TMPDIR");
  std::string folder = named == nullptr || *named == '\0' ? "/tmp" : named;
  while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
  return folder;
}

}  // namespace brisko::virtual_mac
