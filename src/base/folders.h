// base/folders.h
#pragma once

#include <string>

namespace brisko {

// Creates the folder at `path` (callers map unmapped paths) and its missing parents, each with mode 0755
// whatever the umask. Existing folders keep their mode. Failures are silent; the first use of the folder will
// fail.
void makeFolders(const std::string& path);

}  // namespace brisko
