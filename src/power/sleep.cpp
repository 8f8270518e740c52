#include "power/sleep.h"

#include <algorithm>
#include <cmath>
#include <string>

#include "base/checked.h"
#include "base/log.h"
#include "base/options.h"
#include "base/process_flags.h"
#include "base/settings.h"
#include "hardware/adapter.h"
#include "hardware/battery.h"
#include "hardware/charge_gate.h"
#include "hardware/charge_state.h"
#include "hardware/scheduled_wake.h"
#include "native/native_limit.h"
#include "platform/clock.h"
#include "platform/run_loop.h"
#include "policy/evaluation.h"
#include "policy/night_rules.h"
#include "policy/night_watch.h"
#include "state/calibration_state.h"
#include "state/charge_state_record.h"
#include "state/sleep_state.h"

namespace brisko {
namespace {

SleepSituation situationAt(std::int64_t pct) {
  // Without a readable configuration it is unknown whether the limit is switched on, so the band is kept
  // rather than given up.
  const Settings settings = settingsInForce();
  return {.pct = pct,
          .band = bounds(settings.limit, gCliLower, settings.hysteresis),
          .adapterPresent = adapterPresent(),
          .enabled = settings.enabled,
          .topUp = settings.topUp,
          .calibrating = gCal.phase != CalPhase::idle};
}

void stopChargingForSleep(const SleepSituation& now) {
  applyState(ChargeState::hold);
  log("veille à " + std::to_string(now.pct) + "% — grille fermée pour la nuit (plage " +
      std::to_string(now.band.lower) + "–" + std::to_string(now.band.upper) + "%)");
}

// ---------------------------------------------------------------------------------------------------------
// With the guard "night"

constexpr double watchSeconds = 1;

platform::TimerToken gWatch = 0;  // 0: not watching
double gAsleepBefore = 0;         // seconds asleep since the start of the Mac, as the watch last saw them

// The wall clock less the uptime grows by every second asleep; a clock that is set causes one more tick.
double secondsAsleep() { return platform::wallNow() - platform::uptime(); }

// A dark wake is not announced, and may be over before the next heartbeat.
void watchForDarkWake() {
  endOverlongStay();
  const double asleep = secondsAsleep();
  const bool slept = asleep - gAsleepBefore > watchSeconds;
  gAsleepBefore = asleep;
  if (slept) evaluate();
}

void startWatch() {
  gAsleepBefore = secondsAsleep();
  if (gWatch == 0) gWatch = platform::addRepeatingTimer(watchSeconds, watchForDarkWake);
}

void startNight() {
  if (!gGuards.night || !gGate || gateIsMacOSLimit()) return;
  beginNight();
  startWatch();
}

void stopWatch() {
  if (gWatch != 0) platform::invalidateTimer(gWatch);
  gWatch = 0;
}

void prepareForNight(const SleepSituation& bedtime) {
  switch (planBedtime({.pct = bedtime.pct,
                       .band = bedtime.band,
                       .onAdapter = bedtime.adapterPresent,
                       .limited = bedtime.enabled && !bedtime.topUp && !bedtime.calibrating})) {
    case BedtimePlan::leaveAlone:
      break;
    case BedtimePlan::close:
      stopChargingForSleep(bedtime);
      forgetGain();
      break;
    case BedtimePlan::takeStep:
      planNight(bedtime.pct, bedtime.band);
      break;
  }
}

// ---------------------------------------------------------------------------------------------------------

void goToSleep(std::intptr_t argument) {
  startNight();
  prepareForSleep();
  gSleepPendingSince = platform::wallNow();
  // Time asleep must not count as time in which the cut adapter was observed.
  gCutSince.reset();
  platform::allowPowerChange(gRootPort, argument);
}

void handleWake() {
  gSleepPendingSince.reset();
  gCutSince.reset();
  endNight();
  stopWatch();
  cancelScheduledWake();
  // While asleep macOS had no time to show that it holds the limit.
  restartNativeWait(platform::wallNow());
  evaluate();
}

}  // namespace

SleepPlan planSleep(const SleepSituation& now) {
  if (now.calibrating) return SleepPlan::leaveAlone();
  if (!now.adapterPresent || now.topUp || !now.enabled) return SleepPlan::leaveAlone();
  // Also above the limit: a discharge can be verified only in a full wake, so none is started asleep.
  if (now.pct >= now.band.lower) return SleepPlan::freeze();
  return SleepPlan::carryOn(now.band.upper);
}

std::int64_t minutesToCharge(std::int64_t from, std::int64_t to, std::optional<std::int64_t> designMAh,
                             std::optional<std::int64_t> amperageMA) {
  constexpr std::int64_t unknown = 20;       // minutes
  constexpr std::int64_t leastCharge = 101;  // mA
  constexpr double soonest = 5;
  constexpr double latest = 45;
  if (from >= to) return 0;
  if (!designMAh || !amperageMA || *amperageMA < leastCharge) return unknown;
  const double points = static_cast<double>(to) - static_cast<double>(from);
  const double missingMAh = points * static_cast<double>(*designMAh) / 100.0;
  const double minutes = std::round(missingMAh / static_cast<double>(*amperageMA) * 60.0);
  return checkedInteger(std::clamp(minutes, soonest, latest));
}

std::int64_t minutesToCharge(std::int64_t from, std::int64_t to) {
  const platform::SharedDictionary properties = SmartBattery::properties();
  if (!properties) return minutesToCharge(from, to, std::nullopt, std::nullopt);
  return minutesToCharge(from, to, SmartBattery::mAh(*properties, "DesignCapacity"),
                         SmartBattery::amperageMA(*properties));
}

void prepareForSleep() {
  if (gDormant || !gGate || gateIsMacOSLimit()) return;
  cancelScheduledWake();
  const auto power = powerState();
  if (!power) return;
  const SleepSituation now = situationAt(power->pct);
  if (gGuards.night) return prepareForNight(now);
  const SleepPlan plan = planSleep(now);
  if (plan.isFreeze()) stopChargingForSleep(now);
  if (const auto target = plan.target()) scheduleWake(minutesToCharge(power->pct, *target));
}

void systemPowerCallback(platform::PowerMessage message, std::intptr_t argument) {
  switch (message) {
    case platform::PowerMessage::canSystemSleep:
      platform::allowPowerChange(gRootPort, argument);
      break;
    case platform::PowerMessage::systemWillSleep:
      goToSleep(argument);
      break;
    case platform::PowerMessage::systemHasPoweredOn:
      handleWake();
      break;
  }
}

void watchSleepFromStart() {
  if (gGuards.night && !isFullWake(systemCapabilities())) startNight();
}

}  // namespace brisko
