# Writes the current commit of ${source} to ${output}. Runs at each build; the file changes only when the commit does.
execute_process(COMMAND git -C ${source} describe --always --dirty --abbrev=12 --exclude=*
                OUTPUT_VARIABLE commit OUTPUT_STRIP_TRAILING_WHITESPACE ERROR_QUIET RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  set(commit unknown)
endif()
file(CONFIGURE OUTPUT ${output} CONTENT [[
#include "sim/generate/commit.h"

namespace brisko::lab {

const char* commitOfBuild() { return "@commit@"; }

}  // namespace brisko::lab
]] @ONLY)
