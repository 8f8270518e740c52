#include "policy/verification.h"

#include <cstdint>
#include <optional>
#include <string>

#include "base/log.h"
#include "hardware/adapter.h"
#include "hardware/battery.h"
#include "hardware/charge_gate.h"
#include "hardware/charge_state.h"
#include "platform/clock.h"
#include "policy/charge_bounds.h"
#include "state/tick_state.h"

namespace brisko {
namespace {

// Success is accepted quickly, failure only after two minutes: the current decays slowly after a stop.
constexpr double gateSuccessGrace = 15.0;       // seconds that a hold must have lasted
constexpr double gateFailureGrace = 120.0;      // likewise
constexpr double dischargeFailureGrace = 60.0;  // seconds before a discharge's current is evaluated
constexpr int lossesThatEndADischarge = 6;

std::optional<Bounds> gFirmwareArmed;  // the band last written for a hold, on a firmware-band gate

std::string familyLabel() { return gGate ? chargeLabel(gGate->charge) : "?"; }

// A failed write is found by the next tick.
void closeCharging(const ChargeGate& gate) { static_cast<void>(gate.setCharging(true)); }

void abandonDischarge(const std::string& finding) {
  gDischargeBroken = true;
  log(finding);
  applyState(ChargeState::hold);
}

void reassertBand(const ChargeGate& gate) {
  const Bounds wanted{gFirmwareUpper, gFirmwareLower};
  if (gFirmwareArmed == wanted) {
    if (gate.chargingIsStopped()) return;
  } else if (gFirmwareArmed) {
    log("firmware band re-armed at " + std::to_string(wanted.lower) + "–" + std::to_string(wanted.upper) +
        "%");
  }
  closeCharging(gate);
  gFirmwareArmed = wanted;
}

void reassertHold(const ChargeGate& gate) {
  if (gate.charge == ChargeKeys::firmwareBand) {
    reassertBand(gate);
    return;
  }
  if (gate.chargingIsStopped()) return;
  if (!gDriftLogged) {
    log("gate found open during a hold — closing it again (" + familyLabel() + ")");
    gDriftLogged = true;
  }
  closeCharging(gate);
}

void reassertCut(const ChargeGate& gate) {
  if (gate.adapterIsCut()) return;
  if (++gCutRewrites >= lossesThatEndADischarge) {
    abandonDischarge(
        "⚠️ forced discharge has no effect: the adapter cut will not stay written — holding the charge "
        "instead");
    return;
  }
  log("adapter cut released — writing it back (" + cutKeyName(gate.cut).value_or("?") + ", attempt " +
      std::to_string(gCutRewrites) + ")");
  static_cast<void>(gate.setAdapterCut(true));
}

void reassertDischarge(const ChargeGate& gate) {
  if (!gate.chargingIsStopped()) closeCharging(gate);
  reassertCut(gate);
}

// Whether an earlier tick started the observation. The first tick only records its time, and a tick that
// cannot observe resets it.
bool hasWatchedSince(std::optional<double>& since, bool canWatch) {
  if (canWatch && since) return true;
  since = canWatch ? std::optional(platform::wallNow()) : std::nullopt;
  return false;
}

bool holdIsOldEnough(bool charging) {
  const double elapsed = platform::wallNow() - *gHoldSince;
  return elapsed >= (charging ? gateFailureGrace : gateSuccessGrace);
}

}  // namespace

void reassertState() {
  if (!gGate) return;
  switch (gState) {
    case ChargeState::allow:
      // The next hold arms its band again.
      gFirmwareArmed.reset();
      break;
    case ChargeState::hold:
      reassertHold(*gGate);
      break;
    case ChargeState::discharge:
      reassertDischarge(*gGate);
      break;
  }
}

void verifyGate(bool plugged) {
  if (!hasWatchedSince(gHoldSince, gState == ChargeState::hold && plugged)) return;
  const auto charging = chargingNow();
  if (!charging || !holdIsOldEnough(*charging) || gGateVerified == !*charging) return;
  gGateVerified = !*charging;
  if (*gGateVerified) {
    log("limit verified: charging really does stop");
  } else {
    log("⚠️ the limit has no effect: charging continues despite the stop we asked for (" + familyLabel() +
        ")");
  }
}

void verifyDischarge(bool fullyAwake) {
  const bool canWatch = gState == ChargeState::discharge && adapterPresent() && fullyAwake;
  if (!hasWatchedSince(gCutSince, canWatch)) return;
  if (platform::wallNow() - *gCutSince < dischargeFailureGrace) return;
  const auto amperage = amperageNow();
  if (!amperage || *amperage <= dischargeFloor) return;
  abandonDischarge("⚠️ forced discharge has no effect: the battery is not running down (" +
                   std::to_string(*amperage) + " mA) — holding the charge instead");
}

}  // namespace brisko
