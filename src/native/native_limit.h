// native/native_limit.h
// Holds the charge through macOS's own limit, where the charge keys are closed to us. Each tick computes the
// percentage at which macOS should stop, sets it, checks in the key "bfG0" whether macOS holds it, and
// reports a charge state as if the daemon held the charge itself.
//
// Terms: the target is the limit wanted from macOS, 1 to 100, where 100 means none and is shown as "off". A
// written target is verified once "bfG0" shows it; if "bfG0" later shows something else, that is drift. A
// target that does not show within ten minutes on the adapter is refused: macOS accepts any value but holds
// only some. Times are wall clock, seconds since 1970.
#pragma once

#include <cstdint>
#include <optional>

#include "base/settings.h"
#include "platform/clock.h"
#include "state/calibration_drive.h"
#include "state/charge_state_record.h"

namespace brisko {

inline std::optional<std::int64_t> gNativeWritten;  // the limit last written; none after it was handed back
inline double gNativeAttemptAt = platform::distantPast;  // start of the time that macOS has to hold it
inline double gNativeNudgedAt = platform::distantPast;   // when it was last written again during that time

// One tick. `pct` may be above 100; `upper` is the tick's target, `hot` whether charging is paused for heat.
// Sets gState, gGateVerified and gNativeFloor.
void driveNative(const Settings& cfg, std::int64_t pct, std::int64_t upper, bool topUp,
                 const std::optional<CalDrive>& calDrive, bool hot);

// Gives macOS the whole time again, counted from `now`, to hold the limit last written.
void restartNativeWait(double now);

// Restores the limit that macOS had before, if its own slider can show it, otherwise none. Does nothing when
// another gate is in force, when the limit is already handed back because it is switched off, or when macOS's
// limit was never read.
void handBackNative();

// The rules.

// The percentage to hold while the battery is above the limit and must not be discharged: the charge at which
// it was first seen there. It does not follow the charge.
struct HoldPointInputs {
  bool topUp = false;
  bool plugged = false;
  bool discharge = false;  // the user wants the battery run down to the limit
  bool calibrating = false;
  std::int64_t pct = 0;
  std::int64_t upper = 80;
  std::optional<std::int64_t> holdAt = std::nullopt;  // in the previous tick
};
[[nodiscard]] std::optional<std::int64_t> nativeHoldPoint(const HoldPointInputs& inputs);

// The start of the time that macOS has to hold the target. Time on battery does not count, because macOS
// shows no limit there.
[[nodiscard]] double nativeAttemptClock(double attemptAt, bool plugged, double now);
// Whether macOS has had enough time to hold the target, so that a target it does not show counts as refused.
[[nodiscard]] bool nativeRefusalDue(double attemptAt, double now);

// What macOS is doing, as the battery's current shows it.
struct NativeStateInputs {
  bool plugged = false;
  std::int64_t pct = 0;
  std::int64_t target = 80;
  std::optional<std::int64_t> currentMA = std::nullopt;
  ChargeState state = ChargeState::allow;  // in the previous tick
};
[[nodiscard]] ChargeState nativeChargeState(const NativeStateInputs& inputs);

}  // namespace brisko
