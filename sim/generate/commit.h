// sim/generate/commit.h
#pragma once

namespace brisko::lab {

// The commit of the sources that this program was built from, in git's notation; "unknown" outside a git
// repository.
[[nodiscard]] const char* commitOfBuild();

}  // namespace brisko::lab
