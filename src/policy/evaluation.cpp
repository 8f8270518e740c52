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
#include "policy/charge_bounds.h"
#include "policy/decision.h"
#include "policy/verification.h"
#include "records/history.h"
#include "records/statistics.h"
#include "records/status.h"
#include "state/machine_abilities.h"
#include "state/sleep_state.h"
#include "state/tick_state.h"

namespace brisko {
namespace {

constexpr double secondsPerHour = 3600.0;
constexpr double secondsPerMinute = 60.0;

// The settings that the previous pass saw. A negative limit means that there was none.
std::int64_t gLastLimit = -1;
bool gLastEnabled = true;
bool gLastDischarge = false;

bool gDarkWakeLogged = false;  // once for each spell of dark wakes
std::string gLastDesc;         // the last summary line

// What one pass learns and decides, step by step.
struct Pass {
  Settings cfg;
  Bounds band;           // from the settings
  bool changed = false;  // limit, switch or discharge differ from the previous pass
  PowerState power;
  std::optional<CalDrive> calDrive;
  std::int64_t target = 0;  // the band in force
  std::int64_t floor = 0;
  bool topUpActive = false;
  bool dischargeOn = false;   // wanted and allowed
  bool dischargeNow = false;  // may run in this kind of wake
  bool fullyAwake = true;     // a maintenance wake leaves the display off
  std::optional<double> temp;
};

bool sleepIsPending() {
  if (!gSleepPendingSince) return false;
  if (platform::wallNow() - *gSleepPendingSince < sleepPendingLimit) return true;
  gSleepPendingSince.reset();
  return false;
}

// Nothing is driven, and nothing published either.
bool isAtRest() { return gDormant || gReleased || (gPurged && gateIsMacOSLimit()); }

Settings settingsInForce() {
  if (const auto settings = readConfig(gConfigPath)) return *settings;
  Settings defaults;
  defaults.limit = gCliLimit;
  return defaults;
}

void resetStatistics(const Settings& cfg) {
  gProtectedSeconds = 0;
  gStatsSince = platform::wallNow();
  writeStats();
  writeConfig(cfg, std::nullopt, false, std::nullopt);
  log("stats reset");
}

// Whether a choice that matters changed since the previous pass; the first pass has nothing to compare with.
bool noteSettings(const Settings& cfg) {
  const bool first = gLastLimit < 0;
  const bool differs =
      cfg.limit != gLastLimit || cfg.enabled != gLastEnabled || cfg.discharge != gLastDischarge;
  gLastLimit = cfg.limit;
  gLastEnabled = cfg.enabled;
  gLastDischarge = cfg.discharge;
  return !first && differs;
}

// A discharge that was given up gets another chance when the circumstances are new.
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

// A calibration that is asked for takes the place of a Top Up.
void beginCalibration(const Settings& cfg) {
  startCalibration();
  if (!cfg.topUp) return;
  noteTopUp(0);
  writeConfig(cfg, false, std::nullopt, std::nullopt);
}

// Moves the calibration on. A request that is withdrawn ends it, and its end ends the request.
void considerCalibration(Pass& pass) {
  const Settings& cfg = pass.cfg;
  if (cfg.calibrate && gCal.phase == CalPhase::idle) beginCalibration(cfg);
  if (!cfg.calibrate) stopCalibration(std::nullopt, std::nullopt);
  if (gCal.phase == CalPhase::idle) return;
  const bool ended =
      advanceCalibration({.pct = pass.power.pct,
                          .plugged = adapterPresent(),
                          .limit = cfg.limit,
                          .drainTarget = cfg.calDrain,
                          .soakSeconds = static_cast<double>(cfg.calSoakMinutes) * secondsPerMinute});
  if (ended) writeConfig(cfg, std::nullopt, std::nullopt, false);
  pass.calDrive = calibrationDrive(gCal.phase, cfg.calDrain, cfg.limit);
}

bool topUpExpired(const Settings& cfg) {
  return cfg.topUpHours >= 1 &&
         platform::wallNow() - gTopUpSince > static_cast<double>(cfg.topUpHours) * secondsPerHour;
}

// Runs the Top Up that the settings ask for, or ends it. True while it runs.
bool continueTopUp(const Settings& cfg) {
  if (gTopUpSince == 0) noteTopUp(platform::wallNow());
  const bool expired = topUpExpired(cfg);
  if (adapterPresent() && !expired) return true;
  writeConfig(cfg, false, std::nullopt, std::nullopt);
  noteTopUp(0);
  log(expired ? "Top Up dropped after " + std::to_string(cfg.topUpHours) + "h"
              : "Top Up finished (unplugged)");
  return false;
}

void chooseTarget(Pass& pass) {
  pass.topUpActive = pass.cfg.topUp && gCal.phase == CalPhase::idle && continueTopUp(pass.cfg);
  if (pass.topUpActive) {
    pass.target = 100;
    pass.floor = 99;
    pass.dischargeOn = false;
    return;
  }
  if (gTopUpSince != 0) noteTopUp(0);
  pass.target = pass.band.upper;
  pass.floor = pass.band.lower;
  pass.dischargeOn = pass.cfg.discharge && dischargeSupported && !gDischargeBroken;
}

// In a maintenance wake the display stays off and a discharge can't be judged, so none is begun.
void considerWake(Pass& pass) {
  if (isFullWake(systemCapabilities())) {
    pass.dischargeNow = pass.dischargeOn;
    gDarkWakeLogged = false;
    return;
  }
  pass.fullyAwake = false;
  pass.dischargeNow = false;
  if (pass.dischargeOn && pass.power.pct > pass.target && !gDarkWakeLogged) {
    log("réveil de maintenance à " + std::to_string(pass.power.pct) +
        "% — la décharge attend le vrai réveil");
    gDarkWakeLogged = true;
  }
}

void considerHeat(const Settings& cfg, bool plugged, const std::optional<double>& temp) {
  // One-sided on purpose: a battery that was too hot has to cool down for good.
  constexpr double coolerBy = 3.0;  // °C
  if (!cfg.thermal || !plugged || !temp) {
    gThermalPaused = false;
    return;
  }
  const auto limit = static_cast<double>(cfg.thermalLimit);
  if (*temp >= limit) {
    gThermalPaused = true;
  } else if (*temp < limit - coolerBy) {
    gThermalPaused = false;
  }
}

void considerLimit(const Pass& pass) {
  bool atLimit = false;
  if (!pass.changed && pass.cfg.enabled) {
    if (pass.power.pct >= pass.target) {
      atLimit = true;
    } else if (pass.power.pct > pass.floor) {
      atLimit = gAtLimit.value_or(true);
    }
  }
  const bool known = gAtLimit == atLimit;
  gAtLimit = atLimit;
  if (!known) writeStats();
}

ChargeState decide(const Pass& pass) {
  return decideState({.enabled = pass.cfg.enabled,
                      .thermalPaused = gThermalPaused,
                      .calDrive = pass.calDrive,
                      .pct = pass.power.pct,
                      .plugged = pass.power.plugged,
                      .adapterPresent = adapterPresent(),
                      .target = pass.target,
                      .floor = pass.floor,
                      .atLimit = gAtLimit.value_or(false),
                      .dischargeNow = pass.dischargeNow,
                      .canDischarge = dischargeSupported && !gDischargeBroken,
                      .state = gState});
}

void chooseLight(const Pass& pass) {
  gMode = ledMode(gState, {.wanted = pass.cfg.led,
                           .adapterPresent = adapterPresent(),
                           .controlling = pass.cfg.enabled || pass.calDrive.has_value(),
                           .pct = pass.power.pct,
                           .shownTarget = pass.calDrive ? pass.calDrive->target : pass.target});
}

// What drifted is put right before anything is judged.
void verify(const Pass& pass) {
  reassertState();
  verifyGate(pass.power.plugged);
  verifyDischarge(pass.fullyAwake);
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
  if (gCal.phase == CalPhase::idle) return "";
  return std::string("  cal=") + phaseName(gCal.phase) + "→" + std::to_string(drive ? drive->target : 0) +
         "%";
}

std::string summary(const Pass& pass) {
  std::string line = "cap " + (pass.cfg.enabled ? std::to_string(pass.target) + "%" : std::string("off"));
  if (pass.topUpActive) line += "(TopUp)";
  if (pass.dischargeOn) line += "+discharge";
  if (gThermalPaused) line += "+HOT";
  line += calibrationText(pass.calDrive);
  line += "  batt " + std::to_string(pass.power.pct) + "%  " + temperatureText(pass.temp);
  line += pass.power.plugged ? "  ac" : "  battery";
  line += std::string("  state=") + stateName(gState) + "  LED=" + ledModeName(gMode);
  return line;
}

void logSummary(const Pass& pass) {
  const std::string line = summary(pass);
  if (line == gLastDesc) return;
  log(line);
  gLastDesc = line;
}

void publish(const Pass& pass) {
  // A soak time that overflows is found only now, with the hardware already set.
  writeStatus({.state = gState,
               .pct = gLastPct,
               .plugged = adapterPresent(),
               .upper = pass.band.upper,
               .enabled = pass.cfg.enabled,
               .discharge = pass.dischargeOn,
               .hot = gThermalPaused,
               .temp = pass.temp,
               .topUp = pass.topUpActive,
               .calDrainTarget = pass.cfg.calDrain,
               .calSoakSeconds = checkedProduct(pass.cfg.calSoakMinutes, 60)});
  recordSample({.pct = pass.power.pct,
                .state = gState,
                .plugged = adapterPresent(),
                .hot = gThermalPaused,
                .temp = pass.temp},
               pass.cfg);
}

// Everything that is settled before the battery is looked at.
Pass readSettings() {
  Pass pass;
  pass.cfg = settingsInForce();
  pass.band = bounds(pass.cfg.limit, gCliLower, pass.cfg.hysteresis);
  gBlinkSeconds = pass.cfg.blinkSeconds;
  if (pass.cfg.resetStats) resetStatistics(pass.cfg);
  pass.changed = noteSettings(pass.cfg);
  rearmDischarge(pass.changed);
  return pass;
}

}  // namespace

void evaluate() {
  if (isAtRest()) return;
  if (gSystemLocked) {
    observeLockedSystem();
    return;
  }
  if (sleepIsPending()) return;
  Pass pass = readSettings();

  const auto power = powerState();
  if (!power) return;
  pass.power = *power;
  gLastPct = power->pct;
  gLastPlugged = power->plugged;

  considerCalibration(pass);
  chooseTarget(pass);
  considerWake(pass);
  gFirmwareUpper = pass.target;
  gFirmwareLower = pass.floor;
  pass.temp = readTemp();
  considerHeat(pass.cfg, pass.power.plugged, pass.temp);
  considerLimit(pass);

  if (gateIsMacOSLimit()) {
    driveNative(pass.cfg, pass.power.pct, pass.target, pass.topUpActive, pass.calDrive, gThermalPaused);
  } else {
    applyState(decide(pass));
    verify(pass);
  }

  chooseLight(pass);
  showLight();
  logSummary(pass);
  publish(pass);
}

}  // namespace brisko
