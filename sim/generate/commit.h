// sim/generate/commit.h
#pragma once

namespace brisko::lab {

// Of the sources that this program was built from, as git names it; "unknown" outside of git.
[[nodiscard]] const char* commitOfBuild();

}  // namespace brisko::lab
