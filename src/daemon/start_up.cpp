#include "daemon/start_up.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <unistd.h>

#include "base/files.h"
#include "base/folders.h"
#include "base/log.h"
#include "base/options.h"
#include "base/paths.h"
#include "base/process_flags.h"
#include "base/settings.h"
#include "base/volume_path.h"
#include "calibration/calibration_record.h"
#include "daemon/config_watch.h"
#include "hardware/charge_gate.h"
#include "hardware/smc.h"
#include "hardware/system_lock.h"
#include "native/locked_system.h"
#include "platform/power_sources.h"
#include "platform/run_loop.h"
#include "platform/system_power.h"
#include "policy/evaluation.h"
#include "power/orderly_exit.h"
#include "power/sleep.h"
#include "records/history.h"
#include "records/statistics.h"
#include "service/app_presence.h"
#include "service/control_service.h"
#include "state/charge_state_record.h"
#include "state/machine_abilities.h"

namespace brisko {
namespace {

constexpr double heartbeatSeconds = 12.0;
constexpr double statisticsSeconds = 20.0;
constexpr std::string_view bundledDaemonSuffix = "/Contents/MacOS/brisko-daemon";
constexpr int noWayToControlCharging = 2;  // exit status

void reportUnsupported(GateFailure failure) {
  const std::string line = "⛔️ " + failureMessage(failure) + " [" + failureDetail(failure) + "]\n";
  static_cast<void>(writeAll(STDERR_FILENO, line));
}

void useGate(const ChargeGate& gate) {
  gGate = gate;
  dischargeSupported = gate.cut != AdapterCutKey::none || gate.charge == ChargeKeys::macOSLimit;
  gLedSupported = canRead("ACLC");
}

// Finds the gate. Returns false on a Mac whose charging can't be controlled.
bool findGate() {
  const auto detected = ChargeGate::detect(true);
  if (const auto* gate = std::get_if<ChargeGate>(&detected)) {
    useGate(*gate);
    return true;
  }
  const GateFailure failure = std::get<GateFailure>(detected);
  if (failure == GateFailure::lockedByMacOS) {
    gSystemLocked = true;
    return true;
  }
  reportUnsupported(failure);
  return false;
}

std::vector<std::string> probeKeys() {
  std::vector<std::string> keys;
  if (gGate) keys = gGate->writtenKeys();
  keys.insert(keys.end(), {"ACLC", "AC-W", "TB0T"});
  if (gateIsMacOSLimit()) keys.emplace_back("bfG0");
  std::erase_if(keys, [](const std::string& key) { return !canRead(key); });
  return keys;
}

// If this run cannot use the keys, nothing else would restore what an earlier run left set.
std::vector<std::string> handBackLeftovers() {
  if (gSystemLocked) return handBackLockedSystem();
  return gateIsMacOSLimit() ? clearLeftoverAdapterCut() : std::vector<std::string>{};
}

ChargeState stateOfHardware() {
  if (!gGate) return ChargeState::allow;
  if (gGate->adapterIsCut()) return ChargeState::discharge;
  return gGate->chargingIsStopped() ? ChargeState::hold : ChargeState::allow;
}

std::string chargingText() {
  if (gGate) return chargeLabel(gGate->charge);
  return "nothing: macOS " + std::to_string(SystemLock::macOSMajor()) +
         " closed the keys Brisko writes, observing only";
}

std::string dischargeText() {
  if (!gGate) return "off";
  if (gateIsMacOSLimit()) return "macOS";
  return cutKeyName(gGate->cut).value_or("off");
}

void logBanner() {
  log("brisko-daemon started (event-driven) — config " + gConfigPath + ". charging via " + chargingText() +
      ", discharge " + dischargeText() + ", LED " + (gLedSupported ? "OK" : "off") + ", history " +
      historyDir + ", state=" + stateName(gState));
}

void logRepairsAndHandBacks(const std::vector<std::string>& repairs,
                            const std::vector<std::string>& handBacks) {
  for (const auto& repair : repairs) log("log permissions repaired: " + repair);
  for (const auto& note : handBacks) log("macOS " + std::to_string(SystemLock::macOSMajor()) + ": " + note);
}

// Only a daemon inside the app bundle that drives macOS's own limit watches that app by default. Elsewhere
// the service is installed beside the app, and its command line names the app to watch.
void settleAppPath() {
  const std::string_view path = gDaemonPath;
  if (gAppPath || !gateIsMacOSLimit() || !path.ends_with(bundledDaemonSuffix)) return;
  gAppPath = std::string(path.substr(0, path.size() - bundledDaemonSuffix.size()));
}

}  // namespace

int startUp() {
  gLastStatsTick = gStatsSince = daemonStartedAt;
  if (!findGate()) return noWayToControlCharging;
  gProbedKeys = probeKeys();
  readStats();
  readCalibration();
  const std::vector<std::string> handBacks = handBackLeftovers();
  makeFolders(onVolume(historyDir));
  // Also with the history switched off: files that are too old are removed.
  pruneHistory(readConfig(gConfigPath).value_or(Settings{}).historyDays);
  installExitHandling();
  gState = stateOfHardware();
  const std::vector<std::string> repairs = LogFile::repairPermissions();
  logBanner();
  logRepairsAndHandBacks(repairs, handBacks);

  // Without the notification the heartbeat still notices every change, only later.
  static_cast<void>(platform::addPowerSourceNotification(evaluate));
  // Without it no sleep is planned for, and after each wake the heartbeat takes over.
  gRootPort = platform::registerSystemPower(systemPowerCallback).rootPort;
  watchSleepFromStart();
  watchConfig();
  startXPCListener();
  settleAppPath();
  checkAppPresence();
  watchApp();
  static_cast<void>(platform::addRepeatingTimer(heartbeatSeconds, evaluate));
  static_cast<void>(platform::addRepeatingTimer(statisticsSeconds, statisticsTick));
  evaluate();
  platform::runMain();
  return 0;
}

}  // namespace brisko
