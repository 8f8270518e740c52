// client/doctor/checks.h
// The checks of "brisko doctor". Each is a pure function of the evidence, and a row of a table from which
// docs/troubleshooting.md is made too.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "client/doctor/evidence.h"
#include "client/log_catalogue.h"

namespace brisko::client {

enum class Outcome : std::uint8_t { clear, found, notLookedAt };

struct CheckResult {
  Outcome outcome = Outcome::clear;
  std::string text = {};  // the finding as a sentence; of what was not looked at, why not
  std::string cure = {};  // if it differs from the usual one
};

[[nodiscard]] inline CheckResult clear() { return {}; }
[[nodiscard]] inline CheckResult found(std::string text, std::string cure = {}) {
  return {Outcome::found, std::move(text), std::move(cure)};
}
[[nodiscard]] inline CheckResult notLookedAt(std::string whyNot) {
  return {Outcome::notLookedAt, std::move(whyNot), {}};
}

// What --fix can do.
enum class Fix : std::uint8_t { none, moveAside, rewriteSettings, restart };

struct Check {
  const char* id;     // "D01"
  const char* group;  // of symptoms, a heading of the page
  const char* title;
  const char* symptom;
  const char* seenBy;
  const char* cause;
  const char* cure;
  Severity severity;  // error: the charge is not limited, warning: not as asked, info: for your information
  Fix fix;
  CheckResult (*run)(const Evidence& evidence);
};

// In the order of their ids.
[[nodiscard]] std::span<const Check> checks();
[[nodiscard]] const Check* findCheck(std::string_view id);  // null if unknown

// --- The functions of the table, by what they look at

CheckResult checkInstalled(const Evidence& evidence);
CheckResult checkInstalledWhole(const Evidence& evidence);
CheckResult checkJobLoaded(const Evidence& evidence);
CheckResult checkJobEnabled(const Evidence& evidence);
CheckResult checkLoginItems(const Evidence& evidence);
CheckResult checkSignature(const Evidence& evidence);
CheckResult checkQuarantine(const Evidence& evidence);
CheckResult checkProcessor(const Evidence& evidence);
CheckResult checkRights(const Evidence& evidence);
CheckResult checkVersion(const Evidence& evidence);

CheckResult checkNumbers(const Evidence& evidence);
CheckResult checkKnownMac(const Evidence& evidence);
CheckResult checkController(const Evidence& evidence);
CheckResult checkStatusAge(const Evidence& evidence);
CheckResult checkPurged(const Evidence& evidence);
CheckResult checkDormant(const Evidence& evidence);
CheckResult checkReleased(const Evidence& evidence);
CheckResult checkOneDaemon(const Evidence& evidence);
CheckResult checkDisk(const Evidence& evidence);
CheckResult checkClock(const Evidence& evidence);

CheckResult checkStatusReadable(const Evidence& evidence);
CheckResult checkSettingsReadable(const Evidence& evidence);
CheckResult checkSettingKeys(const Evidence& evidence);
CheckResult checkSettingRanges(const Evidence& evidence);
CheckResult checkJobArguments(const Evidence& evidence);
CheckResult checkSettingsWatched(const Evidence& evidence);
CheckResult checkDischargeSupported(const Evidence& evidence);

CheckResult checkGateObeys(const Evidence& evidence);
CheckResult checkOtherLimiter(const Evidence& evidence);
CheckResult checkTwoLimits(const Evidence& evidence);
CheckResult checkLimitRefused(const Evidence& evidence);
CheckResult checkLimitOverridden(const Evidence& evidence);
CheckResult checkKeysOpen(const Evidence& evidence);
CheckResult checkProfiles(const Evidence& evidence);
CheckResult checkAdapterStrong(const Evidence& evidence);
CheckResult checkCurrentFlows(const Evidence& evidence);
CheckResult checkHeat(const Evidence& evidence);
CheckResult checkDischargeWorks(const Evidence& evidence);
CheckResult checkCalibration(const Evidence& evidence);
CheckResult checkNight(const Evidence& evidence);
CheckResult checkSwing(const Evidence& evidence);

// --- What several of them, and the repairs, ask

// The file with a number that ends the daemon at every start.
struct FatalNumber {
  std::string path = {};  // unmapped
  std::string key = {};
};
[[nodiscard]] std::optional<FatalNumber> fatalNumberIn(const Evidence& evidence);

// The daemon has a process, as far as the launch service knows.
[[nodiscard]] bool daemonRuns(const Evidence& evidence);
// The Mac was started so recently that the daemon may still be starting, or it is asleep.
[[nodiscard]] bool isSettling(const Evidence& evidence);

// What the settings file should contain instead of what is wrong with it: at least one key, if anything is.
[[nodiscard]] Json repairedSettings(const Evidence& evidence);

}  // namespace brisko::client
