// base/folders.h
#pragma once

#include <string>

namespace brisko {

// Makes the folder at `path` (unmapped paths are mapped by the caller) and those above it that are missing,
// each with mode 0755 whatever the umask. What is there already keeps its mode. Failures are silent: whoever
// needs the folder notices.
void makeFolders(const std::string& path);

}  // namespace brisko
