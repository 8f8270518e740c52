#include "hardware/led.h"

#include <algorithm>
#include <optional>
#include <string>

#include "base/log.h"
#include "hardware/charge_gate.h"
#include "hardware/smc.h"
#include "platform/clock.h"
#include "platform/run_loop.h"
#include "state/machine_abilities.h"

namespace brisko {
namespace {

// The grid on which a phase can change; a finer one would only wake the machine more often.
constexpr double blinkTickSeconds = 0.5;
constexpr double shortestBlink = 0.3;  // seconds

std::optional<std::uint8_t> gLastLed;       // last written or found correct; unknown while it blinks
bool gLedDriftLogged = false;               // it was logged that the system changed the light
bool gBlinkOn = false;                      // the phase now shown
double gLastBlink = platform::distantPast;  // wall clock of the last change of phase
std::optional<platform::TimerToken> gBlinkTimer;

bool blinking() { return gLedSupported && gMode == LedMode::blink; }

void noteTakeBack(std::uint8_t value) {
  if (gLastLed != value || gLedDriftLogged) return;
  log("⚠️ LED reprise par le système — Brisko la remet à " + std::to_string(value));
  gLedDriftLogged = true;
}

}  // namespace

LedMode ledMode(ChargeState state, const LedInputs& inputs) {
  if (!inputs.wanted || !inputs.adapterPresent) return LedMode::system;
  switch (state) {
    case ChargeState::hold:
      return LedMode::green;
    case ChargeState::discharge:
      return LedMode::blink;
    case ChargeState::allow:
      break;
  }
  return inputs.controlling && inputs.pct < inputs.shownTarget ? LedMode::blink : LedMode::orange;
}

void setLED(std::uint8_t value) {
  if (!gLedSupported) return;
  // Where macOS limits the charge, a light that was handed back belongs to macOS alone.
  if (value == LED_SYSTEM && gLastLed == LED_SYSTEM && gateIsMacOSLimit()) return;
  // A light that cannot be read may show anything, so it is written.
  if (readFirstByte("ACLC") == value) {
    gLastLed = value;
    gLedDriftLogged = false;
    return;
  }
  noteTakeBack(value);
  static_cast<void>(writeByte("ACLC", value));
  gLastLed = value;
}

bool handBackLight() { return writeByte("ACLC", LED_SYSTEM); }

void syncBlinkTimer() {
  if (blinking() == gBlinkTimer.has_value()) return;
  if (gBlinkTimer) {
    platform::invalidateTimer(*gBlinkTimer);
    gBlinkTimer.reset();
  } else {
    gBlinkTimer = platform::addRepeatingTimer(blinkTickSeconds, ledTick);
  }
}

void ledTick() {
  if (!blinking()) return;
  const double now = platform::wallNow();
  if (now - gLastBlink < std::max(gBlinkSeconds, shortestBlink)) return;
  gBlinkOn = !gBlinkOn;
  gLastBlink = now;
  // The next phase must not count as a change by the system.
  gLastLed.reset();
  setLED(gBlinkOn ? LED_GREEN : LED_OFF);
}

}  // namespace brisko
