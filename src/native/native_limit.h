// native/native_limit.h
// Holding the charge through macOS's own limit, where the charge keys are closed to us: each tick works out
// the percentage at which macOS should stop, has it set, looks in the key "bfG0" whether macOS holds it, and
// reports a charge state as if the daemon held the charge itself.
//
// Words: the target is the limit wanted from macOS, 1 to 100, where 100 is none and shows as "off". What is
// written is verified once "bfG0" shows it; drift is when it shows something else after that. A target that
// never shows within ten minutes on the adapter is refused: macOS takes any value and holds only some. Times
// are wall clock, seconds since 1970.
#pragma once

#include <cstdint>
#include <optional>

#include "base/settings.h"
#include "state/calibration_drive.h"
#include "state/charge_state_record.h"

namespace brisko {

inline constexpr double distantPast = -62'135'596'800;  // 0001-01-01T00:00:00Z

inline std::optional<std::int64_t> gNativeWritten;  // the limit last written; none after it was handed back
inline double gNativeAttemptAt = distantPast;       // since when macOS is given time to hold it
inline double gNativeNudgedAt = distantPast;        // when it was last written again during that wait

// One tick. `pct` may be above 100; `upper` is the target of the tick, `hot` whether charging is paused for
// heat. Sets gState, gGateVerified and gNativeFloor.
void driveNative(const Settings& cfg, std::int64_t pct, std::int64_t upper, bool topUp,
                 const std::optional<CalDrive>& calDrive, bool hot);

// Gives macOS the limit that it had before, as far as its own slider can show it, otherwise none. Nothing
// happens when another gate is in force, when it is handed back for as long as the limit is switched off, or
// when it was never looked at.
void handBackNative();

// The rules.

// The level to hold at while the battery is above the limit and not to be run down: where it was first seen
// there. It does not slide with the charge.
struct HoldPointInputs {
  bool topUp = false;
  bool plugged = false;
  bool discharge = false;  // the user wants the battery run down to the limit
  bool calibrating = false;
  std::int64_t pct = 0;
  std::int64_t upper = 80;
  std::optional<std::int64_t> holdAt = std::nullopt;  // of the tick before
};
[[nodiscard]] std::optional<std::int64_t> nativeHoldPoint(const HoldPointInputs& inputs);

// Since when macOS is given time to hold the target: time on battery does not count, for macOS shows no limit
// there.
[[nodiscard]] double nativeAttemptClock(double attemptAt, bool plugged, double now);
// Whether macOS has had its time to hold the target, so that one it does not show counts as refused.
[[nodiscard]] bool nativeRefusalDue(double attemptAt, double now);

// What the battery's current says that macOS is doing.
struct NativeStateInputs {
  bool plugged = false;
  std::int64_t pct = 0;
  std::int64_t target = 80;
  std::optional<std::int64_t> currentMA = std::nullopt;
  ChargeState state = ChargeState::allow;  // of the tick before
};
[[nodiscard]] ChargeState nativeChargeState(const NativeStateInputs& inputs);

}  // namespace brisko
