#include "policy/evaluation.h"

#include <cstdio>
#include <optional>
#include <string>

#include "base/checked.h"
#include "base/log.h"
#include "base/options.h"
#include "base/process_flags.h"
#include "base/settings.h"
#include "calibration/calibration_cycle.h"
#include "hardware/adapter.h"
#include "hardware/battery.h"
#include "hardware/charge_gate.h"
#include "hardware/charge_state.h"
#include "hardware/led.h"
#include "native/locked_system.h"
#include "native/native_limit.h"
#include "platform/clock.h"
#include "policy/adapter_word.h"
#include "policy/charge_bounds.h"
#include "policy/decision.h"
#include "policy/heat.h"
#include "policy/limit_latch.h"
#include "policy/maintenance_wake.h"
#include "policy/night_rules.h"
#include "policy/night_watch.h"
#include "policy/top_up.h"
#include "policy/verification.h"
#include "records/history.h"
#include "records/statistics.h"
#include "records/status.h"
#include "state/machine_abilities.h"
#include "state/sleep_state.h"
#include "state/tick_observer.h"
#include "state/tick_state.h"

namespace brisko {
namespace {

constexpr double secondsPerMinute = 60.0;

// The settings of the previous tick. A negative limit means that there was none.
std::int64_t gLastLimit = -1;
bool gLastEnabled = true;
bool gLastDischarge = false;

bool gDarkWakeLogged = false;  // once for each run of dark wakes
bool gBlindLogged = false;     // that no adapter is cut without its key, once
std::string gLastDesc;         // the last summary line

// What one tick reads and decides, step by step.
struct Tick {
  Settings cfg;
  Bounds band;           // from the settings
  bool changed = false;  // limit, switch or discharge differ from the previous tick
  PowerState power;
  std::optional<CalDrive> calDrive;
  std::int64_t target = 0;  // the band in force
  std::int64_t floor = 0;
  bool topUpActive = false;
  bool dischargeOn = false;   // wanted and allowed
  bool dischargeNow = false;  // may run in this kind of wake
  bool fullyAwake = true;     // a maintenance wake leaves the display off
  bool blind = false;         // a cut adapter could not be told from a pulled one: none is cut
  bool night = false;         // of the guard "night"
  std::optional<double> temp;
};

bool sleepIsPending() {
  if (!gSleepPendingSince) return false;
  if (platform::wallNow() - *gSleepPendingSince < sleepPendingLimit) return true;
  gSleepPendingSince.reset();
  return false;
}

// No key is written and nothing is published.
bool isAtRest() { return gDormant || gReleased || (gPurged && gateIsMacOSLimit()); }

void resetStatistics(const Settings& cfg) {
  gProtectedSeconds = 0;
  gStatsSince = platform::wallNow();
  writeStats();
  writeConfig(cfg, std::nullopt, false, std::nullopt);
  log("stats reset");
}

bool isPlugged(const PowerState& power) {
  const std::optional<double> changedAt = gCutChangedAt;
  return believedPlugged(
      {.plugged = power.plugged,
       .seen = adapterSeen(),
       .cut = gState == ChargeState::discharge && !gateIsMacOSLimit(),
       .sinceCutChanged = changedAt ? std::optional(platform::uptime() - *changedAt) : std::nullopt});
}

// Whether a relevant setting changed since the previous tick; the first tick has nothing to compare with.
bool noteSettings(const Settings& cfg) {
  const bool first = gLastLimit < 0;
  const bool differs =
      cfg.limit != gLastLimit || cfg.enabled != gLastEnabled || cfg.discharge != gLastDischarge;
  gLastLimit = cfg.limit;
  gLastEnabled = cfg.enabled;
  gLastDischarge = cfg.discharge;
  return !first && differs;
}

// A discharge that was given up may be tried again after a relevant change.
void rearmDischarge(bool changed) {
  if (!gDischargeBroken) return;
  const char* reason = nullptr;
  if (changed) {
    reason = "settings changed";
  } else if (!adapterPresent()) {
    reason = "adapter unplugged";
  }
  if (reason == nullptr) return;
  gDischargeBroken = false;
  log(std::string("forced discharge re-armed (") + reason + ")");
}

void noteTopUp(double since) {
  gTopUpSince = since;
  writeStats();
}

// A requested calibration replaces a Top Up.
void beginCalibration(const Settings& cfg) {
  startCalibration();
  if (!cfg.topUp) return;
  noteTopUp(0);
  writeConfig(cfg, false, std::nullopt, std::nullopt);
}

// Advances the calibration. Withdrawing the request ends it, and its end clears the request.
void considerCalibration(Tick& tick) {
  const Settings& cfg = tick.cfg;
  if (cfg.calibrate && gCal.phase == CalPhase::idle) beginCalibration(cfg);
  if (!cfg.calibrate) stopCalibration(std::nullopt, std::nullopt);
  if (gCal.phase == CalPhase::idle) return;
  const bool ended =
      advanceCalibration({.pct = tick.power.pct,
                          .plugged = adapterPresent(),
                          .limit = cfg.limit,
                          .drainTarget = cfg.calDrain,
                          .soakSeconds = static_cast<double>(cfg.calSoakMinutes) * secondsPerMinute});
  if (ended) writeConfig(cfg, std::nullopt, std::nullopt, false);
  tick.calDrive = calibrationDrive(gCal.phase, cfg.calDrain, cfg.limit);
}

// Runs the Top Up that the settings request, or ends it. Returns true while it runs.
bool continueTopUp(const Settings& cfg) {
  if (gTopUpSince == 0) noteTopUp(platform::wallNow());
  const TopUpOutcome outcome = topUpOutcome({.elapsed = platform::wallNow() - gTopUpSince,
                                             .hours = cfg.topUpHours,
                                             .adapterPresent = adapterPresent()});
  if (outcome == TopUpOutcome::continues) return true;
  writeConfig(cfg, false, std::nullopt, std::nullopt);
  noteTopUp(0);
  log(outcome == TopUpOutcome::expired ? "Top Up dropped after " + std::to_string(cfg.topUpHours) + "h"
                                       : "Top Up finished (unplugged)");
  return false;
}

bool drainsForCalibration(const Tick& tick) { return tick.calDrive && !tick.calDrive->toFull; }

// With the guard "swing" no adapter is cut that could not be seen through the cut.
void considerSight(Tick& tick) {
  if (!gGuards.swing || !gGate || gateIsMacOSLimit() || !dischargeSupported) return;
  const std::optional<bool> seen = adapterSeen();
  const bool wanted = tick.cfg.discharge || drainsForCalibration(tick);
  tick.blind = !mayCut(seen);
  gDischargeUnseen = tick.blind && wanted;
  if (!gDischargeUnseen || gBlindLogged) return;
  gBlindLogged = true;
  log("no forced discharge: this Mac does not show its adapter (no AC-W)");
}

void chooseTarget(Tick& tick) {
  tick.topUpActive = tick.cfg.topUp && gCal.phase == CalPhase::idle && continueTopUp(tick.cfg);
  if (tick.topUpActive) {
    tick.target = topUpBand.upper;
    tick.floor = topUpBand.lower;
    tick.dischargeOn = false;
    return;
  }
  if (gTopUpSince != 0) noteTopUp(0);
  tick.target = tick.band.upper;
  tick.floor = tick.band.lower;
  tick.dischargeOn = tick.cfg.discharge && dischargeSupported && !gDischargeBroken && !tick.blind;
}

void considerWake(Tick& tick) {
  tick.fullyAwake = isFullWake(systemCapabilities());
  tick.night = gGate && !gateIsMacOSLimit() && isNight();
  const WakeDecision decision = decideWake({.full = tick.fullyAwake,
                                            .dischargeOn = tick.dischargeOn,
                                            .pct = tick.power.pct,
                                            .target = tick.target,
                                            .waitLogged = gDarkWakeLogged});
  tick.dischargeNow = decision.dischargeNow;
  gDarkWakeLogged = decision.waitLogged;
  if (decision.logWait) {
    log("réveil de maintenance à " + std::to_string(tick.power.pct) +
        "% — la décharge attend le vrai réveil");
  }
}

void considerHeat(Tick& tick) {
  tick.temp = readTemp();
  gThermalPaused = pausedForHeat({.wanted = tick.cfg.thermal,
                                  .plugged = tick.power.plugged,
                                  .temp = tick.temp,
                                  .limit = tick.cfg.thermalLimit,
                                  .paused = gThermalPaused});
}

void considerLimit(const Tick& tick) {
  const bool atLimit = limitLatch({.enabled = tick.cfg.enabled,
                                   .changed = tick.changed,
                                   .pct = tick.power.pct,
                                   .target = tick.target,
                                   .floor = tick.floor,
                                   .before = gAtLimit});
  const bool known = gAtLimit == atLimit;
  gAtLimit = atLimit;
  if (!known) writeStats();
}

// The band of the settings is in force, and it ends below a full charge.
bool isLimited(const Tick& tick) {
  return tick.cfg.enabled && !tick.topUpActive && !tick.calDrive && tick.band.upper < topUpBand.upper;
}

ChargeState decideAwake(const Tick& tick) {
  return decideState({.enabled = tick.cfg.enabled,
                      .thermalPaused = gThermalPaused,
                      .calDrive = tick.calDrive,
                      .pct = tick.power.pct,
                      .plugged = tick.power.plugged,
                      .adapterPresent = adapterPresent(),
                      .target = tick.target,
                      .floor = tick.floor,
                      .atLimit = gAtLimit.value_or(false),
                      .dischargeNow = tick.dischargeNow,
                      .canDischarge = dischargeSupported && !gDischargeBroken && !tick.blind,
                      .drainWaits = tick.blind,
                      .state = gState});
}

ChargeState decide(const Tick& tick) {
  const ChargeState wanted = decideAwake(tick);
  if (!tick.night || !isLimited(tick)) return wanted;
  const ChargeState state = stateAtNight({.wanted = wanted,
                                          .state = gState,
                                          .pct = tick.power.pct,
                                          .lower = tick.floor,
                                          .onAdapter = adapterPresent()});
  const bool resumes = gState == ChargeState::hold && state == ChargeState::allow;
  return resumes && wouldStopAgain(tick.power.pct, tick.band) ? ChargeState::hold : state;
}

void chooseLight(const Tick& tick) {
  gMode = ledMode(gState, {.wanted = tick.cfg.led,
                           .adapterPresent = adapterPresent(),
                           .controlling = tick.cfg.enabled || tick.calDrive.has_value(),
                           .pct = tick.power.pct,
                           .shownTarget = tick.calDrive ? tick.calDrive->target : tick.target});
}

// Drift is corrected before anything is verified.
void verify(const Tick& tick) {
  reassertState();
  verifyGate(tick.power.plugged);
  verifyDischarge(tick.fullyAwake);
}

void showLight() {
  switch (gMode) {
    case LedMode::system:
      setLED(LED_SYSTEM);
      break;
    case LedMode::green:
      setLED(LED_GREEN);
      break;
    case LedMode::orange:
      setLED(LED_ORANGE);
      break;
    case LedMode::blink:
      break;  // the timer writes it
  }
  syncBlinkTimer();
}

std::string temperatureText(const std::optional<double>& temp) {
  if (!temp) return "?";
  char text[32];
  static_cast<void>(std::snprintf(text, sizeof text, "%.1f°C", *temp));
  return text;
}

std::string calibrationText(const std::optional<CalDrive>& drive) {
  if (!drive) return "";
  return std::string("  cal=") + phaseName(gCal.phase) + "→" + std::to_string(drive->target) + "%";
}

std::string summary(const Tick& tick) {
  std::string line = "cap " + (tick.cfg.enabled ? std::to_string(tick.target) + "%" : std::string("off"));
  if (tick.topUpActive) line += "(TopUp)";
  if (tick.dischargeOn) line += "+discharge";
  if (gThermalPaused) line += "+HOT";
  line += calibrationText(tick.calDrive);
  line += "  batt " + std::to_string(tick.power.pct) + "%  " + temperatureText(tick.temp);
  line += tick.power.plugged ? "  ac" : "  battery";
  line += std::string("  state=") + stateName(gState) + "  LED=" + ledModeName(gMode);
  return line;
}

void logSummary(const Tick& tick) {
  const std::string line = summary(tick);
  if (line == gLastDesc) return;
  log(line);
  gLastDesc = line;
}

void publish(const Tick& tick) {
  // A soak time that overflows is detected only now, after the hardware was set.
  writeStatus({.state = gState,
               .pct = gLastPct,
               .plugged = adapterPresent(),
               .upper = tick.band.upper,
               .enabled = tick.cfg.enabled,
               .discharge = tick.dischargeOn,
               .hot = gThermalPaused,
               .temp = tick.temp,
               .topUp = tick.topUpActive,
               .calDrainTarget = tick.cfg.calDrain,
               .calSoakSeconds = checkedProduct(tick.cfg.calSoakMinutes, 60)});
  recordSample({.pct = tick.power.pct,
                .state = gState,
                .plugged = adapterPresent(),
                .hot = gThermalPaused,
                .temp = tick.temp},
               tick.cfg);
}

// Everything that is decided before the battery is read.
Tick readSettings() {
  Tick tick;
  tick.cfg = settingsInForce();
  tick.band = bounds(tick.cfg.limit, gCliLower, tick.cfg.hysteresis);
  gBlinkSeconds = tick.cfg.blinkSeconds;
  if (tick.cfg.resetStats) resetStatistics(tick.cfg);
  tick.changed = noteSettings(tick.cfg);
  rearmDischarge(tick.changed);
  return tick;
}

void runTick() {
  if (isAtRest()) return;
  if (gSystemLocked) {
    observeLockedSystem();
    return;
  }
  if (sleepIsPending()) return;
  Tick tick = readSettings();

  const auto power = powerState();
  if (!power) return;
  tick.power = *power;
  if (gGuards.swing) tick.power.plugged = isPlugged(tick.power);
  gLastPct = tick.power.pct;
  gLastPlugged = tick.power.plugged;

  considerCalibration(tick);
  considerSight(tick);
  chooseTarget(tick);
  considerWake(tick);
  gFirmwareUpper = tick.target;
  gFirmwareLower = tick.floor;
  considerHeat(tick);
  considerLimit(tick);

  if (gateIsMacOSLimit()) {
    driveNative(tick.cfg, tick.power.pct, tick.target, tick.topUpActive, tick.calDrive, gThermalPaused);
  } else {
    applyState(decide(tick));
    verify(tick);
    if (tick.night) watchNight(tick.power.pct, tick.band, isLimited(tick));
  }

  chooseLight(tick);
  showLight();
  logSummary(tick);
  publish(tick);
}

}  // namespace

void evaluate() {
  tickBegins();
  runTick();
  tickEnded();
}

}  // namespace brisko
