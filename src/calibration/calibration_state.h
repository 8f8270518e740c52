// calibration/calibration_state.h
// The phase of the calibration cycle, as the tick and the records read it.
#pragma once

#include <cstdint>

namespace brisko {

// In the order of the cycle.
enum class CalPhase : std::uint8_t {
  idle,
  fill,     // charging to 100 %
  drain,    // down to the drain target
  refill,   // to 100 % again
  soak,     // resting at 100 % on the adapter
  restore,  // back down to the limit
};

[[nodiscard]] constexpr const char* phaseName(CalPhase phase) {
  switch (phase) {
    case CalPhase::fill:
      return "fill";
    case CalPhase::drain:
      return "drain";
    case CalPhase::refill:
      return "refill";
    case CalPhase::soak:
      return "soak";
    case CalPhase::restore:
      return "restore";
    case CalPhase::idle:
      break;
  }
  return "idle";
}

struct CalibrationState {
  CalPhase phase = CalPhase::idle;
};

inline CalibrationState gCal;

}  // namespace brisko
