// tests/fuzz/require.h
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

// The one function of a fuzz target, called with one input after another.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace brisko {

// A broken promise ends the process, which is what the fuzzer and the replay look for.
inline void require(bool kept, int line = __builtin_LINE(), const char* file = __builtin_FILE()) {
  if (kept) return;
  std::fprintf(stderr, "%s:%d: a broken promise\n", file, line);
  std::abort();
}

}  // namespace brisko
