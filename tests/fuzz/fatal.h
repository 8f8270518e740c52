// tests/fuzz/fatal.h
// The fuzz programs' version of the one fatal helper: it throws. So an intended end of the process is not
// mistaken for a crash, and the next input can follow.
#pragma once

#include <string>

namespace brisko {

struct Fatal {
  std::string message;
};

// Whether the daemon would have called the fatal helper during `work`.
template <typename Work>
[[nodiscard]] bool endsTheProcess(const Work& work) {
  try {
    work();
  } catch (const Fatal&) {
    return true;
  }
  return false;
}

// Computed in another way than the daemon does: whether the number fits 64 bits once its fraction is dropped.
[[nodiscard]] bool fitsInteger(double value);

}  // namespace brisko
