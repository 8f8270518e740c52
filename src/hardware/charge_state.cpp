#include "hardware/charge_state.h"

#include <string>

#include "base/log.h"
#include "hardware/adapter.h"
#include "hardware/charge_gate.h"
#include "platform/clock.h"

namespace brisko {
namespace {

// Whether a write was accepted does not matter here: the verifiers watch what the hardware does.
void writeHardware(const ChargeGate& gate, ChargeState state) {
  if (state == ChargeState::discharge) {
    // Charging stops before the adapter is cut, so no moment has the cut with charging open.
    static_cast<void>(gate.setCharging(true));
    static_cast<void>(gate.setAdapterCut(true));
    return;
  }
  // For the same reason the adapter comes back first.
  static_cast<void>(gate.setAdapterCut(false));
  static_cast<void>(gate.setCharging(state == ChargeState::hold));
}

}  // namespace

void applyState(ChargeState state) {
  // Without a gate the old state stays, so that a later tick tries again.
  if (state == gState || !gGate) return;
  writeHardware(*gGate, state);
  if (state == ChargeState::discharge || gState == ChargeState::discharge) gCutChangedAt = platform::uptime();
  gState = state;
  forgetVerification();
  log(std::string("→ state: ") + stateName(state));
}

bool isProtecting() { return adapterPresent() && gState != ChargeState::allow; }

}  // namespace brisko
