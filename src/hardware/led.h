// hardware/led.h
// The MagSafe connector's light: what it shows for a charge state, how that is written to its key "ACLC", and
// how it blinks. Where the light is not supported the key is neither read nor written.
#pragma once

#include <cstdint>

#include "state/charge_state_record.h"
#include "state/led_mode.h"

namespace brisko {

struct LedInputs {
  bool wanted = true;  // the user wants the light driven
  bool adapterPresent = false;
  bool controlling = true;  // limiting is on, or a calibration runs
  std::int64_t pct = 0;
  std::int64_t shownTarget = 100;  // percent that the charge is heading for
};

[[nodiscard]] LedMode ledMode(ChargeState state, const LedInputs& inputs);

// Shows `value`, one of the LED_… words. Nothing is written when the key has it already. When somebody else
// changed the key since, that is logged, once until the key is found right. Whether a write was accepted does
// not matter: the next tick or blink looks again.
void setLED(std::uint8_t value);

// Starts or stops the blink timer as gMode asks. It exists only while the mode is blink and writes nothing at
// once: the colours come with its ticks.
void syncBlinkTimer();

// The blink timer's work, every 0.5 s: shows the other phase (green, off) once gBlinkSeconds have passed
// since the last one, at least 0.3 s.
void ledTick();

}  // namespace brisko
