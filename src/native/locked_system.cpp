#include "native/locked_system.h"

#include <algorithm>
#include <optional>

#include "base/checked.h"
#include "base/options.h"
#include "base/settings.h"
#include "calibration/calibration_cycle.h"
#include "hardware/adapter.h"
#include "hardware/battery.h"
#include "hardware/charge_gate.h"
#include "hardware/led.h"
#include "hardware/smc.h"
#include "records/history.h"
#include "records/statistics.h"
#include "records/status.h"
#include "state/calibration_state.h"
#include "state/charge_state_record.h"
#include "state/led_mode.h"
#include "state/tick_state.h"

namespace brisko {
namespace {

using Notes = std::vector<std::string>;

void releaseLight(Notes& notes) {
  if (readFirstByte("ACLC").value_or(LED_SYSTEM) == LED_SYSTEM) return;
  notes.emplace_back(handBackLight() ? "MagSafe light handed back to macOS"
                                     : "⚠️ MagSafe light could not be handed back to macOS");
}

void cancelCalibration(Notes& notes) {
  if (gCal.phase == CalPhase::idle) return;
  stopCalibration(std::nullopt, std::nullopt);
  notes.emplace_back("calibration in progress cancelled");
}

void clearRequests(Notes& notes) {
  const auto cfg = readConfig(gConfigPath);
  if (!cfg || (!cfg->calibrate && !cfg->topUp)) return;
  writeConfig(*cfg, false, std::nullopt, false);
  notes.push_back(std::string("pending ") + (cfg->calibrate ? "calibration" : "") +
                  (cfg->calibrate && cfg->topUp ? " and " : "") + (cfg->topUp ? "Top-up" : "") +
                  " request cleared");
}

void forgetTopUp() {
  if (gTopUpSince == 0) return;
  gTopUpSince = 0;
  writeStats();
}

void publish(const Settings& cfg, std::int64_t pct, const std::optional<double>& temp) {
  constexpr std::int64_t leastLimit = 20;
  writeStatus({.state = ChargeState::allow,
               .pct = pct,
               .plugged = adapterPresent(),
               .upper = std::clamp<std::int64_t>(cfg.limit, leastLimit, 100),
               .enabled = cfg.enabled,
               .temp = temp,
               .calDrainTarget = cfg.calDrain,
               .calSoakSeconds = checkedProduct(cfg.calSoakMinutes, 60)});
  recordSample({.pct = pct, .state = ChargeState::allow, .plugged = adapterPresent(), .temp = temp}, cfg);
}

}  // namespace

std::vector<std::string> handBackLockedSystem() {
  Notes notes = clearLeftoverAdapterCut();
  releaseLight(notes);
  cancelCalibration(notes);
  clearRequests(notes);
  forgetTopUp();
  return notes;
}

void observeLockedSystem() {
  const Settings cfg = readConfig(gConfigPath).value_or(Settings{});
  const auto power = powerState();
  if (!power) return;
  gLastPlugged = power->plugged;
  gState = ChargeState::allow;
  gLastPct = power->pct;
  publish(cfg, power->pct, readTemp());
}

}  // namespace brisko
