// tests/fuzz/fatal.h
// The one fatal helper as the fuzz programs have it: it throws, so that an end of the process that is meant
// is told apart from a crash, and the next input can follow.
#pragma once

#include <string>

namespace brisko {

struct Fatal {
  std::string message;
};

// Whether the daemon would have ended at the fatal helper while it does this.
template <typename Work>
[[nodiscard]] bool endsTheProcess(const Work& work) {
  try {
    work();
  } catch (const Fatal&) {
    return true;
  }
  return false;
}

// By other means than the daemon's: what fits 64 bits once its fraction is dropped.
[[nodiscard]] bool fitsInteger(double value);

}  // namespace brisko
