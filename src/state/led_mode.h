// state/led_mode.h
// The modes and values of the MagSafe connector's light.
#pragma once

#include <cstdint>

namespace brisko {

// Values of the key "ACLC".
inline constexpr std::uint8_t LED_SYSTEM = 0;  // the system controls the light
inline constexpr std::uint8_t LED_OFF = 1;
inline constexpr std::uint8_t LED_GREEN = 3;
inline constexpr std::uint8_t LED_ORANGE = 4;

// green: held. orange: charging is allowed. blink: charging toward the limit, or discharging.
enum class LedMode : std::uint8_t { system, green, orange, blink };

[[nodiscard]] constexpr const char* ledModeName(LedMode mode) {
  switch (mode) {
    case LedMode::green:
      return "green";
    case LedMode::orange:
      return "orange";
    case LedMode::blink:
      return "blink";
    case LedMode::system:
      break;
  }
  return "system";
}

inline LedMode gMode = LedMode::system;  // chosen by the last tick
inline double gBlinkSeconds = 2.0;       // half-period of the blinking, from the settings

}  // namespace brisko
