#include "state/calibration_drive.h"

namespace brisko {

std::optional<CalDrive> calibrationDrive(CalPhase phase, std::int64_t drainTarget, std::int64_t limit) {
  switch (phase) {
    case CalPhase::fill:
    case CalPhase::refill:
    case CalPhase::soak:
      return CalDrive{true, 100};
    case CalPhase::drain:
      return CalDrive{false, drainTarget};
    case CalPhase::restore:
      return CalDrive{false, limit};
    case CalPhase::idle:
      break;
  }
  return std::nullopt;
}

}  // namespace brisko
