// tests/fuzz/require.h
#pragma once

#include <cstdio>
#include <cstdlib>

namespace brisko {

// A broken promise ends the process, which is what the fuzzer and the replay look for.
inline void require(bool kept, int line = __builtin_LINE(), const char* file = __builtin_FILE()) {
  if (kept) return;
  std::fprintf(stderr, "%s:%d: a broken promise\n", file, line);
  std::abort();
}

}  // namespace brisko
