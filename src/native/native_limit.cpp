#include "native/native_limit.h"

#include <algorithm>
#include <string>

#include "base/log.h"
#include "base/options.h"
#include "base/utc_text.h"
#include "hardware/adapter.h"
#include "hardware/battery.h"
#include "hardware/charge_gate.h"
#include "hardware/smart_charge_bridge.h"
#include "hardware/smc.h"
#include "native/full_charge.h"
#include "platform/clock.h"
#include "records/statistics.h"
#include "state/native_limit_state.h"
#include "state/tick_state.h"

namespace brisko {
namespace {

constexpr std::int64_t none = 100;
constexpr std::int64_t leastOfSlider = 80;
constexpr std::int64_t stepOfSlider = 5;

constexpr double priorLimitSeconds = 60;  // seconds in which the earlier limit may become readable
constexpr double nudgeSeconds = 90;       // between two writes of a target that does not show yet
constexpr double refusalSeconds = 600;    // seconds on the adapter after which a target counts as refused
constexpr double driftSeconds = 30;       // seconds before a drifted target is written again

std::optional<double> gNativeBeforeSince;       // when the earlier limit was first found unreadable
bool gNativeIdle = false;                       // handed back while the limit is switched off
std::optional<std::int64_t> gNativeHotAt;       // the charge at the start of a pause for heat
std::optional<std::int64_t> gNativeHoldAt;      // the hold point
std::optional<std::int64_t> gNativeRefused;     // the highest limit below 80 that macOS did not hold
bool gNativeOffStepRefused = false;             // macOS holds only multiples of 5
std::optional<std::int64_t> gNativeHeldTarget;  // the target that "bfG0" last confirmed
bool gNativeDriftRewritten = false;             // it was written again after a drift
bool gNativeOverrideLogged = false;             // it was logged that macOS keeps its own limit for now
bool gNativeNoMirrorLogged = false;             // it was logged that "bfG0" is missing

// With the guard "menu".
std::optional<double> gFullChargeSeenAt;    // wall clock
bool gFullChargeEnded = false;              // we ended it, as far as that was possible
bool gAboveByFullCharge = false;            // that is why the charge is above the limit
std::optional<std::int64_t> gWantedBefore;  // what the settings wanted in the tick before

std::string limitText(std::int64_t limit) { return limit == none ? "off" : std::to_string(limit) + "%"; }

std::string outcomeText(bool accepted) { return accepted ? "" : " ⚠️ refused"; }

bool isOnSlider(std::int64_t limit) {
  return limit >= leastOfSlider && limit <= none && limit % stepOfSlider == 0;
}

std::int64_t roundedToStep(std::int64_t limit) { return limit - limit % stepOfSlider; }

// The limit that macOS is set to; none when it cannot be read.
std::optional<std::int64_t> currentLimit() {
  const std::int32_t enabled = CKMCLEnabled();
  if (enabled == 0) return none;
  if (enabled != 1) return std::nullopt;
  const std::int32_t limit = CKMCLLimit();
  if (limit < 1) return std::nullopt;
  return limit;
}

void recordPriorLimit(std::int64_t limit) {
  gNativeBefore = limit;
  writeStats();
}

// Nothing may be written before the limit to give back is known. Returns false until then.
bool ensurePriorLimitRecorded(double now) {
  if (gNativeBefore) return true;
  if (const auto limit = currentLimit()) {
    recordPriorLimit(*limit);
    log("native limit before Brisko: " + limitText(*limit) + " — given back if Brisko leaves");
    return true;
  }
  const double since = gNativeBeforeSince.value_or(now);
  if (now - since < priorLimitSeconds) {
    gNativeBeforeSince = since;
    return false;
  }
  recordPriorLimit(none);
  log("native limit before Brisko unreadable — will give back \"off\"");
  return true;
}

// While the daemon's limit is off, the user's own choice counts, and a later hand-back restores it.
void adoptUserLimit() {
  const auto limit = currentLimit();
  if (!limit || gNativeBefore == limit) return;
  recordPriorLimit(*limit);
  log("macOS limit changed in System Settings while Brisko's is off: " + limitText(*limit) + " — kept");
}

void publishNativeState(ChargeState state, std::optional<std::int64_t> target) {
  if (state == gState) return;
  gState = state;
  log(std::string("→ state: ") + stateName(state) +
      (target ? " (macOS limit " + std::to_string(*target) + "%)" : std::string()));
}

void forgetFullCharge() {
  gFullChargeSeenAt.reset();
  gNativeFullUntil.reset();
  gFullChargeEnded = false;
  gAboveByFullCharge = false;
  gWantedBefore.reset();
}

void stayIdle() {
  gNativeHotAt.reset();
  if (gNativeIdle) {
    adoptUserLimit();
  } else {
    handBackNative();
    gNativeIdle = true;
  }
  gGateVerified.reset();
  gNativeFloor.reset();
  forgetFullCharge();
  publishNativeState(ChargeState::allow, std::nullopt);
}

void leaveIdle() {
  if (!gNativeIdle) return;
  gNativeIdle = false;
  gNativeWritten.reset();
}

// Without the hold point.
std::int64_t wantedTarget(std::int64_t upper, bool topUp, const std::optional<CalDrive>& calDrive) {
  if (calDrive) return calDrive->toFull ? none : calDrive->target;
  return topUp ? none : upper;
}

std::int64_t baseTarget(std::int64_t upper, bool topUp, const std::optional<CalDrive>& calDrive) {
  const std::int64_t wanted = wantedTarget(upper, topUp, calDrive);
  return calDrive || topUp ? wanted : std::max(gNativeHoldAt.value_or(0), wanted);
}

// A battery that is too hot is held at its present charge.
std::int64_t cooledTarget(std::int64_t base, bool hot, std::int64_t pct) {
  if (!hot) {
    gNativeHotAt.reset();
    return base;
  }
  gNativeHotAt = gNativeHotAt.value_or(pct);
  return std::min(base, std::max<std::int64_t>(*gNativeHotAt, 1));
}

// The nearest target that this Mac will hold.
std::int64_t holdableTarget(std::int64_t target) {
  if (gNativeRefused && target <= *gNativeRefused) target = std::max(target, leastOfSlider);
  if (gNativeOffStepRefused && target > leastOfSlider) target = roundedToStep(target);
  return std::clamp<std::int64_t>(target, 1, none);
}

std::optional<std::int64_t> floorOfThisMac(std::int64_t limit) {
  // A refused target always lies below the slider, and so does a limit up to it.
  if (!gNativeRefused || *gNativeRefused < limit) return std::nullopt;
  return leastOfSlider;
}

std::optional<std::uint8_t> limitHeldByMacOS() { return readFirstByte("bfG0"); }

// If macOS holds nothing, or nothing below the slider's range, its feature must be switched on before a value
// below that range is written into its preferences.
bool needsPriming(std::int64_t target) {
  if (target >= leastOfSlider) return false;
  const auto held = limitHeldByMacOS();
  return held && (*held == 0 || *held > leastOfSlider);
}

// Records the target that macOS now holds, or none. If macOS holds another value after this, that is a new
// drift.
void noteHeldTarget(std::optional<std::int64_t> target) {
  gNativeHeldTarget = target;
  gNativeDriftRewritten = false;
  gNativeOverrideLogged = false;
}

void nativeWrite(std::int64_t target, double now) {
  const bool accepted = NativeLimit::write(target, needsPriming(target));
  gNativeWritten = target;
  restartNativeWait(now);
  noteHeldTarget(std::nullopt);
  gGateVerified.reset();
  log("macOS limit → " + limitText(target) + outcomeText(accepted));
}

// Its result shows in "bfG0".
void writeAgain(std::int64_t target) { static_cast<void>(NativeLimit::write(target, false)); }

void confirm(std::int64_t target) {
  if (gGateVerified != true) {
    gGateVerified = true;
    log("limit verified: macOS holds " + (target == none ? "no limit" : limitText(target)) + " (bfG0)");
  }
  noteHeldTarget(target);
}

// macOS holds another value for now, which the daemon must not overrule.
void standBack(const std::string& finding) {
  if (!gNativeOverrideLogged) log(finding);
  gNativeOverrideLogged = true;
  gGateVerified.reset();
}

// The user asked macOS for a full charge.
void yieldToUser(double until) {
  const UtcText text = utcText(until);
  standBack("macOS charges to full until " + text.date + " " + text.time +
            " +0000 (asked in the Battery menu) — Brisko waits");
}

// Once; if macOS keeps its date, drift is handled as ever.
void endFullCharge(const std::string& finding) {
  if (gFullChargeEnded) return;
  gFullChargeEnded = true;
  log(finding);
  static_cast<void>(NativeLimit::endFullCharge());  // its result shows in the date
  gNativeWritten.reset();
}

// When a date was first seen to lie ahead, for as long as one does.
void noteFullCharge(bool ahead, double now) {
  if (!ahead) {
    gFullChargeSeenAt.reset();
    gFullChargeEnded = false;
  } else if (!gFullChargeSeenAt) {
    gFullChargeSeenAt = now;
  }
}

// Whether a full charge asked for in the Battery menu is waited for. `wanted` is what the settings ask for.
bool waitsForFullCharge(std::int64_t wanted, bool hot, double now) {
  const bool changed = gWantedBefore && *gWantedBefore != wanted;
  gWantedBefore = wanted;
  const auto until = NativeLimit::tempDisabledUntil();
  noteFullCharge(until && *until > now, now);
  const FullCharge asked = fullCharge(
      {.until = until, .now = now, .seenAt = gFullChargeSeenAt, .hot = hot, .settingsChanged = changed});
  const bool waits = asked == FullCharge::waits;
  gNativeFullUntil = waits ? until : std::nullopt;
  if (asked == FullCharge::overdue)
    endFullCharge("macOS has charged to full for 24 h — Brisko sets its limit again");
  if (asked == FullCharge::tooHot)
    endFullCharge("the battery is too hot for the full charge that macOS was asked for — Brisko ends it");
  if (waits) yieldToUser(*until);
  return waits;
}

// The level above the limit to which a full charge has brought the battery is no hold point.
std::optional<std::int64_t> holdPoint(const HoldPointInputs& point, bool waits) {
  if (waits) {
    gAboveByFullCharge = true;
    return gNativeHoldAt;
  }
  if (!point.plugged || point.pct <= point.upper) gAboveByFullCharge = false;
  if (gAboveByFullCharge && !gNativeHoldAt) return std::nullopt;
  return nativeHoldPoint(point);
}

// macOS no longer holds what it held before. The target is written again only once: whatever changes it
// repeatedly has a reason that we do not know.
void handleDrift(std::int64_t target, std::int64_t held, double now) {
  const auto until = NativeLimit::tempDisabledUntil();
  if (until && *until > now) return yieldToUser(*until);
  const double elapsed = now - gNativeAttemptAt;
  if (elapsed < driftSeconds) return;
  if (!gNativeDriftRewritten) {
    gNativeDriftRewritten = true;
    log("macOS limit changed outside Brisko (bfG0 reads " + std::to_string(held) + ") — setting " +
        std::to_string(target) + "% again");
    writeAgain(target);
    gNativeAttemptAt = now;
  } else if (elapsed >= refusalSeconds) {
    standBack("macOS keeps its own limit for now (bfG0 reads " + std::to_string(held) +
              ") — watching, no alarm");
  }
}

// From the next tick on the nearest value of the slider is used instead.
void noteRefusal(std::int64_t target, std::int64_t held) {
  if (isOnSlider(target)) {
    if (gGateVerified == false) return;
    gGateVerified = false;
    log("⚠️ the limit has no effect: macOS doesn't hold " + std::to_string(target) + "% (bfG0 reads " +
        std::to_string(held) + ")");
    return;
  }
  std::int64_t instead = leastOfSlider;
  if (target > leastOfSlider) {
    gNativeOffStepRefused = true;
    instead = roundedToStep(target);
  } else {
    gNativeRefused = std::max(target, gNativeRefused.value_or(0));
  }
  log("⚠️ macOS won't hold " + std::to_string(target) + "% on this Mac (bfG0 reads " +
      std::to_string(held) + ") — holding " + std::to_string(instead) + "% instead");
}

void awaitConfirmation(std::int64_t target, std::int64_t held, double now) {
  if (nativeRefusalDue(gNativeAttemptAt, now)) return noteRefusal(target, held);
  if (now - gNativeNudgedAt < nudgeSeconds) return;
  gNativeNudgedAt = now;
  writeAgain(target);
}

void verifyNative(std::int64_t target, std::int64_t held, double now) {
  if (held == (target == none ? 0 : target)) return confirm(target);
  if (gNativeHeldTarget == target) return handleDrift(target, held, now);
  awaitConfirmation(target, held, now);
}

void checkLimitHeld(std::int64_t target, double now) {
  if (const auto held = limitHeldByMacOS()) return verifyNative(target, *held, now);
  if (gNativeNoMirrorLogged) return;
  gNativeNoMirrorLogged = true;
  log("no bfG0 on this Mac — the macOS limit is set but can't be read back");
}

}  // namespace

void restartNativeWait(double now) {
  gNativeAttemptAt = now;
  gNativeNudgedAt = now;
}

std::optional<std::int64_t> nativeHoldPoint(const HoldPointInputs& inputs) {
  const bool wanted = inputs.plugged && !inputs.topUp && !inputs.discharge && !inputs.calibrating;
  if (!wanted || inputs.pct <= inputs.upper) return std::nullopt;
  return inputs.holdAt.value_or(inputs.pct);
}

double nativeAttemptClock(double attemptAt, bool plugged, double now) { return plugged ? attemptAt : now; }

bool nativeRefusalDue(double attemptAt, double now) { return now - attemptAt >= refusalSeconds; }

ChargeState nativeChargeState(const NativeStateInputs& inputs) {
  constexpr std::int64_t chargingMA = 150;   // above it the battery is charging
  constexpr std::int64_t trickleMA = 51;     // from here on it may be charging
  constexpr std::int64_t restingMargin = 5;  // macOS starts charging again this far below its limit
  if (inputs.currentMA && *inputs.currentMA > chargingMA) return ChargeState::allow;
  if (!inputs.plugged || inputs.target >= none) return ChargeState::allow;
  if (inputs.currentMA && *inputs.currentMA >= trickleMA && inputs.state == ChargeState::allow) {
    return ChargeState::allow;
  }
  if (inputs.pct < inputs.target - restingMargin) return ChargeState::allow;
  const bool drains = inputs.currentMA && *inputs.currentMA < dischargeFloor;
  return drains && inputs.target < inputs.pct ? ChargeState::discharge : ChargeState::hold;
}

void driveNative(const Settings& cfg, std::int64_t pct, std::int64_t upper, bool topUp,
                 const std::optional<CalDrive>& calDrive, bool hot) {
  const bool plugged = adapterPresent();
  const double now = platform::wallNow();
  if (!ensurePriorLimitRecorded(now)) return;
  if (!cfg.enabled && !calDrive && !topUp) return stayIdle();
  leaveIdle();

  const bool tooHot = hot && plugged;
  const bool waits = gGuards.menu && waitsForFullCharge(wantedTarget(upper, topUp, calDrive), tooHot, now);
  gNativeHoldAt = holdPoint({.topUp = topUp,
                             .plugged = plugged,
                             .discharge = cfg.discharge,
                             .calibrating = calDrive.has_value(),
                             .pct = pct,
                             .upper = upper,
                             .holdAt = gNativeHoldAt},
                            waits);
  const std::int64_t wanted = cooledTarget(baseTarget(upper, topUp, calDrive), tooHot, pct);
  const std::int64_t target = holdableTarget(wanted);
  gNativeFloor = floorOfThisMac(cfg.limit);
  gNativeAttemptAt = nativeAttemptClock(gNativeAttemptAt, plugged, now);

  if (waits) {
    restartNativeWait(now);
  } else if (gNativeWritten != target) {
    nativeWrite(target, now);
  } else if (plugged) {
    checkLimitHeld(target, now);
  }
  publishNativeState(
      nativeChargeState(
          {.plugged = plugged, .pct = pct, .target = target, .currentMA = amperageNow(), .state = gState}),
      target);
}

void handBackNative() {
  if (!gateIsMacOSLimit() || gNativeIdle || !gNativeBefore) return;
  const std::int64_t value = isOnSlider(*gNativeBefore) ? *gNativeBefore : none;
  const bool accepted = NativeLimit::write(value, false);
  gNativeWritten.reset();
  log("macOS limit handed back: " + limitText(value) + outcomeText(accepted));
}

}  // namespace brisko
