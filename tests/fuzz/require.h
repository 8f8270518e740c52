// tests/fuzz/require.h
#pragma once

#include <cstdio>
#include <cstdlib>

namespace brisko {

// Ends the process if the condition is false; the fuzzer and the replay report that.
inline void require(bool kept, int line = __builtin_LINE(), const char* file = __builtin_FILE()) {
  if (kept) return;
  std::fprintf(stderr, "%s:%d: not as required\n", file, line);
  std::abort();
}

}  // namespace brisko
