#include "hardware/led.h"

namespace brisko {

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

}  // namespace brisko
