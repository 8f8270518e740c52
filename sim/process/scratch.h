// sim/process/scratch.h
// Places for what is thrown away afterwards. They lie in memory where the system has such a place: whole
// lives write thousands of small files. What cannot be made ends in a std::system_error.
#pragma once

#include <string>

namespace brisko::sim {

// A new folder with a name that begins with `prefix`; whoever asked for it removes it.
[[nodiscard]] std::string makeScratchFolder(const std::string& prefix);

// From now on they lie in this folder.
void setScratchRoot(const std::string& folder);

// An open file, for reading and appending, that has no name any more.
[[nodiscard]] int namelessFile();

}  // namespace brisko::sim
