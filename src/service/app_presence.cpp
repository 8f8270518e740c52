#include "service/app_presence.h"

#include <filesystem>
#include <string>
#include <system_error>

#include "base/log.h"
#include "base/options.h"
#include "base/process_flags.h"
#include "base/volume_path.h"
#include "hardware/led.h"
#include "native/native_limit.h"
#include "platform/clock.h"
#include "platform/run_loop.h"
#include "policy/evaluation.h"
#include "power/orderly_exit.h"
#include "state/charge_state_record.h"

namespace brisko {
namespace {

constexpr const char* installedApp = "/Applications/Brisko.app";
constexpr double pollSeconds = 60;

bool exists(const std::string& path) {
  std::error_code ignored;
  return std::filesystem::exists(onVolume(path), ignored);
}

void takeChargeAgain() {
  gDormant = false;
  gNativeWritten.reset();  // so that the tick writes macOS's limit again
  log("app is back — Brisko takes the charge again");
  evaluate();
}

void goDormant() {
  gDormant = true;
  restoreOnExit();
  // No later tick would stop the blinking, and the light belongs to the system now.
  gMode = LedMode::system;
  syncBlinkTimer();
  gState = ChargeState::allow;
  gHoldSince.reset();
  log("app gone — charge, adapter and LED handed back to macOS; service dormant "
      "(uninstall with uninstall-service.sh)");
}

void noteAbsence(double now) {
  gAppGoneSince = now;
  log("app missing at " + *gAppPath + " — handing the charge back to macOS in " +
      std::to_string(static_cast<int>(appGraceSeconds)) + "s unless it comes back");
  platform::postMainAfter(appGraceSeconds + 1, checkAppPresence);
}

void actOnAbsence() {
  if (gDormant) return;
  const double now = platform::wallNow();
  if (!gAppGoneSince) return noteAbsence(now);
  if (now - *gAppGoneSince >= appGraceSeconds) goDormant();
}

// A rename or deletion is checked at once, and whatever is at the path then is watched next.
void watchNextBundle(int descriptor) {
  platform::closeWatched(descriptor);
  gAppSource.reset();
  checkAppPresence();
  watchApp();
}

}  // namespace

void checkAppPresence() {
  if (!gAppPath) return;
  if (!exists(*gAppPath) && !exists(installedApp)) return actOnAbsence();
  gAppGoneSince.reset();
  if (gDormant) takeChargeAgain();
}

void watchApp() {
  if (!gAppPath || gDormant) return;
  const auto descriptor = platform::openForEvents(onVolume(*gAppPath));
  if (!descriptor) {
    checkAppPresence();
    platform::postMainAfter(pollSeconds, watchApp);
    return;
  }
  gAppSource = platform::watchFile(
      *descriptor, platform::fileDeleted | platform::fileRenamed,
      [](platform::FileEvents) { platform::cancelWatch(*gAppSource); },
      [bundle = *descriptor] { watchNextBundle(bundle); });
}

}  // namespace brisko
