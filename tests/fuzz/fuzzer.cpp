// The entry of a fuzzer: the one target that is linked with it.
#include <cstddef>
#include <cstdint>

#include "fuzz/target.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const brisko::TryInput tryInput = brisko::fuzzTargets().begin()->second;
  tryInput({reinterpret_cast<const char*>(data), size});
  return 0;
}
