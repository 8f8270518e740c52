// tests/fuzz/fatal.h
// The fuzz programs' version of fatal(), which throws. So an intended end of the process is not mistaken for
// a crash, and the next input can follow.
#pragma once

#include <string>

namespace brisko {

struct Fatal {
  std::string message;
};

// Whether the daemon would have called fatal() during `work`.
template <typename Work>
[[nodiscard]] bool endsTheProcess(const Work& work) {
  try {
    work();
  } catch (const Fatal&) {
    return true;
  }
  return false;
}

// Whether the number fits 64 bits without its fraction, computed in another way than the daemon does.
[[nodiscard]] bool fitsInteger(double value);

}  // namespace brisko
