// native/full_charge.h
// A full charge that the user asked macOS for in the Battery menu. macOS ends it at a date of its own, and
// any limit that is written meanwhile may cancel it. With the guard "menu" nothing is written until then.
#pragma once

#include <cstdint>
#include <optional>

namespace brisko {

enum class FullCharge : std::uint8_t {
  none,     // or nothing to wait for in this tick
  waits,    // nothing is written
  overdue,  // it has lasted too long
  tooHot,   // charging is paused for heat
};

inline constexpr double longestFullCharge = 24 * 3600;  // seconds

struct FullChargeInputs {
  std::optional<double> until = std::nullopt;   // macOS's date, wall clock
  double now = 0;                               // wall clock
  std::optional<double> seenAt = std::nullopt;  // when a date that lay ahead was first seen; none: not yet
  bool hot = false;                             // charging is paused for heat
  bool settingsChanged = false;                 // since the tick before: they are followed at once
};
[[nodiscard]] FullCharge fullCharge(const FullChargeInputs& inputs);

}  // namespace brisko
