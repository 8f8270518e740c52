// tests/fuzz/require.h
#pragma once

#include <cstdio>
#include <cstdlib>

namespace brisko {

// Ends the process when the condition does not hold, which the fuzzer and the replay report.
inline void require(bool kept, int line = __builtin_LINE(), const char* file = __builtin_FILE()) {
  if (kept) return;
  std::fprintf(stderr, "%s:%d: not as required\n", file, line);
  std::abort();
}

}  // namespace brisko
