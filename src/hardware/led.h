// hardware/led.h
// The MagSafe connector's light: which colour a charge state shows, how it is written to the key "ACLC", and
// how it blinks. If the light is not supported, the key is neither read nor written.
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
  std::int64_t shownTarget = 100;  // percent that the charge is moving toward
};

[[nodiscard]] LedMode ledMode(ChargeState state, const LedInputs& inputs);

// Shows `value`, one of the LED_… constants. Nothing is written if the key already has it. If the system or
// another program changed the key, that is logged once until the key is found correct again. Whether a write
// was accepted does not matter: the next tick or blink checks again.
void setLED(std::uint8_t value);

// Hands the light back to the system, without reading what it shows. True when the write was accepted. Needs
// neither memory nor a lock.
[[nodiscard]] bool handBackLight();

// Starts or stops the blink timer according to gMode. The timer exists only in blink mode. Starting it writes
// nothing: the colours come with its ticks.
void syncBlinkTimer();

// The blink timer's work, every 0.5 s: shows the other phase (green, off) once gBlinkSeconds, at least 0.3 s,
// have passed since the last change.
void ledTick();

}  // namespace brisko
